#include "Sniffer/SnifferQueue.h"
#include "Sniffer/SniffedRules.h"

#include <QDebug>
#include <QMutexLocker>
#include <QString>

#include <utility>

UrlQueue g_urlData;

void VideoSnifferCallback(std::string address, std::string source, std::string size, std::string type)
{
    const QByteArray url = SniffedRules::listedAddress(QString::fromUtf8(address.c_str())).toLatin1();
    QMutexLocker locker(&g_urlData.lock);
    if (g_urlData.records.size() >= urlQueueLimit) {
        // A flood would only grow memory; the list keeps 25 entries anyway.
        if (g_urlData.dropped++ % 1000 == 0)
            qWarning() << "src/Sniffer/SnifferQueue" << __LINE__ << "VideoSnifferCallback"
                       << ":"
                       << "queue full, report dropped"
                       << ":" << g_urlData.dropped;
        return;
    }
    g_urlData.records.enqueue(UrlData{url.toStdString(), std::move(source), std::move(size), std::move(type)});
}

bool takeUrlData(UrlData *record)
{
    QMutexLocker locker(&g_urlData.lock);
    if (g_urlData.records.isEmpty())
        return false;
    *record = g_urlData.records.dequeue();
    return true;
}
