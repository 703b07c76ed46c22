#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace Feed {

// The native messaging host as the browsers know it, and the add-on that
// may start it: its fixed id in Chromium (from the key in its manifest) and
// in Firefox.
inline const QString hostName = QStringLiteral("org.vidorra2.sniffer");
inline const QString chromiumExtensionId = QStringLiteral("folfnbikeiknngplngcmalnmbfchldkg");
inline const QString firefoxExtensionId = QStringLiteral("sniffer@vidorra2.example");

// The host executable beside the running program.
QString hostExecutable();

// The host manifest for Chromium-based browsers or for Firefox, naming the
// host by its absolute path.
QByteArray hostManifest(const QString &hostPath, bool forFirefox);

// Writes the host manifest for the current user into the folders where
// Chromium, Google Chrome and Firefox look for it, creating them as needed;
// never outside the user's home. Returns the files written; `error` tells
// what failed, if anything did.
QStringList installHostManifests(const QString &hostPath, QString *error);

} // namespace Feed
