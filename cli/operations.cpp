// SPDX-License-Identifier: Apache-2.0
#include "operations.h"

namespace nuvcli {

int Operation::minArguments() const
{
    int count = 0;
    for (const Parameter &parameter : parameters)
        if (parameter.direction != Direction::Out && !parameter.optional)
            ++count;
    return count;
}

int Operation::maxArguments() const
{
    int count = 0;
    for (const Parameter &parameter : parameters)
        if (parameter.direction != Direction::Out)
            ++count;
    return count;
}

QString Operation::usage() const
{
    QStringList words { name };
    for (const Parameter &parameter : parameters) {
        if (parameter.direction == Direction::Out)
            continue;
        const QString word = parameter.name + QLatin1Char(':') + kindName(parameter.kind);
        words.append(parameter.optional ? QLatin1Char('[') + word + QLatin1Char(']') : word);
    }
    return words.join(QLatin1Char(' '));
}

QString Operation::cppSignature() const
{
    QStringList types;
    for (const Parameter &parameter : parameters)
        types.append(parameter.cppType);
    return resultCppType + QLatin1Char(' ') + name + QLatin1Char('(')
        + types.join(QStringLiteral(", ")) + QLatin1Char(')');
}

QVector<const Operation *> operationsNamed(const QString &name)
{
    QVector<const Operation *> found;
    for (const Operation &operation : operations())
        if (operation.name == name)
            found.append(&operation);
    return found;
}

const Operation *resolveOperation(const QString &name, int argumentCount, QString *error)
{
    const QVector<const Operation *> candidates = operationsNamed(name);
    if (candidates.isEmpty()) {
        // A wrong letter case is the likeliest slip in these long names.
        for (const Operation &operation : operations())
            if (operation.name.compare(name, Qt::CaseInsensitive) == 0) {
                *error = QStringLiteral("unknown operation '%1'; did you mean %2?")
                             .arg(name, operation.name);
                return nullptr;
            }
        *error
            = QStringLiteral("unknown operation '%1' (nuvclassify list shows them all)").arg(name);
        return nullptr;
    }
    for (const Operation *operation : candidates)
        if (argumentCount >= operation->minArguments()
            && argumentCount <= operation->maxArguments())
            return operation;

    QStringList forms;
    for (const Operation *operation : candidates)
        forms.append(QStringLiteral("  ") + operation->usage());
    *error = QStringLiteral("%1 does not take %2 argument%3; it is called as:\n%4")
                 .arg(name)
                 .arg(argumentCount)
                 .arg(argumentCount == 1 ? QString() : QStringLiteral("s"))
                 .arg(forms.join(QLatin1Char('\n')));
    return nullptr;
}

QString describeFailure(Failure failure)
{
    switch (failure) {
    case Failure::Never:
        return QStringLiteral("Does not report failure.");
    case Failure::False:
        return QStringLiteral("Fails with false; the reason is the error text.");
    case Failure::FalseNoReason:
        return QStringLiteral("Fails with false; the server gives no reason.");
    case Failure::FalseErrorOut:
        return QStringLiteral("Fails with false; the reason comes back in errorText.");
    case Failure::Null:
        return QStringLiteral("Fails with a null string; the reason is the error text.");
    case Failure::MinusOne:
        return QStringLiteral("Fails with -1; the reason is the error text.");
    case Failure::Zero:
        return QStringLiteral("Fails with 0 (which may also mean nothing was found); "
                              "no reason is recorded.");
    case Failure::EmptyWithNewError:
        return QStringLiteral("Fails with an empty result and a new error text; an empty result "
                              "with the error text unchanged is a success.");
    case Failure::NewError:
        return QStringLiteral("Fails when the error text changes.");
    }
    return QString();
}

} // namespace nuvcli
