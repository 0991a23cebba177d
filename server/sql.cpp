#include "sql.h"

#include <QSqlError>

namespace nuvserver {

void fail(const QString &text)
{
    throw Failure { text };
}

QSqlQuery run(const QSqlDatabase &db, const QString &sql, const QVariantList &values)
{
    QSqlQuery query(db);
    query.setForwardOnly(true);
    if (!query.prepare(sql))
        fail(QStringLiteral("database error: ") + query.lastError().text());
    for (const QVariant &value : values) {
        // A null QString is text like any other; NULL is bound as QVariant().
        if (value.userType() == QMetaType::QString && value.toString().isNull())
            query.addBindValue(QStringLiteral(""));
        else
            query.addBindValue(value);
    }
    if (!query.exec()) {
        const QString text = query.lastError().text();
        if (text.contains(QLatin1String("FOREIGN KEY")))
            fail(QStringLiteral("the change would break a reference between records"));
        if (text.contains(QLatin1String("UNIQUE")))
            fail(QStringLiteral("the change would duplicate a unique name"));
        fail(QStringLiteral("database error: ") + text);
    }
    return query;
}

QVariant scalar(const QSqlDatabase &db, const QString &sql, const QVariantList &values)
{
    QSqlQuery query = run(db, sql, values);
    return query.next() ? query.value(0) : QVariant();
}

bool exists(const QSqlDatabase &db, const QString &sql, const QVariantList &values)
{
    QSqlQuery query = run(db, sql, values);
    return query.next();
}

QStringList column(const QSqlDatabase &db, const QString &sql, const QVariantList &values)
{
    QStringList result;
    QSqlQuery query = run(db, sql, values);
    while (query.next())
        result.append(query.value(0).toString());
    return result;
}

QStringList readList(const QSqlDatabase &db, const KeyedList &list, const QVariant &key)
{
    return column(
        db,
        QStringLiteral("SELECT %1 FROM %2 WHERE %3 = ? ORDER BY %4")
            .arg(QLatin1String(list.valueColumn), QLatin1String(list.table),
                 QLatin1String(list.keyColumn),
                 QLatin1String(list.positionColumn ? list.positionColumn : list.valueColumn)),
        { key });
}

void writeList(const QSqlDatabase &db, const KeyedList &list, const QVariant &key,
               const QStringList &values)
{
    run(db,
        QStringLiteral("DELETE FROM %1 WHERE %2 = ?")
            .arg(QLatin1String(list.table), QLatin1String(list.keyColumn)),
        { key });
    const QString insert = list.positionColumn
        ? QStringLiteral("INSERT OR IGNORE INTO %1(%2, %3, %4) VALUES (?, ?, ?)")
              .arg(QLatin1String(list.table), QLatin1String(list.keyColumn),
                   QLatin1String(list.valueColumn), QLatin1String(list.positionColumn))
        : QStringLiteral("INSERT OR IGNORE INTO %1(%2, %3) VALUES (?, ?)")
              .arg(QLatin1String(list.table), QLatin1String(list.keyColumn),
                   QLatin1String(list.valueColumn));
    for (int i = 0; i < values.size(); ++i) {
        QVariantList bound { key, values.at(i) };
        if (list.positionColumn)
            bound.append(i);
        run(db, insert, bound);
    }
}

QString inList(const QStringList &items, QVariantList &values)
{
    if (items.isEmpty()) {
        values.append(QVariant());
        return QStringLiteral("?");
    }
    for (const QString &item : items)
        values.append(item);
    QString text = QStringLiteral("?");
    for (int i = 1; i < items.size(); ++i)
        text += QStringLiteral(", ?");
    return text;
}

} // namespace nuvserver
