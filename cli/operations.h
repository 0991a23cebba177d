// SPDX-License-Identifier: Apache-2.0
#ifndef NUVCLI_OPERATIONS_H
#define NUVCLI_OPERATIONS_H

#include "values.h"

#include <QString>
#include <QVector>

#include <functional>
#include <vector>

class ClassifyInterface;
class QObject;
namespace nuvdoc {
struct OperationDoc;
}

/*
 * The table of every operation the tool can call: the 127 operations of
 * ClassifyInterface in their interface order, then the two invokable members
 * that the client offers beside the interface. Each row knows its parameters
 * and result (taken from the C++ signature), how failure shows, whether it
 * needs a logged-in session, and how to call it.
 */
namespace nuvcli {

enum class Direction {
    In, // given on the command line
    Out, // filled by the call; starts empty
    InOut, // given on the command line, sent, and possibly replaced
};

struct Parameter
{
    QString name;
    Kind kind = Kind::Void;
    QString cppType; // as declared, e.g. "const QString &"
    Direction direction = Direction::In;
    bool optional = false; // may be left off the end of the command line
    QString description; // from the doc comment
};

// How an operation reports failure. The interface has no single rule: some
// return false, some an empty or null value, some only change the error text.
enum class Failure {
    Never, // cannot fail (local accessors, fire-and-forget notices)
    False, // false; the reason is errorString()
    FalseNoReason, // false; the server sends no reason for these
    FalseErrorOut, // false; the reason is the out-parameter "errorText"
    Null, // a null string; the reason is errorString()
    MinusOne, // -1; the reason is errorString()
    Zero, // 0; no reason is recorded
    EmptyWithNewError, // an empty result together with a new errorString()
    NewError, // only errorString() changes
};

enum class SessionUse {
    LoggedIn, // the tool logs in first
    None, // works on a fresh client; no login
    ExpiredLoginIsEnough, // runs even when the login reports an expired password
    LogsIn, // the call itself is a login
    LogsOut, // the call ends the login
};

struct CallContext
{
    ClassifyInterface &client;
    QObject &object; // the same client, for the invokable members
    std::vector<Value> &arguments; // one per parameter, in order
    QString hostError; // set when the call could not be made at all
};

struct Operation
{
    int index = 0; // position in ClassifyInterface, 1-127; 0 beside it
    QString name;
    QVector<Parameter> parameters;
    Kind result = Kind::Void;
    QString resultCppType;
    Failure failure = Failure::Never;
    SessionUse session = SessionUse::LoggedIn;
    QString summary; // the doc comment's first sentence
    const nuvdoc::OperationDoc *doc = nullptr; // the whole doc comment
    std::function<Value(CallContext &)> call;

    int minArguments() const;
    int maxArguments() const;
    // "classify DOCID:string VALUES:list" with optional ones in brackets.
    QString usage() const;
    // "bool classify(QString &, QStringList)" as the interface declares it.
    QString cppSignature() const;
};

const QVector<Operation> &operations();
// Every row named `name`, in table order (overloads share a name).
QVector<const Operation *> operationsNamed(const QString &name);
// The overload of `name` that takes `argumentCount` command-line arguments.
// Null with `error` set when the name is unknown or no overload fits.
const Operation *resolveOperation(const QString &name, int argumentCount, QString *error);

// How the operation's failure shows, in one sentence for help.
QString describeFailure(Failure failure);

} // namespace nuvcli

#endif // NUVCLI_OPERATIONS_H
