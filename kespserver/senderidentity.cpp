#include "senderidentity.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace kesp {

const char connectionAdvisoryTopic[] = "/topic/ActiveMQ.Advisory.Connection";
const char advisoryTransformation[] = "jms-advisory-json";

QString senderConnection(const stomp::Frame &message)
{
    const QByteArray id = message.header("message-id");
    if (!id.startsWith("ID:"))
        return QString();
    // Session, producer and sequence: three numbers after the connection id.
    int end = id.size();
    for (int field = 0; field < 3; ++field) {
        const int colon = id.lastIndexOf(':', end - 1);
        bool number = false;
        id.mid(colon + 1, end - colon - 1).toLongLong(&number);
        if (colon < 3 || !number)
            return QString();
        end = colon;
    }
    return QString::fromUtf8(id.left(end));
}

QString closedConnection(const QByteArray &advisoryBody)
{
    const QJsonObject removed = QJsonDocument::fromJson(advisoryBody)
                                    .object()
                                    .value(QLatin1String("RemoveInfo"))
                                    .toObject();
    const QJsonObject object = removed.value(QLatin1String("objectId")).toObject();
    if (object.value(QLatin1String("@class")).toString() != QLatin1String("ConnectionId"))
        return QString();
    return object.value(QLatin1String("value")).toString();
}

} // namespace kesp
