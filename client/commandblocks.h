// SPDX-License-Identifier: Apache-2.0
#ifndef NUV_COMMANDBLOCKS_H
#define NUV_COMMANDBLOCKS_H

#include "nuvkespclassifyblock.h"
#include "protocolwords.h"

#include <QHash>
#include <QVector>

#include <vector>

/*
 * Small pieces shared by the command groups: building request blocks,
 * picking results from replies, and the record formats of the protocol
 * (fields and keys joined by U+FEFF, text carried in byte arrays).
 */
namespace nuv {

using nuvprotocol::recordSeparator;

inline NuvKespClassifyBlock fields(const QString &docId, const QStringList &dataList = {},
                                   const QList<QByteArray> &data = {})
{
    NuvKespClassifyBlock block;
    block.docId = docId;
    block.dataList = dataList;
    block.data = data;
    return block;
}

inline NuvKespClassifyBlock listFields(const QStringList &dataList,
                                       const QList<QByteArray> &data = {})
{
    return fields(QString(), dataList, data);
}

// The last error of a reply that passed its test but lacks what the
// operation must read from it.
inline QString malformedReplyText(QLatin1String command)
{
    return QStringLiteral("malformed reply to ") + command;
}

inline QString flagText(bool flag)
{
    return flag ? QStringLiteral("1") : QStringLiteral("0");
}

// Result pickers for perform(): they copy one reply field into the caller's
// out-parameter and report success.
inline auto assignDocId(QString &target)
{
    return [&target](const NuvKespClassifyBlock &reply) {
        target = reply.docId;
        return true;
    };
}

inline auto assignDataList(QStringList &target)
{
    return [&target](const NuvKespClassifyBlock &reply) {
        target = reply.dataList;
        return true;
    };
}

inline QString replyDocId(const NuvKespClassifyBlock &reply)
{
    return reply.docId;
}

// Text carried in a byte array: UTF-8 up to the first zero byte; a null
// array is a null string.
QString textFromBytes(const QByteArray &bytes);

// Field `index` of a record joined by U+FEFF; empty when the record has
// fewer fields.
QStringRef recordField(const QString &record, int index);

// A whole search definition as one entry: every fixed part followed by a
// separator, then the list entries joined by separators. With an empty list
// the separator after the last fixed part stays, as the server expects.
QString joinSearchEntry(const QStringList &fixedParts, const QStringList &listParts);

// Pairs the records of a reply with its byte arrays: the n-th non-empty key
// of `keys` (joined by U+FEFF) owns data[n], a later equal key wins, and
// each record receives the byte array of the key in its field `keyField`,
// or an empty one. Missing byte arrays and fields count as empty.
template<typename Key, typename ToKey>
QList<QByteArray> pairRecordsWithPayloads(const QStringList &records, const QString &keys,
                                          const QList<QByteArray> &data, int keyField, ToKey toKey)
{
    // An open-addressing table in one vector: one allocation for the whole
    // index, keys that refer into the reply instead of copies of it, and one
    // hash per key where a sorted index compared long common prefixes
    // several times per record.
    struct Slot
    {
        Key key;
        int payload = -1; // -1: free
    };
    const QVector<QStringRef> keyParts = keys.splitRef(recordSeparator, Qt::SkipEmptyParts);
    int bits = 3;
    while ((size_t(1) << bits) < size_t(keyParts.size()) * 2)
        ++bits;
    const size_t mask = (size_t(1) << bits) - 1;
    std::vector<Slot> table(mask + 1);
    // The process's random seed, and the top bits of a multiplicative mix:
    // consecutive numbers and crafted keys spread over the table alike.
    const uint seed = uint(qGlobalQHashSeed());
    const auto slotOf = [&table, mask, bits, seed](const Key &key) -> Slot & {
        const quint64 mixed = quint64(qHash(key, seed)) * Q_UINT64_C(0x9E3779B97F4A7C15);
        for (size_t at = size_t(mixed >> (64 - bits));; at = (at + 1) & mask) {
            Slot &slot = table[at];
            if (slot.payload < 0 || slot.key == key)
                return slot;
        }
    };
    for (int i = 0; i < keyParts.size(); ++i) {
        const Key key = toKey(keyParts.at(i));
        Slot &slot = slotOf(key);
        slot.key = key;
        slot.payload = i; // a later equal key wins
    }

    QList<QByteArray> payloads;
    payloads.reserve(records.size());
    for (const QString &record : records) {
        const int payload = slotOf(toKey(recordField(record, keyField))).payload;
        payloads.append(payload >= 0 ? data.value(payload) : QByteArray());
    }
    return payloads;
}

} // namespace nuv

#endif // NUV_COMMANDBLOCKS_H
