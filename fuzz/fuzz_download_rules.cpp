// What the user types and picks in the download workflow: the address
// typed on the address page (cut at "http", checked against the site's
// hosts or the other-sites table, rebuilt into the canonical form), the
// save name chosen in the file dialog and the file name typed on the
// Options page. The input is the typed text (UTF-8); its last byte picks
// the table, the kind and the save filter.

#include "FuzzSupport.h"

#include "Sniffer/DownloadRules.h"
#include "Sniffer/SniffedRules.h"

#include <fuzzer/FuzzedDataProvider.h>

using namespace DownloadRules;

namespace {

// The other-sites table as the stock settings file has it.
QHash<int, QString> otherSites()
{
    const char *const hosts[] = {"vimeo.com", "dailymotion.com", "soundcloud.com", "twitch.tv", "bandcamp.com",
                                 "archive.org", "ted.com", "bbc.co.uk", "arte.tv", "youtube.com"};
    QHash<int, QString> table;
    int key = 1;
    for (const char *host : hosts)
        table.insert(key++, QString::fromLatin1(host));
    return table;
}

const QString titleCharacters =
    QStringLiteral(" 0123456789()abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ");
const QString saveNameCharacters = titleCharacters + QLatin1Char('.');

void checkAddress(const QString &typed, bool siteTable)
{
    static const QHash<int, QString> fragments = otherSites();
    const int mode = siteTable ? 2 : 1;
    const QString table = siteTable ? QStringLiteral("yt_urls") : QStringLiteral("os_urls");
    const Address address = normaliseAddress(typed, table, mode, fragments);

    FUZZ_CHECK(address.text == cutAtHttp(typed));
    FUZZ_CHECK(address.error == 0 || address.error == 1 || address.error == mode || address.error == 3);
    if (address.error != 0)
        return;
    FUZZ_CHECK(address.url.isValid());
    FUZZ_CHECK(!address.url.isEmpty());
    if (siteTable) {
        // Whatever was typed, the engine gets the site's canonical address.
        FUZZ_CHECK(address.url.scheme() == QLatin1String("https"));
        FUZZ_CHECK(address.url.host() == QLatin1String(siteHost));
        FUZZ_CHECK(address.url.path() == QLatin1String("/watch"));
        if (!address.rebuilt)
            FUZZ_CHECK(address.text.startsWith(canonicalAddress(QString())));
    } else {
        FUZZ_CHECK(!address.rebuilt);
        bool known = false;
        for (const QString &fragment : fragments)
            known = known || address.url.host(QUrl::FullyDecoded).contains(fragment, Qt::CaseInsensitive);
        FUZZ_CHECK(known);
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    FuzzSupport::quietQt();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider provider(data, size);
    const uint8_t choice = provider.ConsumeIntegral<uint8_t>();
    const QString typed = FuzzSupport::utf8(provider.ConsumeRemainingBytesAsString());

    // The address page.
    const QString cut = cutAtHttp(typed);
    FUZZ_CHECK(typed.trimmed().endsWith(cut));
    const int http = typed.trimmed().indexOf(QLatin1String("http"));
    FUZZ_CHECK(http < 0 ? cut == typed.trimmed() : cut.startsWith(QLatin1String("http")));
    checkAddress(typed, choice & 1);

    // The save dialog: the filters of a kind, the name the user chose.
    const int kind = (choice & 2) ? KindAudio : KindVideo;
    const bool fromRecorder = choice & 4;
    const QStringList filters = saveFilters(kind, fromRecorder);
    FUZZ_CHECK(!filters.isEmpty());
    const QString filter = filters.at((choice >> 3) % filters.size());
    const QString extension = extensionFromFilter(filter);
    FUZZ_CHECK(!extension.isEmpty() && FuzzSupport::onlyOf(extension, saveNameCharacters));
    FUZZ_CHECK(filterPattern(filter) == QLatin1Char('.') + extension);

    const QString saveAs = cleanSaveAsPath(typed, extension);
    FUZZ_CHECK(saveAs.endsWith(QLatin1Char('.') + extension));
    QString fileName = saveAs.mid(saveAs.lastIndexOf(QLatin1Char('/')) + 1);
    fileName.chop(extension.size() + 1);
    FUZZ_CHECK(FuzzSupport::onlyOf(fileName, saveNameCharacters));
    FUZZ_CHECK(!fileName.contains(QLatin1String("  ")));

    // No extension wanted: the typed one only when it is a media extension.
    const QString neutral = cleanSaveAsPath(typed, QString());
    const QString kept = neutral.mid(neutral.lastIndexOf(QLatin1Char('.')) + 1);
    FUZZ_CHECK(kept == QLatin1String("media") || SniffedRules::isMediaExtension(kept));

    const QString withPattern = withFilterPattern(saveAs, filter);
    FUZZ_CHECK(withPattern.endsWith(filterPattern(filter)));
    FUZZ_CHECK(withPattern == saveAs); // the clean name has the extension already
    FUZZ_CHECK(withFilterPattern(typed, filter).endsWith(filterPattern(filter)));
    FUZZ_CHECK(withFilterPattern(typed, QStringLiteral("mp3")) == typed); // the bare-word filter

    const QString fixed = fixExtension(typed, extension);
    FUZZ_CHECK(fixed.endsWith(QLatin1Char('.') + extension.left(3).toLower()));
    FUZZ_CHECK(fixed.startsWith(typed));

    // Filters and extensions read from any text.
    extensionFromFilter(typed);
    const QString pattern = filterPattern(typed);
    FUZZ_CHECK(pattern.size() <= typed.size());
    FUZZ_CHECK(withFilterPattern(typed, typed).size() >= typed.size());

    // The file name typed on the Options page.
    const QString base = outputBaseName(typed);
    if (typed.isEmpty()) {
        FUZZ_CHECK(base == QLatin1String("default"));
    } else {
        FUZZ_CHECK(base.size() <= 30);
        FUZZ_CHECK(FuzzSupport::onlyOf(base, titleCharacters));
    }

    // A format row and its badge.
    Downloader::videoFormat format;
    format.resolution = typed;
    format.description = cut;
    format.best = choice & 128;
    const QString row = formatRowText(format);
    FUZZ_CHECK(row.startsWith(typed + QLatin1Char('\t')));
    FUZZ_CHECK(formatIcon(typed).startsWith(QLatin1String(":/sign")));
    const QHash<int, QString> rows{{int(choice) + 1, row}};
    FUZZ_CHECK(formatCodeForRow(rows, row) == int(choice) + 1);
    FUZZ_CHECK(formatCodeForRow(rows, row + QLatin1Char('x')) == 0);
    return 0;
}
