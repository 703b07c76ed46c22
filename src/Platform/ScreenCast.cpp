#include "Platform/ScreenCast.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>
#include <QDebug>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {
const QString service = QStringLiteral("org.freedesktop.portal.Desktop");
const QString objectPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString screenCast = QStringLiteral("org.freedesktop.portal.ScreenCast");

// The portal's source types and cursor modes.
constexpr uint monitorSource = 1;
constexpr uint cursorEmbedded = 2;
// Permissions kept until the user revokes them.
constexpr uint persistUntilRevoked = 2;

QVariant portalProperty(const QString &name)
{
    QDBusInterface properties(service, objectPath, QStringLiteral("org.freedesktop.DBus.Properties"),
                              QDBusConnection::sessionBus());
    const QDBusReply<QDBusVariant> reply = properties.call(QStringLiteral("Get"), screenCast, name);
    return reply.isValid() ? reply.value().variant() : QVariant();
}
} // namespace

namespace Platform {

int ScreenCast::tokens = 0;

ScreenCast::ScreenCast(QObject *parent)
    : QObject(parent)
{
}

ScreenCast::~ScreenCast()
{
    close();
}

bool ScreenCast::available()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    // The portal is started by the bus on demand: asking for its version
    // starts it, and tells whether it shares screens.
    return portalProperty(QStringLiteral("version")).toUInt() > 0;
}

void ScreenCast::open(const QString &restoreToken)
{
    closed = false;
    const uint version = portalProperty(QStringLiteral("version")).toUInt();
    if (version == 0) {
        fail(QStringLiteral("The desktop offers no screen sharing (no ScreenCast portal on the session bus)."));
        return;
    }
    const uint cursorModes = portalProperty(QStringLiteral("AvailableCursorModes")).toUInt();
    // Every session and request of the program's run gets a name of its own:
    // the desktop may keep a closed one's object for a while.
    QVariantMap sessionOptions{{QStringLiteral("session_handle_token"), QStringLiteral("vidorra2_s%1").arg(++tokens)}};
    request(QStringLiteral("CreateSession"), {}, sessionOptions, [this, version, cursorModes,
                                                                  restoreToken](const QVariantMap &results) {
        sessionHandle = results.value(QStringLiteral("session_handle")).toString();
        QVariantMap sources{{QStringLiteral("types"), monitorSource}, {QStringLiteral("multiple"), false}};
        if (cursorModes & cursorEmbedded)
            sources.insert(QStringLiteral("cursor_mode"), cursorEmbedded);
        if (version >= 4) {
            sources.insert(QStringLiteral("persist_mode"), persistUntilRevoked);
            if (!restoreToken.isEmpty())
                sources.insert(QStringLiteral("restore_token"), restoreToken);
        }
        request(QStringLiteral("SelectSources"), {QVariant::fromValue(QDBusObjectPath(sessionHandle))}, sources,
                [this](const QVariantMap &) {
                    request(QStringLiteral("Start"),
                            {QVariant::fromValue(QDBusObjectPath(sessionHandle)), QString()}, {},
                            [this](const QVariantMap &started) {
                                // a(ua{sv}): each stream's node and its properties.
                                quint32 node = 0;
                                QSize size;
                                const QDBusArgument streams =
                                    started.value(QStringLiteral("streams")).value<QDBusArgument>();
                                streams.beginArray();
                                while (!streams.atEnd()) {
                                    quint32 id = 0;
                                    QVariantMap properties;
                                    streams.beginStructure();
                                    streams >> id >> properties;
                                    streams.endStructure();
                                    if (node == 0) {
                                        node = id;
                                        const QDBusArgument pair =
                                            properties.value(QStringLiteral("size")).value<QDBusArgument>();
                                        int width = 0, height = 0;
                                        pair.beginStructure();
                                        pair >> width >> height;
                                        pair.endStructure();
                                        size = QSize(width, height);
                                    }
                                }
                                streams.endArray();
                                if (node == 0) {
                                    fail(QStringLiteral("The desktop shared no screen."));
                                    return;
                                }
                                QDBusInterface portal(service, objectPath, screenCast, QDBusConnection::sessionBus());
                                const QDBusReply<QDBusUnixFileDescriptor> remote =
                                    portal.call(QStringLiteral("OpenPipeWireRemote"),
                                                QVariant::fromValue(QDBusObjectPath(sessionHandle)), QVariantMap());
                                if (!remote.isValid() || !remote.value().isValid()) {
                                    fail(QStringLiteral("The desktop did not open the screen's stream: ") +
                                         remote.error().message());
                                    return;
                                }
                                // Closed on exec until the grabbing child is
                                // started: no other child gets the stream.
                                const int descriptor = ::fcntl(remote.value().fileDescriptor(), F_DUPFD_CLOEXEC, 0);
                                if (descriptor < 0) {
                                    fail(QStringLiteral("The screen's stream could not be kept open: ") +
                                         QString::fromLocal8Bit(std::strerror(errno)));
                                    return;
                                }
                                emit ready(descriptor, node, size,
                                           started.value(QStringLiteral("restore_token")).toString());
                            });
                });
    });
}

void ScreenCast::close()
{
    pending = nullptr;
    if (!requestPath.isEmpty())
        QDBusConnection::sessionBus().disconnect(service, requestPath, QStringLiteral("org.freedesktop.portal.Request"),
                                                 QStringLiteral("Response"), this,
                                                 SLOT(onResponse(uint, QVariantMap)));
    requestPath.clear();
    if (!sessionHandle.isEmpty()) {
        QDBusInterface session(service, sessionHandle, QStringLiteral("org.freedesktop.portal.Session"),
                               QDBusConnection::sessionBus());
        session.asyncCall(QStringLiteral("Close"));
    }
    sessionHandle.clear();
    closed = true;
}

void ScreenCast::request(const QString &method, QList<QVariant> arguments, QVariantMap options, Answer answer)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    // The request's object is named after the caller and the token: its
    // answer is listened for before the call, so it cannot be missed.
    const QString token = QStringLiteral("vidorra2_%1").arg(++tokens);
    QString sender = bus.baseService().mid(1);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    if (!requestPath.isEmpty())
        bus.disconnect(service, requestPath, QStringLiteral("org.freedesktop.portal.Request"),
                       QStringLiteral("Response"), this, SLOT(onResponse(uint, QVariantMap)));
    requestPath = objectPath + QStringLiteral("/request/") + sender + QLatin1Char('/') + token;
    bus.connect(service, requestPath, QStringLiteral("org.freedesktop.portal.Request"), QStringLiteral("Response"),
                this, SLOT(onResponse(uint, QVariantMap)));
    pending = std::move(answer);
    options.insert(QStringLiteral("handle_token"), token);
    arguments << options;

    QDBusMessage call = QDBusMessage::createMethodCall(service, objectPath, screenCast, method);
    call.setArguments(arguments);
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, method, watcher] {
        watcher->deleteLater();
        const QDBusPendingReply<QDBusObjectPath> reply = *watcher;
        if (reply.isError())
            fail(QStringLiteral("The desktop refused to share the screen (%1: %2).")
                     .arg(method, reply.error().message()));
    });
}

void ScreenCast::onResponse(uint response, const QVariantMap &results)
{
    if (!pending)
        return;
    Answer answer = std::move(pending);
    pending = nullptr;
    if (response == 0) {
        answer(results);
        return;
    }
    fail(response == 1 ? QStringLiteral("Sharing the screen was cancelled.")
                       : QStringLiteral("The desktop did not share the screen."));
}

void ScreenCast::fail(const QString &message)
{
    qWarning() << "src/Platform/ScreenCast.cpp" << __LINE__ << "ScreenCast"
               << ":" << message;
    const bool wasOpen = !closed;
    close();
    if (wasOpen)
        emit failed(message);
}

} // namespace Platform
