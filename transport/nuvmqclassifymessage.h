// SPDX-License-Identifier: Apache-2.0
#ifndef NUVMQCLASSIFYMESSAGE_H
#define NUVMQCLASSIFYMESSAGE_H

#include "nuvmqmessage.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

/*
 * The message that carries one classify command or its reply.
 *
 * Its wire form is the base64 text of a QDataStream record of 17 items (see
 * wireformat.cpp); both ends must agree on it byte for byte.
 */
class nuvMQClassifyMessage : public nuvMQMessage
{
public:
    nuvMQClassifyMessage() = default;
    nuvMQClassifyMessage(const nuvMQClassifyMessage &other) = default;
    ~nuvMQClassifyMessage() override = default;

    // Copies only what carries a command; the target keeps its other header
    // fields and its unstreamed fields, so a transport's bookkeeping in them
    // survives the client reusing one message object for every exchange.
    nuvMQClassifyMessage &operator=(const nuvMQClassifyMessage &other);

    bool convertToBase64(QString &out) override;
    bool convertFromBase64(const QString &in) override;
    qint64 size() override;
    QString getType() override;

    // The encoder and decoder behind the two conversions, on raw bytes, for
    // transports and servers that do not want the base64 step.
    QByteArray toWireBytes() const;
    void fromWireBytes(const QByteArray &bytes);
    // fromWireBytes() that also tells whether the bytes were one whole,
    // undamaged record; false with what was wrong in `problem`.
    bool readWireBytes(const QByteArray &bytes, QString *problem);
    // The size of toWireBytes(), without encoding.
    qint64 wireSize() const;

    void setDataList(QStringList list);
    QStringList getDataList() const { return dataList; }
    void setDocId(QString id) { docId = id; }
    QString getDocId() const { return docId; }
    void setData(QList<QByteArray> list);
    QList<QByteArray> getData() const { return data; }
    void setUpdateRequested(bool requested) { updateRequested = requested; }
    bool getUpdateRequested() const { return updateRequested; }
    void setUpdateString(QString marker) { updateString = marker; }
    QString getUpdateString() const { return updateString; }
    void setCurrentArchive(const QString &archive) { currentArchive = archive; }
    QString &getCurrentArchive() { return currentArchive; }
    void setAvailablePlugins(const QStringList &plugins);
    QStringList &getAvailablePlugins() { return availablePlugins; }

private:
    QStringList dataList;
    QString docId;
    QList<QByteArray> data;
    bool updateRequested = false;
    QString updateString;
    QString currentArchive;
    QStringList availablePlugins;
};

#endif // NUVMQCLASSIFYMESSAGE_H
