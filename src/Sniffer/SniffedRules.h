#pragma once

#include <QString>
#include <QStringList>

// The rules of the sniffed media list and of the downloader's update notice,
// kept free of widgets so the slots only wire them to the window.
namespace SniffedRules {

// Media smaller than this is never listed.
constexpr qint64 sizeFloor = 100000;
// Rows the list keeps, and room in the array (one more entry fits for a
// moment before the oldest goes).
constexpr int keptEntries = 25;
constexpr int capacity = 30;

// The video site's main domain: entries whose address holds it are pages of
// the site, not media, and cannot be previewed.
extern const char *const videoSiteHost;
bool isVideoSitePage(const QString &url);

// A reported size in bytes; 0 when the text is not a decimal number.
qint64 sizeBytes(const QString &text);

// "video/x-flv\r\n..." becomes "video/flv": every "x-" goes, and the text
// stops at a line break after its first character.
QString cleanType(const QString &type);

// The row of an entry: "7. 12:00:01" in 22 columns, the type in 14, then
// the size in MB with two decimals ("1.00 MB").
QString sizeText(qint64 bytes);
QString rowText(const QString &first, const QString &second, const QString &third);

// The extension a media type is saved under, from a fixed table
// ("video/mp4" gives "mp4", "audio/mpeg" "mp3"; parameters, case and "x-"
// do not count); empty for any type outside it: a server never chooses it.
QString extensionForType(const QString &type);

// Whether `extension` is one of the table's (or of the save dialogs').
bool isMediaExtension(const QString &extension);

// The address a report is listed under: as reported when it names its
// scheme (http or https, as the browser used it), else "http://" in front
// (older add-ons report addresses without their scheme).
QString listedAddress(const QString &reported);

// The address handed to the downloader: trimmed, a leading "http://"
// removed (the launcher puts it back); "https://" and anything inside the
// address stay.
QString transferAddress(const QString &url);

// ffplay's arguments for a preview: for an https address the server's
// certificate is checked (against the system's authorities, or the file
// OpenSSL's SSL_CERT_FILE names), so it is played from its own server only.
QStringList previewArguments(const QString &url, const QString &trustFile);

// The downloader's version from what its update printed: digits, dots and
// "+" only, no "...", a final dot cut with the character before it, and
// "last" when fewer than 6 characters remain.
QString versionFromUpdateOutput(const QString &output);

// "Vidorra 2 2015.11.13 is up-to-date", or "Vidorra 2 is up-to-date" for "last".
QString upToDateText(const QString &version);

// The launcher's line telling that the system keeps the tool ("... update it
// with the package manager"), which is no news of an update; else empty.
QString systemToolNotice(const QString &output);

// The warning of an update that could not be made: the launcher's reason,
// and what the user keeps ("last" when the version is unknown, `output`
// being what the update printed, empty when no tool works at all).
QString updateFailedText(const QString &reason, const QString &version, const QString &output);

} // namespace SniffedRules
