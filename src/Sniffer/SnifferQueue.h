#pragma once

#include <QMutex>
#include <QQueue>

#include <string>

// One media address reported from outside, as it was reported: the address
// with its scheme, the page it came from, its size in bytes as decimal text
// and its media type.
struct UrlData
{
    std::string url;
    std::string source;
    std::string size;
    std::string type;
};

// The reports waiting for the window, first in first out. Reports may come
// from any thread; the window takes them one at a time on its own.
struct UrlQueue
{
    QMutex lock;
    QQueue<UrlData> records;
    int dropped = 0;
};
extern UrlQueue g_urlData;

// Beyond this many waiting reports, new ones are dropped (and logged).
constexpr int urlQueueLimit = 5000;

// Entry point for whatever notices media: queues the report and does
// nothing else (no widget is touched, so any thread may call it). The
// address keeps the scheme it comes with; "http://" is put in front of one
// that has none.
void VideoSnifferCallback(std::string address, std::string source, std::string size, std::string type);

// Takes the oldest waiting report; false when there is none.
bool takeUrlData(UrlData *record);
