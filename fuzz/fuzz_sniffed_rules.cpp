// What a sniffed report brings into the media list (Append: the size and
// type texts, the address) and what the downloader's update printed (the
// version in the "up-to-date" notice). The input holds the address, size
// and type of a report, each ended by a lone backslash, then the update's
// output; all UTF-8.

#include "FuzzSupport.h"

#include "Sniffer/SniffedRules.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <QRegularExpression>

using namespace SniffedRules;

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    FuzzSupport::quietQt();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider provider(data, size);
    const QString url = FuzzSupport::utf8(provider.ConsumeRandomLengthString());
    const QString sizeField = FuzzSupport::utf8(provider.ConsumeRandomLengthString());
    const QString type = FuzzSupport::utf8(provider.ConsumeRandomLengthString());
    const QString update = FuzzSupport::utf8(provider.ConsumeRemainingBytesAsString());

    // Append: the size decides whether the entry is listed.
    const qint64 bytes = sizeBytes(sizeField);
    bool ok = false;
    const qint64 parsed = sizeField.toLongLong(&ok, 10);
    FUZZ_CHECK(bytes == (ok ? parsed : 0));
    const QString clean = cleanType(type);
    FUZZ_CHECK(clean.size() <= type.size());
    FUZZ_CHECK(clean.indexOf(QLatin1String("\r\n")) <= 0);
    isVideoSitePage(url);
    if (bytes >= sizeFloor) {
        static const QRegularExpression megabytes(QStringLiteral("^[0-9]+\\.[0-9]{2} MB$"));
        const QString shown = sizeText(bytes);
        FUZZ_CHECK(megabytes.match(shown).hasMatch());
        const QString first = QStringLiteral("25. 12:00:01");
        const QString row = rowText(first, clean, shown);
        FUZZ_CHECK(row.startsWith(first.leftJustified(22, QLatin1Char(' '))));
        FUZZ_CHECK(row.endsWith(shown));
        FUZZ_CHECK(row.size() >= 22 + 14 + shown.size());
    }

    // Saving the entry: the extension of its type from the table or none,
    // never one the text made up; the address handed over.
    for (const QString &t : {type, clean}) {
        const QString extension = extensionForType(t);
        FUZZ_CHECK(extension.isEmpty() || isMediaExtension(extension));
    }
    const QString address = transferAddress(url);
    FUZZ_CHECK(address.size() <= url.size());
    const bool plainHttp = url.trimmed().startsWith(QLatin1String("http://"), Qt::CaseInsensitive);
    FUZZ_CHECK(address == (plainHttp ? url.trimmed().mid(7) : url.trimmed())); // nothing but a leading http://
    const QString listed = listedAddress(url);
    FUZZ_CHECK(listed.endsWith(url) && (listed == url || listed == QStringLiteral("http://") + url));

    // The update check.
    const QString version = versionFromUpdateOutput(update);
    if (version != QLatin1String("last")) {
        FUZZ_CHECK(version.size() >= 6);
        FUZZ_CHECK(FuzzSupport::onlyOf(version, QStringLiteral("0123456789.+")));
        FUZZ_CHECK(!version.contains(QLatin1String("...")));
    }
    const QString notice = upToDateText(version);
    FUZZ_CHECK(notice.startsWith(QLatin1String("Vidorra 2 ")) && notice.endsWith(QLatin1String("is up-to-date")));
    FUZZ_CHECK(version == QLatin1String("last") ? notice == QLatin1String("Vidorra 2 is up-to-date")
                                                : notice.contains(version));
    return 0;
}
