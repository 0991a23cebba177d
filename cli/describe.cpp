// SPDX-License-Identifier: Apache-2.0
#include "describe.h"

#include "operationdocs.h"
#include "options.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace nuvcli {

namespace {

QString directionName(Direction direction)
{
    switch (direction) {
    case Direction::In:
        return QStringLiteral("in");
    case Direction::Out:
        return QStringLiteral("out");
    case Direction::InOut:
        return QStringLiteral("inout");
    }
    return QString();
}

QString sessionNote(SessionUse use)
{
    switch (use) {
    case SessionUse::LoggedIn:
        return QStringLiteral("Logs in first.");
    case SessionUse::ExpiredLoginIsEnough:
        return QStringLiteral("Logs in first; a login refused for an expired password is enough.");
    case SessionUse::None:
        return QStringLiteral("Needs no login.");
    case SessionUse::LogsIn:
        return QStringLiteral("Is itself a login (embedded: host is the database file).");
    case SessionUse::LogsOut:
        return QStringLiteral("Ends the login; a later call logs in again.");
    }
    return QString();
}

QString slotNote(const Operation &operation)
{
    if (operation.index > 0)
        return QStringLiteral("slot %1 of ClassifyInterface").arg(operation.index);
    return QStringLiteral("invokable member beside ClassifyInterface");
}

// Writes `text` in lines of at most 78 columns, each line after `first`
// indented by `indent` blanks.
void printWrapped(QTextStream &out, const QString &first, const QString &text, int indent)
{
    QString line = first;
    const QStringList words = text.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    bool fresh = line.trimmed().isEmpty();
    for (const QString &word : words) {
        if (!fresh && line.size() + 1 + word.size() > 78) {
            out << line << '\n';
            line = QString(indent, QLatin1Char(' '));
            fresh = true;
        }
        if (!fresh)
            line += QLatin1Char(' ');
        line += word;
        fresh = false;
    }
    out << line << '\n';
}

QString parameterNotes(const Parameter &parameter)
{
    QString notes = kindSyntax(parameter.kind);
    if (parameter.direction == Direction::InOut)
        notes += QStringLiteral(", comes back changed");
    if (parameter.optional)
        notes += QStringLiteral(", may be left off (empty)");
    return notes;
}

// The text of the operation's doc comment, then what the tool adds: its
// command line, what it prints, how failure shows, the login it needs.
void printOneHelp(QTextStream &out, const Operation &operation)
{
    out << operation.usage() << '\n';
    printWrapped(out, QStringLiteral("  ") + operation.summary, operation.doc->details, 2);
    out << "  Declared as " << operation.cppSignature() << " (" << slotNote(operation) << ").\n";
    for (const bool given : { true, false }) {
        bool any = false;
        for (const Parameter &parameter : operation.parameters) {
            if ((parameter.direction != Direction::Out) != given)
                continue;
            if (!any)
                out << (given ? "  Arguments:\n" : "  Filled in:\n");
            any = true;
            // How to write a value matters only for what is given.
            out << "    " << parameter.name << ": "
                << (given ? parameterNotes(parameter) : kindName(parameter.kind)) << '\n';
            printWrapped(out, QString(6, QLatin1Char(' ')), parameter.description, 6);
        }
    }
    if (!operation.doc->returns.isEmpty())
        printWrapped(out, QStringLiteral("  Returns:"), operation.doc->returns, 4);
    QStringList printed;
    if (operation.result != Kind::Void)
        printed.append(QStringLiteral("the result (%1)").arg(kindName(operation.result)));
    for (const Parameter &parameter : operation.parameters)
        if (parameter.direction != Direction::In)
            printed.append(QStringLiteral("%1 (%2)").arg(parameter.name, kindName(parameter.kind)));
    out << "  Prints: "
        << (printed.isEmpty() ? QStringLiteral("nothing") : printed.join(QStringLiteral(", ")))
        << ".\n";
    out << "  " << describeFailure(operation.failure) << ' ' << sessionNote(operation.session)
        << '\n';
}

} // namespace

QJsonObject describeAsJson(const Operation &operation)
{
    QJsonArray parameters;
    for (const Parameter &parameter : operation.parameters)
        parameters.append(QJsonObject {
            { QStringLiteral("name"), parameter.name },
            { QStringLiteral("kind"), kindName(parameter.kind) },
            { QStringLiteral("type"), parameter.cppType },
            { QStringLiteral("direction"), directionName(parameter.direction) },
            { QStringLiteral("optional"), parameter.optional },
            { QStringLiteral("description"), parameter.description },
        });
    QJsonObject object {
        { QStringLiteral("name"), operation.name },
        { QStringLiteral("parameters"), parameters },
        { QStringLiteral("result"), kindName(operation.result) },
        { QStringLiteral("resultType"), operation.resultCppType },
        { QStringLiteral("signature"), operation.cppSignature() },
        { QStringLiteral("usage"), operation.usage() },
        { QStringLiteral("summary"), operation.summary },
        { QStringLiteral("details"), operation.doc->details },
        { QStringLiteral("returns"), operation.doc->returns },
        { QStringLiteral("command"), operation.doc->command },
        { QStringLiteral("takesLock"), operation.doc->locked },
        { QStringLiteral("failure"), describeFailure(operation.failure) },
        { QStringLiteral("needsLogin"),
          operation.session == SessionUse::LoggedIn
              || operation.session == SessionUse::ExpiredLoginIsEnough },
    };
    // Members beside the interface have no slot.
    object.insert(QStringLiteral("slot"),
                  operation.index > 0 ? QJsonValue(operation.index) : QJsonValue(QJsonValue::Null));
    return object;
}

void printUsage(QTextStream &out)
{
    out << "Usage: nuvclassify [OPTIONS] OPERATION [ARGUMENTS...]\n"
           "       nuvclassify [OPTIONS] --script FILE\n"
           "       nuvclassify list | help [OPERATION]\n"
           "       nuvclassify init --embedded FILE --admin NAME [--full-name TEXT]\n"
           "\n"
           "Calls the operations of the classify plugin by name, loading the plugin as a\n"
           "host application does. Options go before the operation; everything after its\n"
           "name is an argument. Arguments are written by kind: text as it is, lists as\n"
           "JSON arrays ('[\"a\",\"b\"]'), byte arrays as @FILE or base64, bools as true or\n"
           "false, numbers in decimal, date-times in ISO 8601. Overloads are told apart by\n"
           "their number of arguments.\n"
           "\n"
           "Options:\n"
        << optionsHelp()
        << "\n"
           "Exit status: 0 success, 1 a call failed, 2 a usage mistake, 3 the plugin,\n"
           "transport or database is missing, 4 the broker or server did not answer the\n"
           "login, 5 the server refused the login.\n";
}

void printOperationList(QTextStream &out, bool json)
{
    if (json) {
        QJsonArray array;
        for (const Operation &operation : operations())
            array.append(describeAsJson(operation));
        out << QJsonDocument(array).toJson(QJsonDocument::Compact) << '\n';
        return;
    }
    for (const Operation &operation : operations()) {
        const QString slot
            = operation.index > 0 ? QString::number(operation.index) : QStringLiteral("-");
        out << QStringLiteral("%1  %2  %3\n")
                   .arg(slot, 3)
                   .arg(operation.usage(), -48)
                   .arg(operation.summary);
    }
}

bool printOperationHelp(QTextStream &out, const QString &name, bool json)
{
    const QVector<const Operation *> forms = operationsNamed(name);
    if (forms.isEmpty())
        return false;
    if (json) {
        QJsonArray array;
        for (const Operation *operation : forms)
            array.append(describeAsJson(*operation));
        out << QJsonDocument(array).toJson(QJsonDocument::Compact) << '\n';
        return true;
    }
    for (int i = 0; i < forms.size(); ++i) {
        if (i > 0)
            out << '\n';
        printOneHelp(out, *forms.at(i));
    }
    return true;
}

} // namespace nuvcli
