#pragma once

#include <QObject>
#include <QSize>
#include <QString>
#include <QVariantMap>

#include <functional>

namespace Platform {

// One screen shared by the desktop through its ScreenCast portal (Wayland
// sessions): the desktop asks the user which monitor to share, or takes the
// choice of an earlier recording from its restore token, and hands over a
// PipeWire stream of it. The session ends with the object.
class ScreenCast : public QObject
{
    Q_OBJECT

public:
    explicit ScreenCast(QObject *parent = nullptr);
    ~ScreenCast() override;

    // Whether the session bus has a desktop portal that can share the screen.
    static bool available();

    // Asks for the stream; `ready` or `failed` answers.
    void open(const QString &restoreToken);
    // Ends the portal's session (the stream stops).
    void close();

signals:
    // `descriptor` is the PipeWire connection, open across exec (the
    // receiver closes it once a child has it), `node` the stream's node,
    // `size` the monitor's size in the stream, `restoreToken` what brings the
    // same choice back next time (empty when the desktop gives none).
    void ready(int descriptor, quint32 node, QSize size, QString restoreToken);
    void failed(QString message);

private:
    using Answer = std::function<void(const QVariantMap &)>;
    // Calls a portal method whose answer comes as a request's Response.
    void request(const QString &method, QList<QVariant> arguments, QVariantMap options, Answer answer);
    void fail(const QString &message);

private slots:
    void onResponse(uint response, const QVariantMap &results);

private:
    QString sessionHandle;
    QString requestPath;
    Answer pending;
    static int tokens; // names of sessions and requests, unique in the run
    bool closed = false;
};

} // namespace Platform
