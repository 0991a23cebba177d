// SPDX-License-Identifier: Apache-2.0
#include "commandblocks.h"

#include <algorithm>

namespace nuv {

QString textFromBytes(const QByteArray &bytes)
{
    if (bytes.isNull())
        return QString();
    return QString::fromUtf8(bytes.constData(), int(qstrnlen(bytes.constData(), bytes.size())));
}

QStringRef recordField(const QString &record, int index)
{
    // A plain scan: replies pair hundreds of records per call, and
    // indexOf() per field costs several times more.
    const QChar *const begin = record.constData();
    const QChar *const end = begin + record.size();
    const QChar *start = begin;
    for (int i = 0; i < index; ++i) {
        start = std::find(start, end, recordSeparator);
        if (start == end)
            return QStringRef();
        ++start;
    }
    const QChar *const stop = std::find(start, end, recordSeparator);
    return record.midRef(int(start - begin), int(stop - start));
}

QString joinSearchEntry(const QStringList &fixedParts, const QStringList &listParts)
{
    QString entry;
    for (const QString &part : fixedParts)
        entry += part + recordSeparator;
    for (const QString &part : listParts)
        entry += part + recordSeparator;
    if (!listParts.isEmpty())
        entry.chop(1);
    return entry;
}

} // namespace nuv
