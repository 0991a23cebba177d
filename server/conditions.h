// SPDX-License-Identifier: Apache-2.0
#ifndef NUVSERVER_CONDITIONS_H
#define NUVSERVER_CONDITIONS_H

#include <QString>
#include <QStringList>
#include <QVariantList>

#include <functional>

/*
 * Search conditions, the one query language of counts, document lists,
 * stored searches and deadline selections: "field OP value", OP one of
 * = != < <= > >= and ~ (contains, ignoring case).
 */
namespace nuvserver {

struct Condition
{
    QString field; // lower case
    QString op;
    QString value;
};

Condition parseCondition(const QString &text);

// The SQL test of `expression` against the condition's value; appends the
// bound value, as a number for a numeric expression.
QString compare(const QString &expression, const Condition &condition, QVariantList &values,
                bool numeric = false);

// Turns every non-empty condition text into SQL joined by AND ("1" when there
// is none); `resolve` gives the SQL of one condition (it fails for unknown
// fields).
using ConditionResolver = std::function<QString(const Condition &, QVariantList &)>;
QString conditionsSql(const QStringList &texts, const ConditionResolver &resolve,
                      QVariantList &values);

} // namespace nuvserver

#endif // NUVSERVER_CONDITIONS_H
