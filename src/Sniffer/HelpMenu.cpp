#include <QAction>
#include <QDebug>
#include <QDesktopServices>
#include <QMenu>
#include <QMessageBox>
#include <QMetaObject>
#include <QPushButton>
#include <QUrl>

#include <algorithm>

#include "Sniffer/Sniffer.h"

// The help menu is content of the settings file: "help" holds the captions
// in menu order, "help_actions" what each item does. An empty action shows
// the caption, an address is opened in the browser, anything else names a
// slot of the window ("showAboutDialog", or written "slot:showAboutDialog()").
// Only the slots meant for the menu run; any other name shows the caption.

namespace {
const char *const helpSlots[] = {"showAboutDialog",    "showLogsFolder",      "testSniffer",
                                 "mirelSetDefaultURL", "connectBrowserAddOn", "showHelpDesk"};
}

void Sniffer::initClickHelp()
{
    helpMenu.clear();
    const QHash<int, QString> captions = appSettings.tables.value(QStringLiteral("help"));
    const QHash<int, QString> actions = appSettings.tables.value(QStringLiteral("help_actions"));
    QList<int> keys = captions.keys();
    std::sort(keys.begin(), keys.end());

    helpPopup = new QMenu(this);
    for (int key : keys) {
        helpMenu.append(menuItem{captions.value(key), actions.value(key)});
        QAction *action = helpPopup->addAction(captions.value(key));
        action->setData(helpMenu.size() - 1);
        connect(action, &QAction::triggered, this, &Sniffer::onClickHelpItem);
    }
}

void Sniffer::onClickHelp()
{
    auto *button = qobject_cast<QWidget *>(sender());
    if (!helpPopup || helpPopup->isEmpty())
        return;
    // Under the button, right edges aligned: the button sits at the window's
    // right, and the menu stays over the window instead of past it.
    const QPoint where = button ? button->mapToGlobal(QPoint(button->width() - helpPopup->sizeHint().width(),
                                                             button->height()))
                                : QCursor::pos();
    helpPopup->popup(where);
}

void Sniffer::onClickHelpItem()
{
    auto *action = qobject_cast<QAction *>(sender());
    if (!action)
        return;
    const int index = action->data().toInt();
    if (index < 0 || index >= helpMenu.size())
        return;
    const menuItem item = helpMenu.at(index);
    const QString what = item.action.trimmed();

    if (what.isEmpty()) {
        QMessageBox::information(this, QStringLiteral("Help"), item.caption);
        return;
    }
    if (what.startsWith(QLatin1String("http"))) {
        QDesktopServices::openUrl(QUrl(what));
        return;
    }

    QString slot = what;
    if (slot.startsWith(QLatin1String("slot:")))
        slot = slot.mid(5).trimmed();
    if (slot.endsWith(QLatin1String("()")))
        slot.chop(2);
    const bool allowed = std::any_of(std::begin(helpSlots), std::end(helpSlots),
                                     [&slot](const char *name) { return slot == QLatin1String(name); });
    if (!allowed || !QMetaObject::invokeMethod(this, slot.toLatin1().constData())) {
        qWarning() << "src/Sniffer/HelpMenu" << __LINE__ << "onClickHelpItem"
                   << ":"
                   << "no such action"
                   << ":" << what;
        QMessageBox::information(this, QStringLiteral("Help"), item.caption);
    }
}

void Sniffer::showLogsFolder()
{
    QDesktopServices::openUrl(QUrl(QStringLiteral("file:///") + getApplicationDataFolder(QString())));
}
