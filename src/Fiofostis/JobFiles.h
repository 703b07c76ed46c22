#pragma once

#include <QString>
#include <QStringList>

// The files one save writes on its way to the file the user chose. Each gets
// a hidden name beside that file, with a random part, created empty and
// exclusively, so it cannot be a file that was there before; the tools'
// companions of it (".part", ".ytdl", fragments) start with that name too.
// Only these are ever removed: nothing the user had is touched until the
// finished file replaces the chosen one.
class JobFiles
{
public:
    // A new work file beside `target` ending in "." + `suffix`; empty when
    // the folder takes none.
    QString create(const QString &target, const QString &suffix);
    // Moves a finished work file onto `target`, replacing what is there.
    bool commit(const QString &work, const QString &target);
    // Removes exactly the files this job created, and their companions.
    void removeCreated();

private:
    QStringList files;
};
