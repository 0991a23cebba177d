// SPDX-License-Identifier: Apache-2.0
#ifndef NUVCLI_VALUES_H
#define NUVCLI_VALUES_H

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

/*
 * The values that travel between the command line and the classify
 * operations: one kind per C++ parameter or result type of the interface,
 * how each kind is written as an argument, and how it is parsed.
 */
namespace nuvcli {

enum class Kind {
    Void,
    Bool,
    Int,
    Int64,
    String,
    StringList,
    Bytes,
    BytesList,
    DateTime,
    Pairs,
    Client, // a new client object; only createInstance returns one
};

// One argument, out-parameter or result. Only the member of its kind is
// meaningful; the operation table hands references to these members to the
// interface, so out-parameters land here directly.
struct Value
{
    Kind kind = Kind::Void;
    bool flag = false; // Bool; Client: whether an object came back
    qint64 number = 0; // Int, Int64
    QString text;
    QStringList list;
    QByteArray bytes;
    QList<QByteArray> byteList;
    QDateTime when;
    QList<QPair<QString, QString>> pairs;

    static Value empty(Kind kind);
    // Whether a list, text or byte result holds nothing.
    bool isEmpty() const;
};

// The kind's name as help and `list` show it ("string", "list", ...).
QString kindName(Kind kind);
// How an argument of the kind is written, for help.
QString kindSyntax(Kind kind);

// Parses one command-line word as a value of `kind`. On failure returns
// false and says in `error` what was wrong and what was expected.
bool parseArgument(Kind kind, const QString &word, Value *value, QString *error);

} // namespace nuvcli

#endif // NUVCLI_VALUES_H
