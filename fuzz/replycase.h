// SPDX-License-Identifier: Apache-2.0
#ifndef NUV_REPLYCASE_H
#define NUV_REPLYCASE_H

#include "alloperations.h"
#include "nuvmqclassifymessage.h"
#include "scriptedcontrol.h"

/*
 * One input of the reply fuzzer, and how it is played. The fuzzer and the
 * regression test that replays its findings share this, so a kept input
 * means the same there as it did when it was found.
 *
 * The first byte chooses what the rest feeds. Choice 0: the rest, read as
 * UTF-8, is wire text for the decoder. Choice k: operation k - 1 of
 * alloperations::operations() runs, and its first exchange is answered by
 * a reply whose stream bytes are the rest (base64 is added here, so that
 * mutations reach the fields rather than the encoding). Later exchanges of
 * the same call get no reply, as after a lost broker.
 */
namespace replycase {

struct Case
{
    int operation = -1; // -1: decode the text only
    QString text; // wire text
};

inline int choiceCount()
{
    return alloperations::operations().size() + 1;
}

inline Case fromInput(const QByteArray &input)
{
    Case c;
    if (input.isEmpty())
        return c;
    const int choice = quint8(input.at(0)) % choiceCount();
    const QByteArray rest = input.mid(1);
    if (choice == 0) {
        c.text = QString::fromUtf8(rest);
    } else {
        c.operation = choice - 1;
        c.text = QString::fromLatin1(rest.toBase64());
    }
    return c;
}

// The input that answers `operation` with `reply`; for writing seeds.
inline QByteArray inputFor(int operation, const nuvMQClassifyMessage &reply)
{
    return char(operation + 1) + reply.toWireBytes();
}

inline QByteArray decoderInput(const QString &wireText)
{
    return char(0) + wireText.toUtf8();
}

// Whatever a text decodes to, encoding that and decoding it again must give
// the same fields: the encoder and the decoder agree on every value the
// decoder can produce.
inline bool roundTripHolds(const QString &text)
{
    nuvMQClassifyMessage decoded;
    decoded.convertFromBase64(text);
    QString again;
    decoded.convertToBase64(again);
    nuvMQClassifyMessage redecoded;
    redecoded.convertFromBase64(again);
    return decoded.toWireBytes() == redecoded.toWireBytes();
}

// Plays an operation case on a logged-in client; returns what the operation
// handed back.
inline QString play(const Case &c, ClassifyInterface *client, ScriptedTransportControl *transport)
{
    transport->reset();
    transport->queueWireText(c.text);
    return alloperations::operations().at(c.operation).call(client);
}

} // namespace replycase

#endif // NUV_REPLYCASE_H
