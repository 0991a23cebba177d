#include "records.h"

namespace nuv {

QString textFromBytes(const QByteArray &bytes)
{
    if (bytes.isNull())
        return QString();
    return QString::fromUtf8(bytes.constData(), int(qstrnlen(bytes.constData(), bytes.size())));
}

QStringRef recordField(const QString &record, int index)
{
    int start = 0;
    for (int i = 0; i < index; ++i) {
        const int separator = record.indexOf(recordSeparator, start);
        if (separator < 0)
            return QStringRef();
        start = separator + 1;
    }
    const int end = record.indexOf(recordSeparator, start);
    return record.midRef(start, end < 0 ? -1 : end - start);
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
