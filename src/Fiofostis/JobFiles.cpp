#include "Fiofostis/JobFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

#include <cstdio>

namespace {

// The part of a work file's name its companions share: ".Song.Xy12ab34.".
QString stemOf(const QString &work)
{
    return QFileInfo(work).completeBaseName() + QLatin1Char('.');
}

QStringList entriesStartingWith(const QDir &folder, const QString &stem)
{
    QStringList found;
    const QStringList entries = folder.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QString &entry : entries)
        if (entry.startsWith(stem))
            found << entry;
    return found;
}

} // namespace

QString JobFiles::create(const QString &target, const QString &suffix)
{
    static const char letters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    const QFileInfo info(target);
    const QDir folder = info.absoluteDir();
    for (int attempt = 0; attempt < 8 && folder.exists(); ++attempt) {
        QString stem = QLatin1Char('.') + info.completeBaseName().left(40) + QLatin1Char('.');
        for (int i = 0; i < 8; ++i)
            stem += QLatin1Char(letters[QRandomGenerator::system()->bounded(int(sizeof letters) - 1)]);
        stem += QLatin1Char('.');
        // Everything starting with the stem goes with the job, so nothing
        // may start with it yet.
        if (!entriesStartingWith(folder, stem).isEmpty())
            continue;
        QFile file(folder.filePath(stem + suffix));
        if (file.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
            files << file.fileName();
            return file.fileName();
        }
    }
    return QString();
}

bool JobFiles::commit(const QString &work, const QString &target)
{
    // One step: the chosen name holds either what was there or the whole
    // new file, never a part of it.
    // Its companions still go with removeCreated().
    return std::rename(QFile::encodeName(work).constData(), QFile::encodeName(target).constData()) == 0;
}

void JobFiles::removeCreated()
{
    for (const QString &work : qAsConst(files)) {
        QDir folder = QFileInfo(work).absoluteDir();
        for (const QString &entry : entriesStartingWith(folder, stemOf(work)))
            folder.remove(entry);
    }
    files.clear();
}
