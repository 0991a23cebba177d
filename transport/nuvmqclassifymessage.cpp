// SPDX-License-Identifier: Apache-2.0
#include "nuvmqclassifymessage.h"

namespace {
// Lists are reassigned only when the payload really differs; assigning a
// list to one that already shares its data is a no-op in Qt anyway, but the
// explicit test keeps the intent visible and avoids the atomic ref dance.
template<typename List> void assignIfDifferent(List &target, const List &source)
{
    if (!target.isSharedWith(source))
        target = source;
}
} // namespace

nuvMQClassifyMessage &nuvMQClassifyMessage::operator=(const nuvMQClassifyMessage &other)
{
    if (this == &other)
        return *this;
    command = other.command;
    hasErrorText = other.hasErrorText;
    errorText = other.errorText;
    currentArchive = other.currentArchive;
    docId = other.docId;
    assignIfDifferent(dataList, other.dataList);
    updateRequested = other.updateRequested;
    updateString = other.updateString;
    assignIfDifferent(data, other.data);
    assignIfDifferent(availablePlugins, other.availablePlugins);
    return *this;
}

qint64 nuvMQClassifyMessage::size()
{
    return -1;
}

QString nuvMQClassifyMessage::getType()
{
    return QStringLiteral("nuvmqclassifymessage");
}

void nuvMQClassifyMessage::setDataList(QStringList list)
{
    assignIfDifferent(dataList, list);
}

void nuvMQClassifyMessage::setData(QList<QByteArray> list)
{
    assignIfDifferent(data, list);
}

void nuvMQClassifyMessage::setAvailablePlugins(const QStringList &plugins)
{
    assignIfDifferent(availablePlugins, plugins);
}
