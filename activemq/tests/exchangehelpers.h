// SPDX-License-Identifier: Apache-2.0
#ifndef EXCHANGEHELPERS_H
#define EXCHANGEHELPERS_H

#include "nuvmqclassifymessage.h"
#include "nuvmqclientinterface.h"
#include "responder.h"

#include <QElapsedTimer>
#include <QThread>

#include <optional>

// One sendSyncMessage and what came of it.
struct CallResult
{
    bool ok = false;
    QString error;
    nuvMQClassifyMessage reply;
    qint64 elapsedMs = 0;
};

inline CallResult call(nuvMQClientInterface *transport, nuvMQClassifyMessage request,
                       qint64 timeoutSeconds = 20, const QString &destination = QString(),
                       int priority = 0, int kind = 1001)
{
    CallResult result;
    QElapsedTimer clock;
    clock.start();
    result.ok = transport->sendSyncMessage(&request, &result.reply, kind, timeoutSeconds, priority,
                                           destination, nullptr);
    result.elapsedMs = clock.elapsed();
    if (!result.ok)
        result.error = transport->lastErrorText;
    return result;
}

inline nuvMQClassifyMessage command(const QString &name, const QStringList &dataList = {},
                                    const QList<QByteArray> &data = {})
{
    nuvMQClassifyMessage message;
    message.command = name;
    message.setDataList(dataList);
    message.setData(data);
    return message;
}

// The responder's answer in the exchange tests: the request's own fields
// back, with "ECHO " before the command. "SILENT" gets no answer, and
// "SLEEP n" is answered after n milliseconds.
inline std::optional<nuvMQClassifyMessage> echo(const stomp::Responder::Request &request)
{
    const QString name = request.message.command;
    if (name == QLatin1String("SILENT"))
        return std::nullopt;
    if (name.startsWith(QLatin1String("SLEEP ")))
        QThread::msleep(name.mid(6).toULong());
    nuvMQClassifyMessage reply(request.message);
    reply.command = QStringLiteral("ECHO ") + name;
    return reply;
}

#endif // EXCHANGEHELPERS_H
