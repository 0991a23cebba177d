// SPDX-License-Identifier: Apache-2.0
// Every operation of ClassifyInterface is in the tool's table, in the
// interface's order with the interface's signature, and can be called by
// its name from the command line.

#include "clitest.h"
#include "operationdocs.h"
#include "operations.h"

#include <QFile>
#include <QJsonArray>
#include <QRegularExpression>
#include <QtTest>

using namespace clitest;
using namespace testsupport;

namespace {

struct Declaration
{
    QString name;
    QString signature; // "bool classify(QString&,QStringList)", without blanks
};

QString withoutBlanks(QString text)
{
    return text.remove(QRegularExpression(QStringLiteral("\\s+")));
}

// Splits a parameter list at the commas outside template brackets.
QStringList splitParameters(const QString &text)
{
    QStringList parts;
    QString part;
    int depth = 0;
    for (const QChar c : text) {
        depth += c == QLatin1Char('<') ? 1 : c == QLatin1Char('>') ? -1 : 0;
        if (c == QLatin1Char(',') && depth == 0) {
            parts.append(part);
            part.clear();
        } else {
            part += c;
        }
    }
    if (!part.trimmed().isEmpty())
        parts.append(part);
    return parts;
}

// The pure virtual operations of the interface header, in declaration order,
// read from the header itself so that the table is checked against the
// source of truth.
QList<Declaration> interfaceDeclarations()
{
    QFile file(QStringLiteral(NUV_CLI_INTERFACE_HEADER));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("cannot read %s", NUV_CLI_INTERFACE_HEADER);
    QString text = QString::fromUtf8(file.readAll());
    text.remove(QRegularExpression(QStringLiteral("//[^\n]*")));
    text.remove(QRegularExpression(QStringLiteral("/\\*.*?\\*/"),
                                   QRegularExpression::DotMatchesEverythingOption));

    const QRegularExpression pure(
        QStringLiteral("virtual\\s+([^;(]*?)\\b(\\w+)\\s*\\(([^)]*)\\)\\s*=\\s*0\\s*;"));
    QList<Declaration> declarations;
    auto matches = pure.globalMatch(text);
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        QStringList types;
        for (const QString &parameter : splitParameters(match.captured(3))) {
            // Drop the parameter's name, the last word.
            QString type = parameter.trimmed();
            type.remove(QRegularExpression(QStringLiteral("\\w+$")));
            types.append(withoutBlanks(type));
        }
        Declaration declaration;
        declaration.name = match.captured(2);
        declaration.signature = withoutBlanks(match.captured(1)) + declaration.name
            + QLatin1Char('(') + types.join(QLatin1Char(',')) + QLatin1Char(')');
        declarations.append(declaration);
    }
    return declarations;
}

// A valid command-line word for every kind an argument can have.
QString sampleArgument(nuvcli::Kind kind)
{
    switch (kind) {
    case nuvcli::Kind::Bool:
        return QStringLiteral("true");
    case nuvcli::Kind::Int:
        return QStringLiteral("7");
    case nuvcli::Kind::Int64:
        return QStringLiteral("8589934592");
    case nuvcli::Kind::StringList:
        return QStringLiteral("[\"a\",\"b\"]");
    case nuvcli::Kind::Bytes:
        return QStringLiteral("aGk=");
    case nuvcli::Kind::BytesList:
        return QStringLiteral("[\"aGk=\"]");
    case nuvcli::Kind::DateTime:
        return QStringLiteral("2024-03-05T09:07:03");
    default:
        return QStringLiteral("s");
    }
}

} // namespace

class CliOperationsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void headerHas127Operations();
    void tableFollowsInterface_data();
    void tableFollowsInterface();
    void invokableMembersFollowTheInterface();
    void listShowsTheInterface();
    void everyOperationReachableByName_data();
    void everyOperationReachableByName();
    void helpShowsTheDocumentation_data();
    void helpShowsTheDocumentation();
    void overloadsToldApartByArgumentCount_data();
    void overloadsToldApartByArgumentCount();
};

void CliOperationsTest::headerHas127Operations()
{
    QCOMPARE(interfaceDeclarations().size(), 127);
}

void CliOperationsTest::tableFollowsInterface_data()
{
    QTest::addColumn<int>("slot");
    QTest::addColumn<QString>("declared");
    const QList<Declaration> declarations = interfaceDeclarations();
    for (int i = 0; i < declarations.size(); ++i)
        QTest::addRow("slot %d %s", i + 1, qPrintable(declarations.at(i).name))
            << i + 1 << declarations.at(i).signature;
}

void CliOperationsTest::tableFollowsInterface()
{
    QFETCH(int, slot);
    QFETCH(QString, declared);
    const nuvcli::Operation &row = nuvcli::operations().at(slot - 1);
    QCOMPARE(row.index, slot);
    QCOMPARE(withoutBlanks(row.cppSignature()), declared);
}

void CliOperationsTest::invokableMembersFollowTheInterface()
{
    const QVector<nuvcli::Operation> &table = nuvcli::operations();
    QCOMPARE(table.size(), 127 + 2);
    QCOMPARE(withoutBlanks(table.at(127).cppSignature()),
             QStringLiteral("boolsetRoleRoles(QString,QStringList)"));
    QCOMPARE(withoutBlanks(table.at(128).cppSignature()),
             QStringLiteral("QStringListgetRevisionen(QString)"));
    QCOMPARE(table.at(127).index, 0);
    QCOMPARE(table.at(128).index, 0);
}

void CliOperationsTest::listShowsTheInterface()
{
    const Outcome outcome = run({ QStringLiteral("--json"), QStringLiteral("list") });
    QCOMPARE(outcome.status, 0);
    const QJsonArray listed = QJsonDocument::fromJson(outcome.out.toUtf8()).array();

    QStringList expected;
    for (const Declaration &declaration : interfaceDeclarations())
        expected.append(declaration.signature);
    expected << QStringLiteral("boolsetRoleRoles(QString,QStringList)")
             << QStringLiteral("QStringListgetRevisionen(QString)");
    QStringList shown;
    for (const QJsonValue &entry : listed)
        shown.append(withoutBlanks(entry.toObject().value(QStringLiteral("signature")).toString()));
    QCOMPARE(shown, expected);
    QCOMPARE(listed.at(24).toObject().value(QStringLiteral("slot")).toInt(), 25);
    QVERIFY(listed.at(127).toObject().value(QStringLiteral("slot")).isNull());

    // The readable list has one line per operation, too.
    const Outcome readable = run({ QStringLiteral("list") });
    QCOMPARE(readable.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts).size(), 129);
}

void CliOperationsTest::everyOperationReachableByName_data()
{
    QTest::addColumn<int>("row");
    const QVector<nuvcli::Operation> &table = nuvcli::operations();
    const QList<Declaration> declarations = interfaceDeclarations();
    // Named from the header, so that a name missing from the table fails.
    for (int i = 0; i < declarations.size(); ++i)
        QTest::addRow("slot %d %s", i + 1, qPrintable(declarations.at(i).name)) << i;
    QTest::addRow("invokable %s", qPrintable(table.at(127).name)) << 127;
    QTest::addRow("invokable %s", qPrintable(table.at(128).name)) << 128;
}

void CliOperationsTest::everyOperationReachableByName()
{
    QFETCH(int, row);
    const QList<Declaration> declarations = interfaceDeclarations();
    const nuvcli::Operation &operation = nuvcli::operations().at(row);
    const QString name = row < declarations.size() ? declarations.at(row).name : operation.name;

    QStringList words { name };
    for (const nuvcli::Parameter &parameter : operation.parameters)
        if (parameter.direction != nuvcli::Direction::Out)
            words.append(sampleArgument(parameter.kind));

    QString error;
    QCOMPARE(nuvcli::resolveOperation(name, words.size() - 1, &error), &operation);

    serve(everythingReply());
    const Outcome outcome = call(words, { QStringLiteral("--json") });
    QVERIFY2(outcome.status == 0, qPrintable(outcome.err));
    const QJsonObject record = outcome.lastJson();
    QCOMPARE(record.value(QStringLiteral("operation")).toString(), name);
    QCOMPARE(record.value(QStringLiteral("ok")).toBool(), true);

    // Operations of the server reach it after the login, exactly once; the
    // accessors of the session state answer without a request.
    static const QStringList sessionAccessors {
        "getUsername",         "getHost",           "getPort", "getFullUserName",
        "getAvailablePlugins", "getCurrentArchive", "getPass", "getAuthToken"
    };
    const bool accessor = sessionAccessors.contains(name)
        || (name == QLatin1String("getUserRoles") && operation.parameters.isEmpty());
    const bool local = accessor || operation.session == nuvcli::SessionUse::None
        || operation.session == nuvcli::SessionUse::LogsOut;
    if (operation.session == nuvcli::SessionUse::LogsIn)
        QCOMPARE(loginCount(), 1);
    else if (local)
        QCOMPARE(requests().size(), 0);
    else
        QCOMPARE(requests().size(), 1);
}

void CliOperationsTest::helpShowsTheDocumentation_data()
{
    QTest::addColumn<int>("row");
    const QVector<nuvcli::Operation> &table = nuvcli::operations();
    for (int i = 0; i < table.size(); ++i)
        QTest::addRow("%d %s", table.at(i).index, qPrintable(table.at(i).name)) << i;
}

// help prints the operation's doc comment from the interface header: its
// summary and description, each parameter under its declared name with its
// text, and the result; --json adds the command and the lock.
void CliOperationsTest::helpShowsTheDocumentation()
{
    QFETCH(int, row);
    const nuvcli::Operation &operation = nuvcli::operations().at(row);
    const nuvdoc::OperationDoc *doc = nuvdoc::findOperationDoc(operation.index, operation.name);
    QVERIFY(doc);
    QCOMPARE(operation.doc, doc);

    const Outcome readable = run({ QStringLiteral("help"), operation.name });
    QCOMPARE(readable.status, 0);
    // Line breaks and indentation aside, the texts appear whole.
    const QString shown = readable.out.simplified();
    QVERIFY2(shown.contains(doc->brief + QLatin1Char(' ') + doc->details), qPrintable(shown));
    QCOMPARE(doc->returns.isEmpty(), operation.result == nuvcli::Kind::Void);
    if (!doc->returns.isEmpty())
        QVERIFY2(shown.contains(QStringLiteral("Returns: ") + doc->returns), qPrintable(shown));
    QCOMPARE(operation.parameters.size(), doc->parameters.size());
    for (int i = 0; i < doc->parameters.size(); ++i) {
        const nuvdoc::ParameterDoc &parameter = doc->parameters.at(i);
        QCOMPARE(operation.parameters.at(i).name, parameter.name);
        QVERIFY2(shown.contains(parameter.name + QStringLiteral(": ")), qPrintable(parameter.name));
        QVERIFY2(shown.contains(parameter.text), qPrintable(parameter.text));
    }

    const Outcome json = run({ QStringLiteral("--json"), QStringLiteral("help"), operation.name });
    QCOMPARE(json.status, 0);
    const QJsonArray forms = QJsonDocument::fromJson(json.out.toUtf8()).array();
    const QString signature = operation.cppSignature();
    bool found = false;
    for (const QJsonValue &form : forms) {
        const QJsonObject object = form.toObject();
        if (object.value(QStringLiteral("signature")).toString() != signature)
            continue;
        found = true;
        QCOMPARE(object.value(QStringLiteral("command")).toString(), doc->command);
        QCOMPARE(object.value(QStringLiteral("takesLock")).toBool(), doc->locked);
        QCOMPARE(object.value(QStringLiteral("returns")).toString(), doc->returns);
    }
    QVERIFY(found);
}

void CliOperationsTest::overloadsToldApartByArgumentCount_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("dataList");

    QTest::newRow("getRoles without an argument lists the roles")
        << QStringList { "getRoles" } << "CFROLES" << QStringList();
    QTest::newRow("getRoles with a role lists its parents")
        << QStringList { "getRoles", "r1" } << "CFPARENTROLES" << QStringList { "r1" };
    QTest::newRow("getUserRoles with a user asks the server")
        << QStringList { "getUserRoles", "erika" } << "CFDOCGETUSERROLES" << QStringList();
    QTest::newRow("newClassify with three arguments")
        << QStringList { "newClassify", "12", "a", "b" } << "CFDOCNEWCLASSIFY"
        << QStringList { "a", "b" };
    QTest::newRow("newClassify with four arguments names a folder")
        << QStringList { "newClassify", "12", "a", "b", "f" } << "CFDOCNEWCLASSIFYWITHFOLDER"
        << QStringList { "a", "b", "f" };
    QTest::newRow("loadUserData with one key loads every item")
        << QStringList { "loadUserData", "k" } << "CFLOADUSERDATA" << QStringList { "k" };
    QTest::newRow("loadUserData with two keys loads one item")
        << QStringList { "loadUserData", "k1", "k2" } << "CFLOADUSERDATA"
        << QStringList { "k1", "k2" };
    QTest::newRow("loadUserData with two keys and the second bytes")
        << QStringList { "loadUserData", "k1", "k2", "aGk=" } << "CFLOADUSERDATA"
        << QStringList { "k1", "k2" };
    QTest::newRow("connectToNuvKESP with four arguments sends no extra")
        << QStringList { "connectToNuvKESP", "h", "1", "u", "p" } << "CFLOGIN"
        << QStringList { "u", "p", "" };
    QTest::newRow("connectToNuvKESP with five arguments sends the extra")
        << QStringList { "connectToNuvKESP", "h", "1", "u", "p", "x" } << "CFLOGIN"
        << QStringList { "u", "p", "x" };
}

void CliOperationsTest::overloadsToldApartByArgumentCount()
{
    QFETCH(QStringList, words);
    QFETCH(QString, command);
    QFETCH(QStringList, dataList);

    serve(everythingReply());
    const Outcome outcome = call(words);
    QVERIFY2(outcome.status == 0, qPrintable(outcome.err));
    const nuvMQClassifyMessage request = lastRequest();
    QCOMPARE(request.command, command);
    QCOMPARE(request.getDataList(), dataList);
}

QTEST_GUILESS_MAIN(CliOperationsTest)
#include "tst_clioperations.moc"
