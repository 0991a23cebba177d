// SPDX-License-Identifier: Apache-2.0
#ifndef NUVMQMESSAGE_H
#define NUVMQMESSAGE_H

#include <QString>
#include <QtGlobal>

/*
 * The abstract message that a message-queue transport carries.
 *
 * The header fields live here so that a transport can read and fill them on
 * any message kind. A classify client sets only `command` and reads only
 * `command`, `hasErrorText` and `errorText`; the rest travels untouched.
 * The declaration order of the virtual functions is binary interface.
 */
class nuvMQMessage
{
public:
    virtual ~nuvMQMessage() = default;

    // Replaces `out` with the message's wire text.
    virtual bool convertToBase64(QString &out) = 0;
    // Overwrites every streamed field from wire text.
    virtual bool convertFromBase64(const QString &in) = 0;
    virtual qint64 size() = 0;
    // The tag by which transports tell message kinds apart.
    virtual QString getType() = 0;

    QString headerText1;
    QString headerText2;
    QString localText; // never streamed
    QString headerText3;
    QString command; // request: command name; reply: status word
    QString errorText; // reply: error or status text
    QString headerText4;
    bool localFlag = false; // never streamed
    bool hasErrorText = false; // reply: `errorText` is meaningful
    bool headerFlag = false;
    qint64 headerNumber = 0;
    qint64 localNumber = 0; // never streamed
    QString headerText5;

protected:
    nuvMQMessage() = default;
    nuvMQMessage(const nuvMQMessage &) = default;
    nuvMQMessage &operator=(const nuvMQMessage &) = default;
};

#endif // NUVMQMESSAGE_H
