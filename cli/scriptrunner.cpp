// SPDX-License-Identifier: Apache-2.0
#include "scriptrunner.h"

#include "call.h"
#include "output.h"
#include "pluginclient.h"
#include "script.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>

#include <algorithm>

namespace nuvcli {

namespace {

// A checked line: its operation is known; lines without variables are
// parsed completely before the first one runs.
struct PlannedLine
{
    ScriptLine line;
    PreparedCall call;
    bool ready = false; // false: arguments are expanded and parsed when it runs
};

int scriptError(Console &console, const QString &text)
{
    console.err << "nuvclassify: " << text << '\n';
    console.err.flush();
    return ExitUsage;
}

QString variableText(const Value &value)
{
    switch (value.kind) {
    case Kind::Int:
    case Kind::Int64:
        return QString::number(value.number);
    case Kind::Bool:
    case Kind::Client:
        return value.flag ? QStringLiteral("true") : QStringLiteral("false");
    default:
        break;
    }
    const QJsonValue json = toJson(value);
    if (json.isArray())
        return QString::fromUtf8(QJsonDocument(json.toArray()).toJson(QJsonDocument::Compact));
    return json.toString();
}

void keepVariables(const CallRecord &record, const QString &capture,
                   QHash<QString, QString> *variables)
{
    if (record.result.kind != Kind::Void) {
        variables->insert(QStringLiteral("result"), variableText(record.result));
        if (!capture.isEmpty())
            variables->insert(capture, variableText(record.result));
    }
    const QVector<Parameter> &parameters = record.operation->parameters;
    for (int i = 0; i < parameters.size(); ++i)
        if (parameters.at(i).direction != Direction::In)
            variables->insert(parameters.at(i).name, variableText(record.arguments.at(size_t(i))));
}

bool readLines(const Options &options, Console &console, QList<ScriptLine> *lines, QString *error)
{
    if (options.scriptFile == QLatin1String("-")) {
        if (!console.input) {
            *error = QStringLiteral("no standard input to read a script from");
            return false;
        }
        return readScript(*console.input, lines, error);
    }
    QFile file(options.scriptFile);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read %1: %2").arg(options.scriptFile, file.errorString());
        return false;
    }
    if (readScript(file, lines, error))
        return true;
    *error = options.scriptFile + QStringLiteral(": ") + *error;
    return false;
}

// Checks every line before the first one runs, so that a mistake late in
// the script does not leave its first half done: operations and argument
// counts, arguments without variables, and that every variable is set by
// an earlier line.
bool plan(const QList<ScriptLine> &lines, QVector<PlannedLine> *planned, QString *error)
{
    QSet<QString> known;
    for (const ScriptLine &line : lines) {
        const QString where = QStringLiteral("line %1: ").arg(line.number);
        PlannedLine entry;
        entry.line = line;
        if (line.words.first().hasVariables()) {
            *error = where + QStringLiteral("the operation's name cannot come from a variable");
            return false;
        }
        for (const ScriptWord &word : line.words)
            for (const QString &name : word.variables())
                if (!known.contains(name)) {
                    *error = where + QStringLiteral("$%1 is not set by any earlier line").arg(name);
                    return false;
                }
        QString name;
        QString unused;
        line.words.first().expand({}, &name, &unused);
        const Operation *operation = resolveOperation(name, line.words.size() - 1, error);
        if (!operation) {
            *error = where + *error;
            return false;
        }
        entry.ready = std::none_of(line.words.begin(), line.words.end(),
                                   [](const ScriptWord &word) { return word.hasVariables(); });
        if (entry.ready) {
            QStringList plain;
            for (const ScriptWord &word : line.words) {
                QString text;
                QString missing;
                word.expand({}, &text, &missing);
                plain.append(text);
            }
            if (!prepareCall(plain, &entry.call, error)) {
                *error = where + *error;
                return false;
            }
        }
        if (!line.capture.isEmpty()) {
            if (operation->result == Kind::Void) {
                *error = where
                    + QStringLiteral("%1 returns nothing to keep in $%2")
                          .arg(operation->name, line.capture);
                return false;
            }
            known.insert(line.capture);
        }
        if (operation->result != Kind::Void)
            known.insert(QStringLiteral("result"));
        for (const Parameter &parameter : operation->parameters)
            if (parameter.direction != Direction::In)
                known.insert(parameter.name);
        planned->append(entry);
    }
    return true;
}

bool expandLine(PlannedLine &entry, const QHash<QString, QString> &variables, QString *error)
{
    QStringList words;
    for (const ScriptWord &word : entry.line.words) {
        QString text;
        QString missing;
        if (!word.expand(variables, &text, &missing)) {
            *error = QStringLiteral("$%1 has no value (the call that sets it failed)").arg(missing);
            return false;
        }
        words.append(text);
    }
    return prepareCall(words, &entry.call, error);
}

} // namespace

int runScript(const Options &options, Console &console)
{
    QList<ScriptLine> lines;
    QVector<PlannedLine> planned;
    QString error;
    if (!readLines(options, console, &lines, &error))
        return scriptError(console, error);
    if (!plan(lines, &planned, &error))
        return scriptError(console, options.scriptFile + QStringLiteral(": ") + error);

    Printer printer(console.out, options.json);
    printer.setNarrating(true);
    PluginClient client(options, console, printer);
    if (!client.open(&error)) {
        console.err << "nuvclassify: " << error << '\n';
        return ExitSetup;
    }
    QHash<QString, QString> variables;
    int status = ExitOk;
    for (PlannedLine &entry : planned) {
        printer.scriptLine(entry.line.number, entry.line.text);
        if (!entry.ready && !expandLine(entry, variables, &error))
            return scriptError(console,
                               QStringLiteral("line %1: %2").arg(entry.line.number).arg(error));

        const CallRecord record = client.run(entry.call, entry.line.number);
        printer.call(record);
        if (record.ok) {
            keepVariables(record, entry.line.capture, &variables);
            continue;
        }
        console.err << "nuvclassify: line " << record.line << ": " << record.operation->name << ": "
                    << record.error << '\n';
        console.err.flush();
        if (status == ExitOk)
            status = record.exitStatus;
        if (record.fatal || !options.keepGoing)
            break;
    }
    return status;
}

} // namespace nuvcli
