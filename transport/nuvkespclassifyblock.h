// SPDX-License-Identifier: Apache-2.0
#ifndef NUVKESPCLASSIFYBLOCK_H
#define NUVKESPCLASSIFYBLOCK_H

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

/*
 * The request and reply record of every classify command.
 *
 * An operation fills one block, the exchange copies it field by field into a
 * nuvMQClassifyMessage and turns the reply message back into a block. All
 * fields are implicitly shared, so copying a block is cheap; Qt's list
 * assignment already skips the reassignment when both share one payload.
 */
class NuvKespClassifyBlock
{
public:
    QString command; // request: command name; reply: status word
    QString errorText; // reply only: the server's error or status text
    QStringList dataList;
    QString docId;
    QList<QByteArray> data;
    bool updateRequested = false;
    QString updateString; // reply only: the server's update marker
    QStringList availablePlugins;
};

#endif // NUVKESPCLASSIFYBLOCK_H
