// SPDX-License-Identifier: Apache-2.0
#ifndef CLASSIFYSERVER_H
#define CLASSIFYSERVER_H

#include "responder.h"

#include <optional>

// A tiny classify server for the tests: answers by command word, and says
// whom it answers from the nuv-user header, the way a real server learns it.
//   CFLOGIN            password "right" logs in (version 18.09-5), else "Wrong password"
//   CFDOCGETARCHIVES   two archives
//   CFDOCGETROLEUSERS  "<role>-of-<user>"; the role "hold" is never answered
//   CFPARENTROLES      an error naming the role
//   anything else      "OK"
inline std::optional<nuvMQClassifyMessage> classifyServer(const stomp::Responder::Request &request)
{
    const QString name = request.message.command;
    const QString user = QString::fromUtf8(request.frame.header("nuv-user"));
    nuvMQClassifyMessage reply;
    reply.command = QStringLiteral("OK");
    if (name == QLatin1String("CFLOGIN")) {
        if (request.message.getDataList().value(1) != QLatin1String("right")) {
            reply.command = QStringLiteral("ERROR");
            reply.errorText = QStringLiteral("Wrong password");
            reply.hasErrorText = true;
            return reply;
        }
        reply.setData({ QByteArrayLiteral("18.09-5") });
        reply.setDataList({ QStringLiteral("admin"), QStringLiteral("users") });
        reply.setDocId(user == QLatin1String("alice") ? QStringLiteral("Alice Example") : user);
        reply.setAvailablePlugins({ QStringLiteral("first entry"), QStringLiteral("Scan") });
    } else if (name == QLatin1String("CFDOCGETARCHIVES")) {
        reply.setDataList({ QStringLiteral("Archiv 1"), QStringLiteral("Archiv 2") });
    } else if (name == QLatin1String("CFDOCGETROLEUSERS")) {
        if (request.message.getDocId() == QLatin1String("hold"))
            return std::nullopt;
        reply.setDataList({ request.message.getDocId() + QStringLiteral("-of-") + user });
    } else if (name == QLatin1String("CFPARENTROLES")) {
        reply.command = QStringLiteral("ERROR");
        reply.errorText = QStringLiteral("Unknown role ") + request.message.getDataList().value(0);
        reply.hasErrorText = true;
    }
    return reply;
}

#endif // CLASSIFYSERVER_H
