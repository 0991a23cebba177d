// SPDX-License-Identifier: Apache-2.0
#include "conditions.h"

#include "fieldvalues.h"
#include "sql.h"

#include <QRegularExpression>

namespace nuvserver {

Condition parseCondition(const QString &text)
{
    static const QRegularExpression pattern(
        QStringLiteral("^\\s*([A-Za-z_][A-Za-z0-9_]*)\\s*(<=|>=|!=|=|<|>|~)(.*)$"),
        QRegularExpression::DotMatchesEverythingOption);
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch())
        fail(QStringLiteral("'%1' is no condition of the form field=value").arg(echoed(text)));
    return { match.captured(1).toLower(), match.captured(2), match.captured(3) };
}

QString compare(const QString &expression, const Condition &condition, QVariantList &values,
                bool numeric)
{
    if (condition.op == QLatin1String("~")) {
        QString pattern = condition.value;
        pattern.replace(QLatin1Char('\\'), QLatin1String("\\\\"))
            .replace(QLatin1Char('%'), QLatin1String("\\%"))
            .replace(QLatin1Char('_'), QLatin1String("\\_"));
        values.append(QLatin1Char('%') + pattern + QLatin1Char('%'));
        // Case-insensitive on both databases (PostgreSQL's LIKE is not).
        return QStringLiteral("lower(%1) LIKE lower(?) ESCAPE '\\'").arg(expression);
    }
    if (numeric) {
        bool isNumber = false;
        const qint64 number = condition.value.trimmed().toLongLong(&isNumber);
        if (!isNumber)
            fail(QStringLiteral("%1 compares with numbers, not with '%2'")
                     .arg(condition.field, echoed(condition.value)));
        values.append(number);
    } else {
        values.append(condition.value);
    }
    const QString op = condition.op == QLatin1String("!=") ? QStringLiteral("<>") : condition.op;
    return expression + QLatin1Char(' ') + op + QStringLiteral(" ?");
}

QString conditionsSql(const QStringList &texts, const ConditionResolver &resolve,
                      QVariantList &values)
{
    QStringList parts;
    for (const QString &text : texts) {
        if (text.trimmed().isEmpty())
            continue;
        parts.append(QLatin1Char('(') + resolve(parseCondition(text), values) + QLatin1Char(')'));
    }
    return parts.isEmpty() ? QStringLiteral("1 = 1") : parts.join(QLatin1String(" AND "));
}

} // namespace nuvserver
