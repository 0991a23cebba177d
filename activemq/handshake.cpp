// SPDX-License-Identifier: Apache-2.0
#include "handshake.h"

namespace stomp {

Frame connectFrame(const QString &host, const BrokerSettings &settings, const QByteArray &clientId)
{
    Frame frame("CONNECT");
    frame.add("accept-version", "1.2");
    frame.add("host", host.toUtf8());
    const QByteArray beat = QByteArray::number(qMax(0, settings.heartBeatMs));
    frame.add("heart-beat", beat + ',' + beat);
    if (!settings.login.isEmpty())
        frame.add("login", settings.login.toUtf8());
    if (!settings.passcode.isEmpty())
        frame.add("passcode", settings.passcode.toUtf8());
    if (!clientId.isEmpty())
        frame.add("client-id", clientId);
    return frame;
}

QString connectedProblem(const Frame &connected)
{
    if (connected.command != "CONNECTED")
        return QStringLiteral("unexpected %1 frame during the STOMP handshake")
            .arg(QString::fromLatin1(connected.command));
    const QByteArray version = connected.header("version", "1.0");
    if (version != "1.2")
        return QStringLiteral("it speaks STOMP %1, this transport needs 1.2")
            .arg(QString::fromUtf8(version));
    return QString();
}

HeartBeats negotiateHeartBeats(int oursMs, const QByteArray &brokerHeader)
{
    const QList<QByteArray> parts = brokerHeader.split(',');
    const int brokerSends = parts.size() == 2 ? parts.at(0).trimmed().toInt() : 0;
    const int brokerWants = parts.size() == 2 ? parts.at(1).trimmed().toInt() : 0;
    HeartBeats beats;
    if (oursMs > 0 && brokerWants > 0)
        beats.sendEveryMs = qMax(oursMs, brokerWants);
    if (oursMs > 0 && brokerSends > 0)
        beats.expectEveryMs = qMax(oursMs, brokerSends);
    return beats;
}

QString brokerMessage(const Frame &error)
{
    QString text = QString::fromUtf8(error.header("message")).trimmed();
    if (text.isEmpty())
        text = QString::fromUtf8(error.body).trimmed();
    if (text.isEmpty())
        text = QStringLiteral("no reason given");
    if (text.size() > 300)
        text = text.left(300) + QStringLiteral("...");
    return text;
}

QString connectRefusal(const QString &label, const BrokerSettings &settings, const Frame &error,
                       const QString &noLoginHint)
{
    const QString message = brokerMessage(error);
    if (settings.login.isEmpty()) {
        return QStringLiteral("The message broker at %1 refused the connection: %2%3 No broker "
                              "login is configured: %4")
            .arg(label, message,
                 message.endsWith(QLatin1Char('.')) ? QString() : QStringLiteral("."), noLoginHint);
    }
    return QStringLiteral("The message broker at %1 refused the connection for broker user "
                          "\"%2\": %3")
        .arg(label, settings.login, message);
}

} // namespace stomp
