// SPDX-License-Identifier: Apache-2.0
#include "fieldvalues.h"

#include "sql.h"

#include <QSqlRecord>

namespace nuvserver {

QString joinFields(const QStringList &fields)
{
    return fields.join(recordSeparator);
}

QString rowRecord(const QSqlQuery &query)
{
    QStringList fields;
    const int columns = query.record().count();
    for (int i = 0; i < columns; ++i)
        fields.append(query.value(i).toString());
    return joinFields(fields);
}

QStringList queryRecords(const QSqlDatabase &db, const QString &sql, const QVariantList &values)
{
    QSqlQuery query = run(db, sql, values);
    QStringList records;
    while (query.next())
        records.append(rowRecord(query));
    return records;
}

QStringList splitFields(const QString &record)
{
    return record.split(recordSeparator);
}

QString field(const QStringList &fields, int index)
{
    return fields.value(index);
}

QString echoed(const QString &text)
{
    constexpr int longest = 100;
    return text.size() <= longest ? text : text.left(longest) + QStringLiteral("…");
}

qint64 toNumber(const QString &text, const QString &what)
{
    bool ok = false;
    const qint64 value = text.trimmed().toLongLong(&ok);
    if (!ok)
        fail(QStringLiteral("%1 must be a number, not '%2'").arg(what, echoed(text)));
    return value;
}

bool toFlag(const QString &text, const QString &what)
{
    const QString word = text.trimmed().toLower();
    if (word == QLatin1String("1") || word == QLatin1String("true") || word == QLatin1String("yes"))
        return true;
    if (word.isEmpty() || word == QLatin1String("0") || word == QLatin1String("false")
        || word == QLatin1String("no"))
        return false;
    fail(QStringLiteral("%1 must be true or false, not '%2'").arg(what, echoed(text)));
}

QString timeText(const QDateTime &time)
{
    return time.toUTC().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
}

QString nowText()
{
    return timeText(QDateTime::currentDateTimeUtc());
}

QDateTime parseTime(const QString &text, const QString &what)
{
    QDateTime time = QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    if (!time.isValid())
        time = QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd"));
    if (!time.isValid())
        fail(QStringLiteral("%1 must be a time as yyyy-MM-dd hh:mm:ss, not '%2'")
                 .arg(what, echoed(text)));
    time.setTimeSpec(Qt::UTC);
    return time;
}

void checkName(const QString &name, const QString &what)
{
    if (name.isEmpty())
        fail(what + QStringLiteral(" is missing"));
    if (name.trimmed() != name)
        fail(QStringLiteral("%1 '%2' must not begin or end with blanks").arg(what, echoed(name)));
    for (const QChar c : name) {
        if (c == recordSeparator || c.category() == QChar::Other_Control)
            fail(QStringLiteral("%1 '%2' holds a character that is not allowed")
                     .arg(what, echoed(name)));
    }
    if (name.size() > 200)
        fail(QStringLiteral("%1 is longer than 200 characters").arg(what));
}

} // namespace nuvserver
