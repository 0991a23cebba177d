// SPDX-License-Identifier: Apache-2.0
#ifndef NUVCLI_OPERATIONBUILDER_H
#define NUVCLI_OPERATIONBUILDER_H

// Builds table rows from member-function pointers, so that a row's parameter
// kinds, directions and C++ types come from the interface's own signature
// and cannot drift from it. Only the operation table includes this.

#include "classifyinterface.h"
#include "operationdocs.h"
#include "operations.h"

#include <QMetaObject>

#include <initializer_list>
#include <tuple>
#include <type_traits>
#include <utility>

namespace nuvcli::build {

// What the table needs to know of each C++ type the interface uses: its
// kind, its spelling, and where a Value keeps it.
template<typename T> struct TypeInfo;

#define NUVCLI_TYPE(Type, KindName, Spelling, Member)                                              \
    template<> struct TypeInfo<Type>                                                               \
    {                                                                                              \
        static constexpr Kind kind = Kind::KindName;                                               \
        static const char *name() { return Spelling; }                                             \
        static Type get(Value &value) { return value.Member; }                                     \
        static auto &ref(Value &value) { return value.Member; }                                    \
        static Value make(const Type &result)                                                      \
        {                                                                                          \
            Value value = Value::empty(kind);                                                      \
            value.Member = result;                                                                 \
            return value;                                                                          \
        }                                                                                          \
    };

NUVCLI_TYPE(bool, Bool, "bool", flag)
NUVCLI_TYPE(int, Int, "int", number)
NUVCLI_TYPE(qint64, Int64, "qint64", number)
NUVCLI_TYPE(QString, String, "QString", text)
NUVCLI_TYPE(QStringList, StringList, "QStringList", list)
// QStringList derives from QList<QString>, so one member serves both.
NUVCLI_TYPE(QList<QString>, StringList, "QList<QString>", list)
NUVCLI_TYPE(QByteArray, Bytes, "QByteArray", bytes)
NUVCLI_TYPE(QList<QByteArray>, BytesList, "QList<QByteArray>", byteList)
NUVCLI_TYPE(QDateTime, DateTime, "QDateTime", when)
using StringPairs = QList<QPair<QString, QString>>;
NUVCLI_TYPE(StringPairs, Pairs, "QList<QPair<QString, QString>>", pairs)
#undef NUVCLI_TYPE

// createInstance hands back a client that the caller owns. This tool keeps
// working with its own session, so the new object is released at once and
// only its existence is reported.
template<> struct TypeInfo<ClassifyInterface *>
{
    static constexpr Kind kind = Kind::Client;
    static const char *name() { return "ClassifyInterface *"; }
    static Value make(ClassifyInterface *client)
    {
        Value value = Value::empty(kind);
        value.flag = client != nullptr;
        delete client;
        return value;
    }
};

template<typename P> using Bare = std::remove_cv_t<std::remove_reference_t<P>>;

// A non-const reference is an out-parameter (or in-out, as the row says).
template<typename P>
constexpr bool isOut
    = std::is_lvalue_reference_v<P> && !std::is_const_v<std::remove_reference_t<P>>;

template<typename P> decltype(auto) pass(Value &value)
{
    if constexpr (isOut<P>)
        return TypeInfo<Bare<P>>::ref(value);
    else
        return TypeInfo<Bare<P>>::get(value);
}

template<typename P> QString spelledType()
{
    const QString name = QString::fromLatin1(TypeInfo<Bare<P>>::name());
    if (isOut<P>)
        return name + QStringLiteral(" &");
    if (std::is_reference_v<P>)
        return QStringLiteral("const ") + name + QStringLiteral(" &");
    return name;
}

template<typename P> Parameter parameterOf(const nuvdoc::ParameterDoc &doc)
{
    Parameter parameter;
    parameter.name = doc.name;
    parameter.description = doc.text;
    parameter.kind = TypeInfo<Bare<P>>::kind;
    parameter.cppType = spelledType<P>();
    parameter.direction = isOut<P> ? Direction::Out : Direction::In;
    return parameter;
}

// A mark names a parameter: a leading '+' makes a reference parameter in-out
// (its value is read from the command line and sent), a trailing '?' lets it
// be left off the end of the command line.
inline void applyMark(Operation &operation, const char *spelled)
{
    QString name = QString::fromLatin1(spelled);
    const bool optional = name.endsWith(QLatin1Char('?'));
    if (optional)
        name.chop(1);
    const bool inOut = name.startsWith(QLatin1Char('+'));
    if (inOut)
        name.remove(0, 1);
    for (Parameter &parameter : operation.parameters) {
        if (parameter.name != name)
            continue;
        parameter.optional = parameter.optional || optional;
        if (inOut && parameter.direction == Direction::Out)
            parameter.direction = Direction::InOut;
        return;
    }
    qFatal("operation table: %s has no parameter %s", qPrintable(operation.name), qPrintable(name));
}

// Names, texts and summary come from the operation's doc comment; a row
// whose doc is missing or names other parameters stops the tool at once.
template<typename R, typename... P, std::size_t... I>
Operation describe(int index, const char *name, std::initializer_list<const char *> marks,
                   Failure failure, SessionUse session, std::index_sequence<I...>)
{
    const nuvdoc::OperationDoc *doc = nuvdoc::findOperationDoc(index, QString::fromLatin1(name));
    if (!doc || doc->name != QLatin1String(name))
        qFatal("operation table: no documentation of %s in slot %d", name, index);
    if (doc->parameters.size() != int(sizeof...(P)))
        qFatal("operation table: %s documents %d parameters, its signature has %d", name,
               int(doc->parameters.size()), int(sizeof...(P)));
    Operation operation;
    operation.index = index;
    operation.name = QString::fromLatin1(name);
    operation.doc = doc;
    (operation.parameters.append(parameterOf<P>(doc->parameters.at(int(I)))), ...);
    for (const char *mark : marks)
        applyMark(operation, mark);
    if constexpr (std::is_void_v<R>) {
        operation.result = Kind::Void;
        operation.resultCppType = QStringLiteral("void");
    } else {
        operation.result = TypeInfo<R>::kind;
        operation.resultCppType = QString::fromLatin1(TypeInfo<R>::name());
    }
    operation.failure = failure;
    operation.session = session;
    operation.summary = doc->brief;
    return operation;
}

template<typename R, typename... P, std::size_t... I>
Value invoke(R (ClassifyInterface::*method)(P...), CallContext &context, std::index_sequence<I...>)
{
    std::vector<Value> &arguments = context.arguments;
    (void)arguments;
    if constexpr (std::is_void_v<R>) {
        (context.client.*method)(pass<P>(arguments[I])...);
        return Value::empty(Kind::Void);
    } else {
        return TypeInfo<R>::make((context.client.*method)(pass<P>(arguments[I])...));
    }
}

// A row for an operation of ClassifyInterface.
template<typename R, typename... P>
Operation op(int index, const char *name, R (ClassifyInterface::*method)(P...),
             std::initializer_list<const char *> marks, Failure failure,
             SessionUse session = SessionUse::LoggedIn)
{
    Operation operation
        = describe<R, P...>(index, name, marks, failure, session, std::index_sequence_for<P...>());
    operation.call = [method](CallContext &context) {
        return invoke(method, context, std::index_sequence_for<P...>());
    };
    return operation;
}

template<typename R, typename... P, std::size_t... I>
Value invokeByName(const QByteArray &method, CallContext &context, std::index_sequence<I...>)
{
    std::tuple<P...> values { TypeInfo<P>::get(context.arguments[I])... };
    R result {};
    const bool called
        = QMetaObject::invokeMethod(&context.object, method.constData(), Qt::DirectConnection,
                                    QReturnArgument<R>(TypeInfo<R>::name(), result),
                                    QArgument<P>(TypeInfo<P>::name(), std::get<I>(values))...);
    if (!called)
        context.hostError
            = QStringLiteral("the loaded plugin has no invokable %1(%2)")
                  .arg(QString::fromLatin1(method),
                       QStringList { QString::fromLatin1(TypeInfo<P>::name())... }.join(
                           QLatin1Char(',')));
    return TypeInfo<R>::make(result);
}

// A row for an invokable member beside the interface, reached through the
// meta-object as any host reaches it. The signature is given as template
// arguments: invokable<bool, QString, QStringList>(...).
template<typename R, typename... P>
Operation invokable(const char *name, std::initializer_list<const char *> marks, Failure failure)
{
    Operation operation = describe<R, P...>(0, name, marks, failure, SessionUse::LoggedIn,
                                            std::index_sequence_for<P...>());
    operation.call = [method = QByteArray(name)](CallContext &context) {
        return invokeByName<R, P...>(method, context, std::index_sequence_for<P...>());
    };
    return operation;
}

} // namespace nuvcli::build

#endif // NUVCLI_OPERATIONBUILDER_H
