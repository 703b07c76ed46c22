#include <QDebug>
#include <QMessageBox>

#include "Sniffer/Sniffer.h"
#include "Sniffer/WindowRules.h"

void Sniffer::showErrorMessage(int number, Sniffer::appFlag selector)
{
    // The dark look of the recording page must not colour the box.
    setStyleSheet(QString());

    QString row = tableText(WindowRules::messageTable(selector), number);
    if (row.isEmpty())
        row = QStringLiteral("0~Indefinite Error");
    const WindowRules::MessageRow message = WindowRules::splitMessageRow(row);
    QString title = tableText(QStringLiteral("error_titles"), message.titleNumber);
    if (title.isEmpty())
        title = QStringLiteral("Error");

    if (!WindowRules::isErrorSelector(selector)) {
        qDebug() << "src/Sniffer/ErrorMessages" << __LINE__ << "showErrorMessage"
                 << ":" << title;
        QMessageBox::warning(this, title, message.text, QMessageBox::Ok);
        return;
    }

    qCritical() << "!!! ERROR: "
                << "src/Sniffer/ErrorMessages" << __LINE__ << "showErrorMessage"
                << ":" << title << ":" << message.text;
    const QString body = WindowRules::messageBody(
        message.text, WindowRules::errorDetailsBlock(number, selector, appSettings.errorDetails));
    QMessageBox box(QMessageBox::Critical, title, body, QMessageBox::Ok, this);
    box.setTextFormat(Qt::RichText);
    box.exec();
}

void Sniffer::showErrorMessage(Sniffer::appFlag flag)
{
    showErrorMessage(int(flag), FlagError);
}

void Sniffer::showErrorMessage(Downloader::errors error)
{
    showErrorMessage(int(error), FlagDownloader);
}

void Sniffer::showWarningMessage(Sniffer::appFlag flag)
{
    showErrorMessage(int(flag), FlagWarning);
}

void Sniffer::showPlainMessage(QMessageBox::Icon icon, const QString &title, const QString &text)
{
    setStyleSheet(QString());
    QMessageBox box(icon, title, text, QMessageBox::Ok, this);
    box.setTextFormat(Qt::PlainText);
    box.exec();
}
