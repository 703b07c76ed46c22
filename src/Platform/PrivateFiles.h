#pragma once

#include <QString>
#include <QtGlobal>

// What the program keeps (settings, logs, recordings, its sockets) is the
// user's alone: folders 0700, files 0600, whatever the umask.
namespace Platform {

// Whether `folder` is a real folder (not a link) of the current user that
// nobody else may enter.
bool isPrivateFolder(const QString &folder);
// Makes `folder` (one level) when it is missing and takes others' access
// from one of the user's own; true when it is then private. A folder of
// another user is never taken.
bool makePrivateFolder(const QString &folder);
// Takes group and other access from `path` (the owner's own bits stay, so
// a program stays runnable) and, with `contents`, from everything in the
// folder it names. Links and other users' entries are left alone.
void makePrivate(const QString &path, bool contents = false);

// Whether the other end of a connected local socket runs as the current user.
bool peerIsThisUser(qintptr socket);

} // namespace Platform
