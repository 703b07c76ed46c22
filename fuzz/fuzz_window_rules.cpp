// The settings file's message rows ("title~text") and what the window
// builds from them: the title number and text of a box, the technical
// block of an error box, its body. Besides, the window's small figures
// (format rows shown, the progress bar's creep, the converting dots) with
// the ranges the window gives them. The input is the row (UTF-8); its last
// bytes are the figures.

#include "FuzzSupport.h"

#include "Sniffer/WindowRules.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <QRegularExpression>

using namespace WindowRules;

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    FuzzSupport::quietQt();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider provider(data, size);
    const int selector = provider.ConsumeIntegralInRange(0, 2);
    const int rowCount = provider.ConsumeIntegralInRange(0, 500);
    const int screenHeight = provider.ConsumeIntegralInRange(0, 20000);
    const int barValue = provider.ConsumeIntegralInRange(-1, 100); // reset() puts minimum - 1
    const quint32 random = provider.ConsumeIntegral<quint32>();
    const int dotTicks = provider.ConsumeIntegralInRange(0, 64);
    const QString row = FuzzSupport::utf8(provider.ConsumeRemainingBytesAsString());

    // The row as the settings file has it.
    const MessageRow message = splitMessageRow(row);
    const QStringList parts = row.split(QLatin1Char('~'));
    FUZZ_CHECK(message.titleNumber == parts.first().toInt());
    FUZZ_CHECK(message.text == (parts.size() > 1 ? parts.at(1) : QStringLiteral("Indefinite Error")));

    // The box made of it.
    FUZZ_CHECK(!messageTable(selector).isEmpty());
    FUZZ_CHECK(isErrorSelector(selector) == (selector != 0));
    const QStringList details = row.split(QLatin1Char('\n'));
    const QString block = errorDetailsBlock(message.titleNumber, selector, details);
    FUZZ_CHECK(block.startsWith(QStringLiteral("<b>error #") + QString::number(message.titleNumber) +
                                QLatin1Char(':')));
    FUZZ_CHECK(block.count(QLatin1String("<br>")) >= 2);
    QString bare = block; // no markup but the block's own: the details show as text
    bare.remove(QRegularExpression(QStringLiteral("</?(b|br|ul|li)>")));
    FUZZ_CHECK(!bare.contains(QLatin1Char('<')));
    const QString body = messageBody(message.text, block);
    FUZZ_CHECK(body.startsWith(message.text));
    FUZZ_CHECK(body.endsWith(QLatin1String("</i></div>")));
    FUZZ_CHECK(errorDetailsBlock(0, selector, QStringList()).contains(QLatin1String("---")));

    // The Options list fitted to the screen.
    const int shown = formatRowsShown(rowCount, screenHeight);
    FUZZ_CHECK(shown <= rowCount);
    FUZZ_CHECK(shown >= qMin(rowCount, 1));

    // The progress bar (0 to 100) creeps and never stands at its end.
    const int next = progressNext(barValue, 0, 100, random);
    FUZZ_CHECK(next >= 0 && next <= 98);
    FUZZ_CHECK(next == barValue + 1 || next >= 20);

    // The converting dots.
    int dots = 3;
    bool growing = true;
    for (int i = 0; i < dotTicks; ++i) {
        dotsNext(dots, growing);
        FUZZ_CHECK(dots >= 1 && dots <= 11);
    }
    return 0;
}
