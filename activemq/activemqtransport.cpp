// SPDX-License-Identifier: Apache-2.0
#include "activemqtransport.h"

#include "nuvmqmessage.h"
#include "nuvmutex.h"
#include "stompconnection.h"

#include <QDateTime>
#include <QSslCertificate>
#include <QSslSocket>
#include <QThread>
#include <QUuid>

using stomp::ConnectionState;
using stomp::Frame;

namespace {

// Long enough for a broker under load, short enough that closing never
// feels stuck when the broker is gone.
const int disconnectReceiptMs = 3000;

} // namespace

QString ActiveMqTransport::commandName(nuvMQMessage *message)
{
    return message->command.isEmpty() ? QStringLiteral("(no command)") : message->command;
}

ActiveMqTransport::ActiveMqTransport() = default;

ActiveMqTransport::~ActiveMqTransport()
{
    if (!ioThread)
        return;
    if (onIoThread()) {
        // Deleted from a slot run by our own I/O thread (connected directly
        // to connectionLost): that thread cannot wait for itself, so it is
        // left to end on its own.
        qCWarning(lcStomp) << "transport deleted on its own I/O thread; the thread is detached";
        connect(ioThread, &QThread::finished, ioThread, &QObject::deleteLater);
        ioThread->quit();
        return;
    }
    {
        nuv::MutexLocker life(&lifecycle);
        closeSession(QStringLiteral("The message-queue transport was deleted."));
    }
    ioThread->quit();
    ioThread->wait();
    delete ioThread;
}

nuvMQClientInterface *ActiveMqTransport::createInstance()
{
    return new ActiveMqTransport;
}

bool ActiveMqTransport::fail(const QString &text)
{
    nuv::MutexLocker locker(&errorLock);
    lastErrorText = text;
    return false;
}

ActiveMqTransport::Current ActiveMqTransport::current() const
{
    nuv::MutexLocker locker(&stateLock);
    return Current { session, settings, userName };
}

bool ActiveMqTransport::onIoThread() const
{
    return ioThread && QThread::currentThread() == ioThread;
}

void ActiveMqTransport::ensureIoThread()
{
    if (ioThread)
        return;
    ioThread = new QThread;
    ioThread->setObjectName(QStringLiteral("nuv-stomp-io"));
    connection = new stomp::Connection([this](const QString &) {
        // On the I/O thread; the classify client's automatic connection
        // queues it to the client's own thread.
        emit connectionLost();
    });
    connection->moveToThread(ioThread);
    connect(ioThread, &QThread::finished, connection, &QObject::deleteLater);
    ioThread->start();
}

void ActiveMqTransport::post(std::function<void()> work)
{
    connection->post(std::move(work));
}

QByteArray ActiveMqTransport::nextId(const char *prefix)
{
    return QByteArray(prefix) + '-' + QByteArray::number(++sequence);
}

bool ActiveMqTransport::connectToBroker(const QString &host, const qint64 &port)
{
    nuv::MutexLocker life(&lifecycle);
    if (onIoThread())
        return fail(QStringLiteral("connectToBroker cannot be called from the transport's own "
                                   "I/O thread."));
    stomp::BrokerSettings options;
    stomp::BrokerAddress address;
    QString error;
    if (!stomp::loadSettings(stomp::stompEnvironment(), stomp::defaultConfigFile(), &options,
                             &error)
        || !stomp::parseAddress(host, port, options.tls, &address, &error))
        return fail(error);
    if (address.tls && !QSslSocket::supportsSsl())
        return fail(QStringLiteral("Cannot connect to the message broker at %1: TLS is not "
                                   "available (the OpenSSL library could not be loaded).")
                        .arg(address.label()));
    if (address.tls && !options.caFile.isEmpty()
        && QSslCertificate::fromPath(options.caFile).isEmpty())
        return fail(QStringLiteral("Cannot connect to the message broker at %1: the CA file %2 "
                                   "holds no PEM certificate.")
                        .arg(address.label(), options.caFile));

    closeSession(QStringLiteral("The connection to the message broker was replaced by a new "
                                "one."));
    ensureIoThread();
    auto next = std::make_shared<ConnectionState>(address, stomp::newSessionToken());
    QByteArray id;
    {
        nuv::MutexLocker locker(&stateLock);
        if (session)
            droppedEarlier += session->droppedReplies();
        session = next;
        settings = options;
        topics.clear();
        id = clientId;
    }
    stomp::Connection *io = connection;
    post([io, next, options, id] { io->open(next, options, id); });

    const ConnectionState::Phase phase
        = next->awaitSettled(QDeadlineTimer(options.connectTimeoutMs));
    if (phase == ConnectionState::Phase::Open)
        return true;
    if (phase == ConnectionState::Phase::Connecting) {
        const QString text
            = QStringLiteral("Cannot connect to the message broker at %1: no "
                             "answer within %2 ms (connection and STOMP "
                             "handshake%3).")
                  .arg(address.label())
                  .arg(options.connectTimeoutMs)
                  .arg(address.tls ? QStringLiteral("; is this its STOMP+SSL port?") : QString());
        post([io, next, text] { io->finish(next, text); });
        next->closed(text);
        return fail(text);
    }
    return fail(next->closeReason());
}

void ActiveMqTransport::closeSession(const QString &reason)
{
    std::shared_ptr<ConnectionState> ending;
    {
        nuv::MutexLocker locker(&stateLock);
        ending = session;
    }
    if (!ending || ending->phase() == ConnectionState::Phase::Closed || !connection)
        return;
    const QByteArray receiptId = nextId("disconnect");
    QString ignored;
    if (ending->phase() == ConnectionState::Phase::Open
        && ending->beginReceipt(receiptId, &ignored)) {
        Frame disconnect("DISCONNECT");
        disconnect.add("receipt", receiptId);
        const QByteArray bytes = stomp::encodeFrame(disconnect);
        stomp::Connection *io = connection;
        post([io, ending, bytes] { io->beginClose(ending, bytes); });
        // Without the receipt the broker may not have seen our last frames;
        // with a dead broker there is nothing left to save, so wait briefly.
        ending->awaitReceipt(receiptId, QDeadlineTimer(disconnectReceiptMs), &ignored);
    }
    // Closed here as well, so that isConnected() is false on return.
    ending->closed(reason);
    stomp::Connection *io = connection;
    post([io, ending, reason] { io->finish(ending, reason); });
}

void ActiveMqTransport::disconnectFromBroker()
{
    nuv::MutexLocker life(&lifecycle);
    if (onIoThread()) {
        // The receipt could never arrive on a thread that waits for it.
        std::shared_ptr<ConnectionState> ending = current().session;
        if (ending)
            connection->finish(ending,
                               QStringLiteral("The connection to the message broker was "
                                              "closed by this application."));
        return;
    }
    closeSession(QStringLiteral("The connection to the message broker was closed by this "
                                "application."));
}

void ActiveMqTransport::addMessageHeaders(Frame &frame, nuvMQMessage *message, int kind,
                                          const Current &now)
{
    frame.add("amq-msg-type", "text")
        .add("nuv-kind", QByteArray::number(kind))
        .add("nuv-message-type", message->getType().toUtf8())
        .add("nuv-user", now.userName.toUtf8())
        .add("nuv-session-token", now.session->token);
}

bool ActiveMqTransport::decodeInto(const Frame &frame, nuvMQMessage *message, const QString &what)
{
    const QByteArray type = frame.header("nuv-message-type");
    if (!type.isEmpty() && type != message->getType().toUtf8())
        return fail(QStringLiteral("%1 is a \"%2\" message, where a \"%3\" message was expected.")
                        .arg(what, QString::fromUtf8(type), message->getType()));
    if (!message->convertFromBase64(QString::fromUtf8(frame.body)))
        return fail(QStringLiteral("%1 could not be decoded.").arg(what));
    return true;
}

bool ActiveMqTransport::sendSyncMessage(nuvMQMessage *request, nuvMQMessage *reply, int kind,
                                        qint64 timeoutSeconds, int priority, QString destination,
                                        void *context)
{
    // The context pointer means nothing on the wire; it stays with the caller.
    Q_UNUSED(context)
    if (!request || !reply)
        return fail(QStringLiteral("sendSyncMessage needs both a request and a reply message."));
    const QString command = commandName(request);
    if (timeoutSeconds < 1)
        return fail(QStringLiteral("Cannot send \"%1\": the time-out must be at least one second, "
                                   "not %2.")
                        .arg(command)
                        .arg(timeoutSeconds));
    if (priority < 0 || priority > 9)
        return fail(QStringLiteral("Cannot send \"%1\": priority %2 is outside 0 to 9.")
                        .arg(command)
                        .arg(priority));
    if (onIoThread())
        return fail(
            QStringLiteral("Cannot send \"%1\" from the transport's own I/O thread.").arg(command));
    const Current now = current();
    if (!now.session)
        return fail(QStringLiteral("Cannot send \"%1\": not connected to a message broker (call "
                                   "connectToBroker first).")
                        .arg(command));

    QString text;
    if (!request->convertToBase64(text))
        return fail(
            QStringLiteral("Cannot send \"%1\": the message could not be encoded.").arg(command));
    const QString target
        = destination.isEmpty() ? now.settings.requestQueue : stomp::destinationFor(destination);
    const QByteArray correlationId = QUuid::createUuid().toByteArray(QUuid::WithoutBraces);
    const QByteArray receiptId = "request-" + correlationId;
    const qint64 expires = QDateTime::currentMSecsSinceEpoch() + timeoutSeconds * 1000;

    Frame frame("SEND");
    frame.add("destination", target.toUtf8())
        .add("reply-to", stomp::replyDestination)
        .add("correlation-id", correlationId)
        .add("expires", QByteArray::number(expires));
    if (priority > 0)
        frame.add("priority", QByteArray::number(priority));
    addMessageHeaders(frame, request, kind, now);
    frame.add("receipt", receiptId);
    frame.body = text.toUtf8();
    text.clear();
    const QByteArray head = stomp::encodeHead(frame);

    QString why;
    if (!now.session->beginCall(correlationId, receiptId, &why))
        return fail(QStringLiteral("Cannot send \"%1\": %2").arg(command, why));
    const QDeadlineTimer deadline(timeoutSeconds * 1000);
    connection->submit(now.session, head, frame.body);
    // Written or queued: holding the body through the wait would only keep
    // a large request in memory.
    frame.body.clear();

    Frame answer;
    switch (now.session->awaitCall(correlationId, deadline, &answer, &why)) {
    case ConnectionState::Outcome::Done:
        break;
    case ConnectionState::Outcome::Failed:
        return fail(QStringLiteral("No reply to \"%1\": %2").arg(command, why));
    case ConnectionState::Outcome::TimedOut:
        return fail(QStringLiteral("No reply to \"%1\" within %2 s (time-out): nothing answered "
                                   "on %3 at the message broker %4; is the server running?")
                        .arg(command)
                        .arg(timeoutSeconds)
                        .arg(target, now.session->address.label()));
    }
    return decodeInto(answer, reply, QStringLiteral("The reply to \"%1\"").arg(command));
}

void ActiveMqTransport::setUserName(const QString &name)
{
    nuv::MutexLocker locker(&stateLock);
    userName = name;
}

void ActiveMqTransport::setClientId(const QString &id)
{
    if (id.contains(QLatin1Char('\n')) || id.contains(QLatin1Char('\r'))) {
        fail(QStringLiteral("Client id \"%1\" ignored: it contains a line break.").arg(id));
        return;
    }
    nuv::MutexLocker locker(&stateLock);
    clientId = id.toUtf8();
}

bool ActiveMqTransport::isConnected()
{
    const std::shared_ptr<ConnectionState> now = current().session;
    return now && now->phase() == ConnectionState::Phase::Open;
}

QString ActiveMqTransport::getAuthToken()
{
    const std::shared_ptr<ConnectionState> now = current().session;
    if (!now || now->phase() != ConnectionState::Phase::Open)
        return QString();
    return QString::fromLatin1(now->token);
}

qint64 ActiveMqTransport::droppedReplies() const
{
    nuv::MutexLocker locker(&stateLock);
    return droppedEarlier + (session ? session->droppedReplies() : 0);
}
