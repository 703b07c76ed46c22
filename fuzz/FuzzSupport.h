#pragma once

// What every fuzz target shares: a check that stops the run (libFuzzer keeps
// the input), Qt's messages kept quiet, and the input read as text.

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

// A broken invariant is a finding like a crash: the input is saved.
#define FUZZ_CHECK(condition)                                                                                    \
    do {                                                                                                         \
        if (!(condition)) {                                                                                      \
            std::fprintf(stderr, "%s:%d: invariant broken: %s\n", __FILE__, __LINE__, #condition);               \
            std::abort();                                                                                        \
        }                                                                                                        \
    } while (false)

namespace FuzzSupport {

// Qt's warnings (QString::arg and the like) would only slow the run down;
// a qFatal still ends it.
inline void quietQt()
{
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &message) {
        if (type == QtFatalMsg) {
            std::fprintf(stderr, "qFatal: %s\n", qPrintable(message));
            std::abort();
        }
    });
}

inline QByteArray bytes(const uint8_t *data, size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), int(size));
}

inline QString utf8(const std::string &text)
{
    return QString::fromUtf8(text.data(), int(text.size()));
}

inline QString latin1(const std::string &text)
{
    return QString::fromLatin1(text.data(), int(text.size()));
}

// Only the characters in `allowed` (and none of any other).
inline bool onlyOf(const QString &text, const QString &allowed)
{
    for (QChar c : text)
        if (!allowed.contains(c))
            return false;
    return true;
}

} // namespace FuzzSupport
