// SPDX-License-Identifier: Apache-2.0
#include "call.h"

namespace nuvcli {

bool prepareCall(const QStringList &words, PreparedCall *call, QString *error)
{
    if (words.isEmpty()) {
        *error = QStringLiteral("no operation given");
        return false;
    }
    const QString &name = words.first();
    const QStringList given = words.mid(1);
    const Operation *operation = resolveOperation(name, given.size(), error);
    if (!operation)
        return false;

    call->operation = operation;
    call->arguments.clear();
    int next = 0;
    for (const Parameter &parameter : operation->parameters) {
        Value value = Value::empty(parameter.kind);
        if (parameter.direction != Direction::Out && next < given.size()) {
            QString why;
            if (!parseArgument(parameter.kind, given.at(next), &value, &why)) {
                *error = QStringLiteral("%1: argument %2 (%3, a %4): %5")
                             .arg(name)
                             .arg(next + 1)
                             .arg(parameter.name, kindName(parameter.kind), why);
                return false;
            }
            ++next;
        }
        call->arguments.push_back(value);
    }
    return true;
}

namespace {

QString reasonOrDefault(const QString &reason, const QString &operation)
{
    if (!reason.isEmpty())
        return reason;
    return QStringLiteral("%1 failed (no reason given)").arg(operation);
}

QString outText(const CallRecord &record, const QString &parameterName)
{
    const QVector<Parameter> &parameters = record.operation->parameters;
    for (int i = 0; i < parameters.size(); ++i)
        if (parameters.at(i).name == parameterName)
            return record.arguments.at(size_t(i)).text;
    return QString();
}

} // namespace

void judge(CallRecord &record, const QString &errorBefore, const QString &errorAfter)
{
    const QString &name = record.operation->name;
    const Value &result = record.result;
    const bool errorChanged = errorAfter != errorBefore;
    QString reason = errorAfter;

    switch (record.operation->failure) {
    case Failure::Never:
        record.ok = true;
        break;
    case Failure::False:
        record.ok = result.flag;
        break;
    case Failure::FalseNoReason:
        record.ok = result.flag;
        reason = QStringLiteral("%1 failed (the server gives no reason for it)").arg(name);
        break;
    case Failure::FalseErrorOut:
        record.ok = result.flag;
        reason = outText(record, QStringLiteral("errorText"));
        break;
    case Failure::Null:
        record.ok = !result.text.isNull();
        break;
    case Failure::MinusOne:
        record.ok = result.number != -1;
        break;
    case Failure::Zero:
        record.ok = result.number != 0;
        reason = QStringLiteral("%1 returned 0: it failed or found nothing (no reason is "
                                "recorded)")
                     .arg(name);
        break;
    case Failure::EmptyWithNewError:
        record.ok = !(result.isEmpty() && errorChanged);
        break;
    case Failure::NewError:
        record.ok = !errorChanged;
        break;
    }
    record.error = record.ok ? QString() : reasonOrDefault(reason, name);
}

} // namespace nuvcli
