// SPDX-License-Identifier: Apache-2.0
// Arguments by kind: each kind reaches the request as the interface expects,
// malformed ones are refused with a clear message and exit status 2 before
// anything is sent; script lines split like shell words; credentials come
// from options, the environment or the terminal.

#include "clitest.h"
#include "options.h"
#include "script.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace clitest;
using namespace testsupport;

class CliArgumentsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void eachKindReachesTheRequest_data();
    void eachKindReachesTheRequest();
    void malformedInputIsRefused_data();
    void malformedInputIsRefused();
    void scriptLinesSplitLikeShellWords_data();
    void scriptLinesSplitLikeShellWords();
    void malformedScriptRunsNothing_data();
    void malformedScriptRunsNothing();
    void credentials_data();
    void credentials();
    void brokerAndPathsAsGiven_data();
    void brokerAndPathsAsGiven();

private:
    QTemporaryDir dir;
    QString fileWithBytes;
};

void CliArgumentsTest::initTestCase()
{
    QVERIFY(dir.isValid());
    fileWithBytes = dir.filePath(QStringLiteral("payload.bin"));
    QFile file(fileWithBytes);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QByteArray("\x00\x01 file bytes\xff", 15));
}

void CliArgumentsTest::eachKindReachesTheRequest_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("docId");
    QTest::addColumn<QStringList>("dataList");
    QTest::addColumn<QList<QByteArray>>("data");

    const QString file = QStringLiteral("@") + fileWithBytes;
    const QByteArray fileBytes("\x00\x01 file bytes\xff", 15);
    using L = QStringList;
    using B = QList<QByteArray>;

    QTest::newRow("string as given")
        << L { "getRoleUsers", "Sachbearbeitung" } << "CFDOCGETROLEUSERS"
        << "Sachbearbeitung" << L() << B();
    QTest::newRow("empty string") << L { "getRoleUsers", "" } << "CFDOCGETROLEUSERS"
                                  << "" << L() << B();
    QTest::newRow("string with blanks and umlauts")
        << L { "getRoleUsers", "Prüfer Süd" } << "CFDOCGETROLEUSERS"
        << "Prüfer Süd" << L() << B();
    QTest::newRow("string that looks like an option after the name")
        << L { "getRoleUsers", "--json" } << "CFDOCGETROLEUSERS"
        << "--json" << L() << B();
    QTest::newRow("list as a JSON array") << L { "setRoles", "[\"a\",\"b c\"]" } << "CFDOCSETROLES"
                                          << "" << L { "a", "b c" } << B();
    QTest::newRow("empty JSON array") << L { "setRoles", "[]" } << "CFDOCSETROLES"
                                      << "" << L() << B();
    QTest::newRow("list entry with a record separator escape")
        << L { "setRoles", "[\"a\\ufeffb\"]" } << "CFDOCSETROLES"
        << "" << L { QStringLiteral("a") + QChar(0xFEFF) + QStringLiteral("b") } << B();
    QTest::newRow("bytes from base64")
        << L { "insertMandant", "t1", "Tenant", "aGVsbG8=" } << "CFNEWMANDANT"
        << "" << L { "t1", "Tenant" } << B { "hello" };
    QTest::newRow("bytes from a file")
        << L { "insertMandant", "t1", "Tenant", file } << "CFNEWMANDANT"
        << "" << L { "t1", "Tenant" } << B { fileBytes };
    QTest::newRow("empty bytes") << L { "insertMandant", "t1", "Tenant", "" } << "CFNEWMANDANT"
                                 << "" << L { "t1", "Tenant" } << B { QByteArray() };
    QTest::newRow("bytes list mixing a file and base64")
        << L { "setSystemFolders", "[\"f\"]", "[\"" + file + "\",\"aGk=\"]" }
        << "CFDOCSETSYSFOLDERS"
        << "0" << L { "f" } << B { fileBytes, "hi" };
    QTest::newRow("bool true") << L { "getClassificationFields", "true" } << "CFCLASSIFYFIELDS"
                               << "1" << L() << B();
    QTest::newRow("bool written as no")
        << L { "getClassificationFields", "no" } << "CFCLASSIFYFIELDS"
        << "0" << L() << B();
    QTest::newRow("bool written as 1") << L { "getClassificationFields", "1" } << "CFCLASSIFYFIELDS"
                                       << "1" << L() << B();
    QTest::newRow("int") << L { "deleteDynAttribute", "42" } << "CFDELDYNATT"
                         << "" << L { "42" } << B();
    QTest::newRow("negative int") << L { "updateExtentedSearch", "-3", "a", "b", "[]" }
                                  << "CFEXTSEARCHUPD"
                                  << ""
                                  << L { QStringLiteral("-3") + QChar(0xFEFF) + "a" + QChar(0xFEFF)
                                         + "b" + QChar(0xFEFF) }
                                  << B();
    QTest::newRow("negative int64 right after the name")
        << L { "newClassify", "-5", "a", "b" } << "CFDOCNEWCLASSIFY"
        << "-5" << L { "a", "b" } << B();
    QTest::newRow("int64 beyond 32 bits")
        << L { "deleteClassifyTemp", "8589934592" } << "CFDOCDELETECLASSIFYTEMP"
        << "8589934592" << L() << B();
    QTest::newRow("date-time in ISO 8601")
        << L { "addShare", "first", "[\"d1\"]", "third", "2024-03-05T09:07:03", "3" }
        << "CFADDSHARE"
        << "" << L { "d1" } << B { "third", "3", "2024-03-05 09:07:03", "first" };
    QTest::newRow("date-time with a zone keeps its clock time")
        << L { "addShare", "f", "[]", "t", "2024-03-05T21:07:03Z", "-1" } << "CFADDSHARE"
        << "" << L() << B { "t", "-1", "2024-03-05 21:07:03", "f" };
    QTest::newRow("in-out string is sent") << L { "classify", "7", "[\"v\"]" } << "CFDOCCLASSIFY"
                                           << "7" << L { "v" } << B();
    QTest::newRow("optional in-out list left off") << L { "getUsers" } << "CFDOCGETUSERS"
                                                   << "0" << L() << B();
    QTest::newRow("optional in-out list given") << L { "getUsers", "[\"x\"]" } << "CFDOCGETUSERS"
                                                << "0" << L { "x" } << B();
}

void CliArgumentsTest::eachKindReachesTheRequest()
{
    QFETCH(QStringList, words);
    QFETCH(QString, command);
    QFETCH(QString, docId);
    QFETCH(QStringList, dataList);
    QFETCH(QList<QByteArray>, data);

    serve(everythingReply());
    const Outcome outcome = call(words);
    QVERIFY2(outcome.status == 0, qPrintable(outcome.err));
    QCOMPARE(requests().size(), 1);
    const nuvMQClassifyMessage request = requests().first();
    QCOMPARE(request.command, command);
    QCOMPARE(request.getDocId(), docId);
    QCOMPARE(request.getDataList(), dataList);
    QCOMPARE(request.getData(), data);
}

void CliArgumentsTest::malformedInputIsRefused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("message");
    using L = QStringList;

    QTest::newRow("list that is not JSON")
        << L { "setRoles", "a,b" } << "'a,b' is not a JSON array of strings";
    QTest::newRow("list holding a number")
        << L { "setRoles", "[\"a\",1]" } << "element 2 of [\"a\",1] is not a string";
    QTest::newRow("JSON object for a list")
        << L { "setRoles", "{\"a\":1}" } << "is not a JSON array of strings";
    QTest::newRow("bytes that are not base64") << L { "insertMandant", "a", "b", "no way!" }
                                               << "'no way!' is neither @FILE nor base64 text";
    QTest::newRow("bytes from a missing file")
        << L { "insertMandant", "a", "b", "@/nonexistent/file" } << "cannot read /nonexistent/file";
    QTest::newRow("bytes list with a bad element")
        << L { "setSystemFolders", "[]", "[\"aGk=\",\"*\"]" } << "'*' is neither @FILE nor base64";
    QTest::newRow("bool written as maybe")
        << L { "getClassificationFields", "maybe" } << "'maybe' is not a bool";
    QTest::newRow("int beyond 32 bits") << L { "deleteDynAttribute", "2147483648" }
                                        << "'2147483648' is not a 32-bit decimal number";
    QTest::newRow("int with letters")
        << L { "deleteDynAttribute", "12abc" } << "'12abc' is not a 32-bit decimal number";
    QTest::newRow("int64 that is text")
        << L { "deleteClassifyTemp", "seven" } << "'seven' is not a 64-bit decimal number";
    QTest::newRow("date-time with month 13")
        << L { "addShare", "f", "[]", "t", "2024-13-05T09:07:03", "1" }
        << "'2024-13-05T09:07:03' is not an ISO 8601 date-time";
    QTest::newRow("message names the argument")
        << L { "setUserRoles", "u", "r" } << "setUserRoles: argument 2 (roles, a list)";
    QTest::newRow("too many arguments")
        << L { "getArchives", "x" } << "getArchives does not take 1 argument";
    QTest::newRow("too few arguments shows every form")
        << L { "newClassify", "1" }
        << "newClassify objectId:int64 documentType:string title:string folder:string";
    QTest::newRow("unknown operation") << L { "frobnicate" } << "unknown operation 'frobnicate'";
    QTest::newRow("wrong letter case") << L { "getarchives" } << "did you mean getArchives?";
    QTest::newRow("help for an unknown operation")
        << L { "help", "frobnicate" } << "unknown operation 'frobnicate'";
    QTest::newRow("two transports")
        << L { "--embedded", "x.db", "getArchives" } << "give either --embedded or --broker";
    QTest::newRow("broker port out of range")
        << L { "--broker", "host:99999", "getArchives" } << "'99999' is not a port number";
    QTest::newRow("unknown option")
        << L { "--frobnicate", "getArchives" } << "Unknown option 'frobnicate'";
    QTest::newRow("script and operation together")
        << L { "--script", "x", "getArchives" } << "give either an operation or --script";
    QTest::newRow("missing script file")
        << L { "--script", "/nonexistent/calls" } << "cannot read /nonexistent/calls";
}

void CliArgumentsTest::malformedInputIsRefused()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, message);

    serve(everythingReply());
    // connectionOptions() already names a broker; the transport rows add
    // theirs in front of it.
    const Outcome outcome = run(connectionOptions() + arguments);
    QCOMPARE(outcome.status, 2);
    QVERIFY2(outcome.err.contains(message), qPrintable(outcome.err));
    QVERIFY(outcome.err.startsWith(QLatin1String("nuvclassify: ")));
    QCOMPARE(outcome.out, QString());
    QCOMPARE(scripted()->exchanges().size(), 0);
}

void CliArgumentsTest::scriptLinesSplitLikeShellWords_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QStringList>("words");

    QTest::newRow("blanks separate")
        << "getRoles  r1\tr2" << QStringList { "getRoles", "r1", "r2" };
    QTest::newRow("single quotes keep everything")
        << "setRoles '[\"a\", \"b\"]'" << QStringList { "setRoles", "[\"a\", \"b\"]" };
    QTest::newRow("double quotes let escaped quotes through")
        << "x \"say \\\"hi\\\" \\\\ \\n\"" << QStringList { "x", "say \"hi\" \\ \\n" };
    QTest::newRow("empty quotes make an empty word") << "x '' \"\"" << QStringList { "x", "", "" };
    QTest::newRow("backslash escapes a blank") << "x a\\ b" << QStringList { "x", "a b" };
    QTest::newRow("quotes join with plain text")
        << "x pre'fix'\"ed\"" << QStringList { "x", "prefixed" };
    QTest::newRow("comment line") << "  # getRoles" << QStringList();
    QTest::newRow("comment after a call") << "getRoles # all of them" << QStringList { "getRoles" };
    QTest::newRow("hash inside a word is kept") << "x a#b" << QStringList { "x", "a#b" };
    QTest::newRow("blank line") << "   " << QStringList();
    QTest::newRow("variable") << "x $docId" << QStringList { "x", "${docId}" };
    QTest::newRow("braced variable inside double quotes")
        << "x \"[\\\"${docId}\\\"]\"" << QStringList { "x", "[\"${docId}\"]" };
    QTest::newRow("variable joined with text")
        << "x id-$n.txt" << QStringList { "x", "id-${n}.txt" };
    QTest::newRow("single quotes keep a dollar") << "x '$docId'" << QStringList { "x", "$docId" };
    QTest::newRow("escaped dollar") << "x \\$docId" << QStringList { "x", "$docId" };
    QTest::newRow("dollar without a name") << "x 5$ $1" << QStringList { "x", "5$", "$1" };
}

void CliArgumentsTest::scriptLinesSplitLikeShellWords()
{
    QFETCH(QString, line);
    QFETCH(QStringList, words);
    QStringList split;
    QString error;
    QVERIFY2(nuvcli::splitWords(line, &split, &error), qPrintable(error));
    QCOMPARE(split, words);
}

void CliArgumentsTest::malformedScriptRunsNothing_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("message");

    QTest::newRow("unclosed single quote on line 2") << "getRoles\nsetRoles '[\"a\"]\n"
                                                     << "line 2: a single quote is not closed";
    QTest::newRow("unclosed double quote") << "getRoleUsers \"r1\n"
                                           << "line 1: a double quote is not closed";
    QTest::newRow("bad argument on the last line") << "getRoles\n\n# a comment\nsetRoles nope\n"
                                                   << "line 4: setRoles: argument 1";
    QTest::newRow("unknown operation on line 1") << "frobnicate\ngetRoles\n"
                                                 << "line 1: unknown operation 'frobnicate'";
    QTest::newRow("variable that no earlier line sets")
        << "getDocHistory $docId\nclassify '' '[]'\n"
        << "line 1: $docId is not set by any earlier line";
    QTest::newRow("keeping the result of a call that returns nothing")
        << "let x = checkUpdate\n"
        << "line 1: checkUpdate returns nothing to keep in $x";
    QTest::newRow("operation name from a variable")
        << "getRoles\n$result\n"
        << "line 2: the operation's name cannot come from a variable";
    QTest::newRow("broken variable braces") << "getRoleUsers ${a b}\n"
                                            << "line 1: a ${...} names no variable";
}

void CliArgumentsTest::malformedScriptRunsNothing()
{
    QFETCH(QString, script);
    QFETCH(QString, message);

    const QString path = dir.filePath(QStringLiteral("bad.calls"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(script.toUtf8());
    file.close();

    serve(everythingReply());
    const Outcome outcome = call({}, { QStringLiteral("--script"), path });
    QCOMPARE(outcome.status, 2);
    QVERIFY2(outcome.err.contains(message), qPrintable(outcome.err));
    QCOMPARE(scripted()->exchanges().size(), 0);
}

void CliArgumentsTest::credentials_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QStringMap>("environment");
    QTest::addColumn<bool>("terminal");
    QTest::addColumn<int>("status");
    QTest::addColumn<QStringList>("login"); // the CFLOGIN data list, empty when none was sent
    QTest::addColumn<QStringList>("prompts"); // "secret:" or "plain:" and the prompt
    using L = QStringList;
    using E = QStringMap;

    QTest::newRow("options") << L { "--user", "opt", "--password", "optpw" } << E() << false << 0
                             << L { "opt", "optpw", "" } << L();
    QTest::newRow("environment") << L() << E { { "NUV_USER", "env" }, { "NUV_PASSWORD", "envpw" } }
                                 << false << 0 << L { "env", "envpw", "" } << L();
    QTest::newRow("options win over the environment")
        << L { "--user", "opt", "--password", "optpw" }
        << E { { "NUV_USER", "env" }, { "NUV_PASSWORD", "envpw" } } << false << 0
        << L { "opt", "optpw", "" } << L();
    QTest::newRow("an empty password given on purpose")
        << L { "--user", "opt" } << E { { "NUV_PASSWORD", "" } } << false << 0
        << L { "opt", "", "" } << L();
    QTest::newRow("no password and no terminal")
        << L { "--user", "opt" } << E() << false << 2 << L() << L();
    QTest::newRow("no user and no terminal")
        << L() << E { { "NUV_PASSWORD", "envpw" } } << false << 2 << L() << L();
    QTest::newRow("password prompted without echo on a terminal")
        << L { "--user", "opt" } << E() << true << 0 << L { "opt", "typed", "" }
        << L { "secret:Password for opt: " };
    QTest::newRow("user and password prompted on a terminal")
        << L() << E() << true << 0 << L { "typed", "typed", "" }
        << L { "plain:User: ", "secret:Password for typed: " };
}

void CliArgumentsTest::credentials()
{
    QFETCH(QStringList, options);
    QFETCH(QStringMap, environment);
    QFETCH(bool, terminal);
    QFETCH(int, status);
    QFETCH(QStringList, login);
    QFETCH(QStringList, prompts);

    serve(everythingReply());
    Terminal console;
    console.present = terminal;
    console.answers = QStringList { "typed", "typed" };
    const QStringList arguments
        = QStringList { "--plugin", classifyPluginFile(), "--transport-dir", scriptedTransportDir(),
                        "--broker", "localhost:1" }
        + options + QStringList { "getRoles" };
    const Outcome outcome = run(arguments, environment, &console);
    QCOMPARE(outcome.status, status);

    const QList<ScriptedExchange> exchanges = scripted()->exchanges();
    if (login.isEmpty()) {
        QCOMPARE(exchanges.size(), 0);
        QVERIFY(outcome.err.contains(QLatin1String("NUV_")));
    } else {
        QCOMPARE(exchanges.first().request.command, QStringLiteral("CFLOGIN"));
        QCOMPARE(exchanges.first().request.getDataList(), login);
    }
    QStringList shown;
    for (const auto &prompt : console.prompts)
        shown.append((prompt.second ? QStringLiteral("secret:") : QStringLiteral("plain:"))
                     + prompt.first);
    QCOMPARE(shown, prompts);
}

void CliArgumentsTest::brokerAndPathsAsGiven_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("brokerHost");
    QTest::addColumn<int>("brokerPort");
    QTest::addColumn<QString>("pluginFile");
    QTest::addColumn<QString>("transportDir");
    const QString here = QDir::currentPath();
    QTest::newRow("TLS broker keeps its scheme")
        << QStringList { "--broker", "ssl://broker.example:61614" } << "ssl://broker.example"
        << 61614 << QString() << QString();
    QTest::newRow("TLS broker over IPv6") << QStringList { "--broker", "ssl://[::1]:61614" }
                                          << "ssl://::1" << 61614 << QString() << QString();
    QTest::newRow("plain scheme, default port")
        << QStringList { "--broker", "tcp://broker.example" } << "tcp://broker.example" << 61613
        << QString() << QString();
    QTest::newRow("relative plugin and transport directory")
        << QStringList { "--broker", "h:1", "--plugin", "lib/x.so", "--transport-dir", "t" } << "h"
        << 1 << here + "/lib/x.so" << here + "/t";
    QTest::newRow("absolute plugin as given")
        << QStringList { "--broker", "h:1", "--plugin", "/opt/x.so" } << "h" << 1 << "/opt/x.so"
        << QString();
}

void CliArgumentsTest::brokerAndPathsAsGiven()
{
    QFETCH(QStringList, options);
    QFETCH(QString, brokerHost);
    QFETCH(int, brokerPort);
    QFETCH(QString, pluginFile);
    QFETCH(QString, transportDir);
    nuvcli::Options parsed;
    QString error;
    QVERIFY2(nuvcli::parseOptions(QStringList { "nuvclassify" } + options
                                      + QStringList { "getArchives" },
                                  QProcessEnvironment(), &parsed, &error),
             qPrintable(error));
    QCOMPARE(parsed.brokerHost, brokerHost);
    QCOMPARE(parsed.brokerPort, brokerPort);
    if (!pluginFile.isNull())
        QCOMPARE(parsed.pluginFile, pluginFile);
    if (!transportDir.isNull())
        QCOMPARE(parsed.transportDir, transportDir);
}

QTEST_GUILESS_MAIN(CliArgumentsTest)
#include "tst_cliarguments.moc"
