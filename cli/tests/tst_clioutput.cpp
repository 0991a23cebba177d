// SPDX-License-Identifier: Apache-2.0
// What the tool prints and how it exits: JSON that parses back to what the
// server sent, the readable form, the exit status of each way of failing,
// server requests as they arrive, scripts in one session, and the built
// executable itself.

#include "clitest.h"

#include <QJsonArray>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace clitest;
using namespace testsupport;

namespace {

const QChar separator(0xFEFF);

QJsonValue parsed(const QString &json)
{
    return QJsonDocument::fromJson(QByteArray("[") + json.toUtf8() + "]").array().at(0);
}

} // namespace

class CliOutputTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void jsonParsesBack_data();
    void jsonParsesBack();
    void readableOutput_data();
    void readableOutput();
    void exitStatus_data();
    void exitStatus();
    void unreachableLogin_data();
    void unreachableLogin();
    void serverRequestsArePrinted_data();
    void serverRequestsArePrinted();
    void lostConnectionIsPrinted();
    void scriptRunsInOneSession_data();
    void scriptRunsInOneSession();
    void scriptHandsValuesOn_data();
    void scriptHandsValuesOn();
    void executableReadsAScriptFromStandardInput();
    void executable_data();
    void executable();
};

void CliOutputTest::jsonParsesBack_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<nuvMQClassifyMessage>("reply");
    QTest::addColumn<QString>("result"); // JSON
    QTest::addColumn<QString>("out"); // JSON object of the out-parameters, "" when none

    using L = QStringList;
    QTest::newRow("bool with a list out-parameter")
        << L { "getArchives" } << nuvMQClassifyMessage(Reply("OK").dataList({ "Akten", "Post" }))
        << "true"
        << R"({"archives":["Akten","Post"]})";
    QTest::newRow("list result keeps record separators")
        << L { "getRoles" }
        << nuvMQClassifyMessage(Reply("OK").dataList({ QString("a") + separator + "b", "ä" }))
        << QString(R"(["a\ufeffb","ä"])") << "";
    QTest::newRow("count beyond 32 bits")
        << L { "getDocumentCount", "q", "true", "false" }
        << nuvMQClassifyMessage(Reply("OK").docId("8589934592")) << "8589934592"
        << "";
    QTest::newRow("count beyond 2^53 as a string")
        << L { "getClassifyCount", "q", "false" }
        << nuvMQClassifyMessage(Reply("OK").docId("9007199254740993")) << R"("9007199254740993")"
        << "";
    QTest::newRow("byte arrays as base64")
        << L { "getScanInputProcessImage", "p" }
        << nuvMQClassifyMessage(Reply("OK").data({ QByteArray("\x00\xff", 2), "png" }))
        << R"(["AP8=","cG5n"])"
        << "";
    QTest::newRow("in-out string comes back")
        << L { "classify", "7", "[\"v\"]" } << nuvMQClassifyMessage(Reply("OK").docId("DOC-8"))
        << "true"
        << R"({"docId":"DOC-8"})";
    QTest::newRow("pairs")
        << L { "readClipboards" }
        << nuvMQClassifyMessage(Reply("OK").dataList({ "c1", "c2" }).data({ "Eingang", "Ablage" }))
        << "true"
        << R"({"clipboards":[{"first":"c1","second":"Eingang"},{"first":"c2","second":"Ablage"}]})";
    QTest::newRow("one user data item, byte arrays swapped back")
        << L { "loadUserData", "k1", "k2" } << nuvMQClassifyMessage(Reply("OK").data({ "B", "A" }))
        << "true"
        << R"({"first":"QQ==","second":"Qg=="})";
    QTest::newRow("int result with three out-parameters")
        << L { "getClassifyTemp", "5" }
        << nuvMQClassifyMessage(Reply("OK").docId("-7").dataList({ "v" }).data({ "t" })) << "1"
        << R"({"id":-7,"values":["v"],"texts":["t"]})";
    QTest::newRow("pass-through with its error text out-parameter")
        << L { "doWebCommand", "PING", "[]" }
        << nuvMQClassifyMessage(Reply("OK").dataList({ "pong" })) << "true"
        << R"({"answerData":[],"answerStrings":["pong"],"errorText":""})";
    QTest::newRow("void result") << L { "updateLastModified" } << nuvMQClassifyMessage(Reply("OK"))
                                 << "null"
                                 << "";
    QTest::newRow("string result") << L { "addClipboard", "Eingang" }
                                   << nuvMQClassifyMessage(Reply("OK").docId("c9")) << R"("c9")"
                                   << "";
}

void CliOutputTest::jsonParsesBack()
{
    QFETCH(QStringList, words);
    QFETCH(nuvMQClassifyMessage, reply);
    QFETCH(QString, result);
    QFETCH(QString, out);

    serve(reply);
    const Outcome outcome = call(words, { "--json" });
    QVERIFY2(outcome.status == 0, qPrintable(outcome.err));
    QCOMPARE(outcome.out.count(QLatin1Char('\n')), 1);
    const QJsonObject record = outcome.lastJson();
    QCOMPARE(record.value("operation").toString(), words.first());
    QCOMPARE(record.value("ok").toBool(), true);
    QCOMPARE(record.value("result"), parsed(result));
    if (out.isEmpty())
        QVERIFY(!record.contains("out"));
    else
        QCOMPARE(record.value("out"), parsed(out));
    QVERIFY(!record.contains("error"));
}

void CliOutputTest::readableOutput_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<nuvMQClassifyMessage>("reply");
    QTest::addColumn<QString>("printed");
    using L = QStringList;

    QTest::newRow("list, one entry per line, separators shown")
        << L { "getRoles" }
        << nuvMQClassifyMessage(Reply("OK").dataList({ QString("a") + separator + "b", "c" }))
        << "a | b\nc\n";
    QTest::newRow("bool alone") << L { "checkFS", "/srv" } << nuvMQClassifyMessage(Reply("OK"))
                                << "true\n";
    QTest::newRow("out-parameters labelled, bool result left out")
        << L { "getMandanten" }
        << nuvMQClassifyMessage(
               Reply("OK")
                   .docId("4")
                   .dataList({ QString("a") + separator + "b" + separator + "c" + separator + "4" })
                   .data({ QByteArray("\x01\x02", 2) }))
        << "tenants:\n  a | b | c | 4\npayloads:\n  base64:AQI=\n";
    QTest::newRow("printable bytes as text")
        << L { "getScanInputProcessImage", "p" }
        << nuvMQClassifyMessage(Reply("OK").data({ "Grüße" })) << "Grüße\n";
    QTest::newRow("empty out list")
        << L { "getArchives" } << nuvMQClassifyMessage(Reply("OK")) << "archives: (none)\n";
    QTest::newRow("single out value")
        << L { "getNextOid" } << nuvMQClassifyMessage(Reply("OK").docId("OID-1")) << "oid: OID-1\n";
    QTest::newRow("number") << L { "getDocumentCount", "q", "false", "false" }
                            << nuvMQClassifyMessage(Reply("OK").docId("12")) << "12\n";
    QTest::newRow("void prints nothing")
        << L { "setLastModified" } << nuvMQClassifyMessage(Reply("OK")) << "";
    QTest::newRow("session accessor")
        << L { "getFullUserName" } << nuvMQClassifyMessage(Reply("OK")) << "Erika Muster\n";
}

void CliOutputTest::readableOutput()
{
    QFETCH(QStringList, words);
    QFETCH(nuvMQClassifyMessage, reply);
    QFETCH(QString, printed);

    serve(reply);
    const Outcome outcome = call(words);
    QVERIFY2(outcome.status == 0, qPrintable(outcome.err));
    QCOMPARE(outcome.out, printed);
    QCOMPARE(outcome.err, QString());
}

void CliOutputTest::exitStatus_data()
{
    QTest::addColumn<QStringList>("arguments"); // before the connection options are added
    QTest::addColumn<nuvMQClassifyMessage>("reply");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("error"); // expected on stderr ("" = nothing)
    QTest::addColumn<bool>("acceptLogin");
    using L = QStringList;
    const nuvMQClassifyMessage refused = Reply("ERROR").error("Zugriff verweigert");

    QTest::newRow("success") << L { "getRoles" } << nuvMQClassifyMessage(Reply("OK")) << 0 << ""
                             << true;
    QTest::newRow("false with the error text")
        << L { "setRoles", "[]" } << refused << 1 << "nuvclassify: setRoles: Zugriff verweigert"
        << true;
    QTest::newRow("empty list with a new error text")
        << L { "getRoles" } << refused << 1 << "nuvclassify: getRoles: Zugriff verweigert" << true;
    QTest::newRow("empty list on an OK reply is a success")
        << L { "getShares" } << nuvMQClassifyMessage(Reply("OK")) << 0 << "" << true;
    QTest::newRow("empty list from an ERROR reply without text stays unnoticed")
        << L { "getRoles" } << nuvMQClassifyMessage(Reply("ERROR")) << 0 << "" << true;
    QTest::newRow("null string") << L { "addClipboard", "c" } << refused << 1
                                 << "nuvclassify: addClipboard: Zugriff verweigert" << true;
    QTest::newRow("count of -1") << L { "getClassifyCount", "q", "false" } << refused << 1
                                 << "getClassifyCount: Zugriff verweigert" << true;
    QTest::newRow("error text from the out-parameter")
        << L { "doLdapCommand", "BIND", "[]" } << refused << 1
        << "doLdapCommand: Zugriff verweigert" << true;
    QTest::newRow("false without a reason")
        << L { "addDynAttribute", "a", "b", "true" } << refused << 1
        << "addDynAttribute failed (the server gives no reason for it)" << true;
    QTest::newRow("zero without a reason")
        << L { "getClassifyTemp", "3" } << refused << 1 << "getClassifyTemp returned 0" << true;
    QTest::newRow("void that changes the error text")
        << L { "checkUpdate" } << refused << 1 << "checkUpdate: Zugriff verweigert" << true;
    QTest::newRow("void notice never fails")
        << L { "setLastModified" } << refused << 0 << "" << true;
    QTest::newRow("login refused")
        << L { "getRoles" } << nuvMQClassifyMessage() << 5 << "login as erika failed" << false;
    QTest::newRow("transport missing")
        << L { "--transport-dir", "/nonexistent", "getRoles" } << refused << 3
        << "no transport plugin libnuvactivemqclient.so in /nonexistent" << true;
    QTest::newRow("plugin missing")
        << L { "--plugin", "/nonexistent/lib.so", "getRoles" } << refused << 3
        << "cannot load the classify plugin /nonexistent/lib.so" << true;
    QTest::newRow("local call needs neither transport nor login")
        << L { "--transport-dir", "/nonexistent", "getPluginInfo" } << refused << 0 << "" << true;
}

void CliOutputTest::exitStatus()
{
    QFETCH(QStringList, arguments);
    QFETCH(nuvMQClassifyMessage, reply);
    QFETCH(int, status);
    QFETCH(QString, error);

    QFETCH(bool, acceptLogin);

    const auto prepare = [&] {
        serve(reply);
        if (!acceptLogin)
            scripted()->setResponder([](const nuvMQClassifyMessage &) {
                return nuvMQClassifyMessage(Reply("ERROR").error("unknown user"));
            });
    };
    prepare();
    // Options given later win, so a row can replace the plugin or transport.
    const Outcome outcome = run(connectionOptions() + arguments);
    QCOMPARE(outcome.status, status);
    if (error.isEmpty())
        QCOMPARE(outcome.err, QString());
    else
        QVERIFY2(outcome.err.contains(error), qPrintable(outcome.err));

    // The same outcome as JSON parses back, with the reason in it.
    prepare();
    const Outcome json = run(connectionOptions() + QStringList { "--json" } + arguments);
    QCOMPARE(json.status, status);
    if (status == 1) {
        const QJsonObject record = json.lastJson();
        QCOMPARE(record.value("ok").toBool(), false);
        QVERIFY2(json.err.contains(record.value("error").toString()), qPrintable(json.err));
    }
}

void CliOutputTest::serverRequestsArePrinted_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<nuvMQClassifyMessage>("reply");
    QTest::addColumn<QStringList>("requests");

    QTest::newRow("reload asked by a reply")
        << QStringList { "getRoles" } << nuvMQClassifyMessage(Reply("OK").updateRequested())
        << QStringList { "DORELOADALL" };
    QTest::newRow("each pending request of the update poll")
        << QStringList { "checkUpdate" } << nuvMQClassifyMessage(Reply("OK").dataList({ "A", "B" }))
        << QStringList { "A", "B" };
}

void CliOutputTest::serverRequestsArePrinted()
{
    QFETCH(QStringList, words);
    QFETCH(nuvMQClassifyMessage, reply);
    QFETCH(QStringList, requests);

    serve(reply);
    const Outcome readable = call(words);
    QCOMPARE(readable.status, 0);
    for (const QString &request : requests)
        QVERIFY2(readable.out.contains("server request: " + request + "\n"),
                 qPrintable(readable.out));

    serve(reply);
    const QList<QJsonObject> lines = call(words, { "--json" }).jsonLines();
    QCOMPARE(lines.size(), requests.size() + 1);
    for (int i = 0; i < requests.size(); ++i) {
        QCOMPARE(lines.at(i).value("event").toString(), QStringLiteral("serverRequest"));
        QCOMPARE(lines.at(i).value("request").toString(), requests.at(i));
    }
    QCOMPARE(lines.last().value("operation").toString(), words.first());
}

void CliOutputTest::lostConnectionIsPrinted()
{
    // The transport reports the loss while it answers.
    serve([](const nuvMQClassifyMessage &) {
        scripted()->emitConnectionLost();
        return nuvMQClassifyMessage(Reply("OK"));
    });
    const Outcome readable = call({ "getRoles" });
    QCOMPARE(readable.status, 0);
    QCOMPARE(readable.out, QStringLiteral("connection lost\n"));

    serve([](const nuvMQClassifyMessage &) {
        scripted()->emitConnectionLost();
        return nuvMQClassifyMessage(Reply("OK"));
    });
    const QList<QJsonObject> lines = call({ "getRoles" }, { "--json" }).jsonLines();
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines.first().value("event").toString(), QStringLiteral("clientDisconnect"));
}

void CliOutputTest::scriptRunsInOneSession_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("status");
    QTest::addColumn<QStringList>("commands"); // the requests after the one login
    QTest::addColumn<QStringList>("operations"); // the records printed

    const QString calls = "getArchives\n# select one\nsetCurrentArchive Akten\n\ngetRoles\n";
    QTest::newRow("three calls, one login")
        << calls << QStringList() << 0
        << QStringList { "CFDOCGETARCHIVES", "CFSELARCHIVE", "CFROLES" }
        << QStringList { "getArchives", "setCurrentArchive", "getRoles" };
    QTest::newRow("stops at the first failure")
        << "getArchives\ndeleteRoles '[\"fail\"]'\ngetRoles\n"
        << QStringList() << 1 << QStringList { "CFDOCGETARCHIVES", "CFDELETEROLES" }
        << QStringList { "getArchives", "deleteRoles" };
    QTest::newRow("keeps going when asked")
        << "getArchives\ndeleteRoles '[\"fail\"]'\ngetRoles\n"
        << QStringList { "--keep-going" } << 1
        << QStringList { "CFDOCGETARCHIVES", "CFDELETEROLES", "CFROLES" }
        << QStringList { "getArchives", "deleteRoles", "getRoles" };
    QTest::newRow("disconnecting makes the next call log in again")
        << "getRoles\ndisconnectFromNuvKESP\ngetRoles\n"
        << QStringList() << 0 << QStringList { "CFROLES", "CFROLES" }
        << QStringList { "getRoles", "disconnectFromNuvKESP", "getRoles" };
    QTest::newRow("state set by one line is seen by the next")
        << "setProfileId 42\ngetProfileId\n"
        << QStringList() << 0 << QStringList() << QStringList { "setProfileId", "getProfileId" };
}

void CliOutputTest::scriptRunsInOneSession()
{
    QFETCH(QString, script);
    QFETCH(QStringList, options);
    QFETCH(int, status);
    QFETCH(QStringList, commands);
    QFETCH(QStringList, operations);

    QTemporaryDir dir;
    const QString path = dir.filePath("session.calls");
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(script.toUtf8());
    file.close();

    serve([](const nuvMQClassifyMessage &request) {
        if (request.getDataList() == QStringList { "fail" })
            return nuvMQClassifyMessage(Reply("ERROR").error("cannot delete"));
        return nuvMQClassifyMessage(Reply("OK").dataList({ "Akten" }));
    });
    const Outcome outcome = call({}, options + QStringList { "--json", "--script", path });
    QCOMPARE(outcome.status, status);

    QStringList sent;
    for (const nuvMQClassifyMessage &request : requests())
        sent.append(request.command);
    QCOMPARE(sent, commands);
    QCOMPARE(loginCount(), commands.isEmpty() ? 0 : commands.count("CFROLES") == 2 ? 2 : 1);

    QStringList printed;
    for (const QJsonObject &record : outcome.jsonLines())
        printed.append(record.value("operation").toString());
    QCOMPARE(printed, operations);
    if (operations.contains("getProfileId"))
        QCOMPARE(outcome.lastJson().value("result").toInt(), 42);
    if (status != 0)
        QVERIFY2(outcome.err.contains("line "), qPrintable(outcome.err));
}

void CliOutputTest::scriptHandsValuesOn_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QStringList>("sent"); // command, docId and data list of each request

    QTest::newRow("an out-parameter by its name")
        << "classify '' '[]'\ngetDocHistory $docId\n"
        << QStringList { "CFDOCCLASSIFY  []", "CFDOCHIST D1 []" };
    QTest::newRow("a kept result, inside a JSON list")
        << "let clip = addClipboard Eingang\nwriteClipboardRoles $clip \"[\\\"r-$clip\\\"]\"\n"
        << QStringList { "CFADDCLIPBOARD  [Eingang]", "CFWCBROLES D1 [r-D1]" };
    QTest::newRow("the last result")
        << "getServerVersion\ngetRoleUsers ${result}\n"
        << QStringList { "CFSERVERVERSION  []", "CFDOCGETROLEUSERS D1 []" };
    QTest::newRow("a list as a JSON array")
        << "getArchives\nsetRoles $archives\n"
        << QStringList { "CFDOCGETARCHIVES  []", "CFDOCSETROLES  [a,b]" };
    QTest::newRow("a later call replaces the value")
        << "classify '' '[]'\nclassify '' '[]'\ngetDocHistory $docId\n"
        << QStringList { "CFDOCCLASSIFY  []", "CFDOCCLASSIFY  []", "CFDOCHIST D2 []" };
}

void CliOutputTest::scriptHandsValuesOn()
{
    QFETCH(QString, script);
    QFETCH(QStringList, sent);

    QTemporaryDir dir;
    QFile file(dir.filePath("values.calls"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(script.toUtf8());
    file.close();

    // Each answer carries a new key, D1, D2, ...
    int answered = 0;
    serve([&answered](const nuvMQClassifyMessage &) {
        return nuvMQClassifyMessage(
            Reply("OK").docId(QStringLiteral("D%1").arg(++answered)).dataList({ "a", "b" }));
    });
    const Outcome outcome = call({}, { "--script", file.fileName() });
    QVERIFY2(outcome.status == 0, qPrintable(outcome.err));
    QStringList seen;
    for (const nuvMQClassifyMessage &request : requests())
        seen.append(QStringLiteral("%1 %2 [%3]")
                        .arg(request.command, request.getDocId(), request.getDataList().join(",")));
    QCOMPARE(seen, sent);
}

void CliOutputTest::executableReadsAScriptFromStandardInput()
{
    QProcess process;
    process.start(QStringLiteral(NUV_CLI_EXECUTABLE), { "--json", "--script", "-" });
    QVERIFY(process.waitForStarted());
    process.write("setProfileId 42\n# local calls need no login\ngetProfileId\n");
    process.closeWriteChannel();
    QVERIFY(process.waitForFinished(120000));
    QCOMPARE(process.exitCode(), 0);
    QStringList lines;
    for (const QByteArray &line : process.readAllStandardOutput().split('\n'))
        if (!line.isEmpty())
            lines.append(QString::fromUtf8(line));
    QCOMPARE(lines,
             QStringList({ R"({"line":1,"ok":true,"operation":"setProfileId","result":null})",
                           R"({"line":3,"ok":true,"operation":"getProfileId","result":42})" }));
}

void CliOutputTest::executable_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("out"); // expected in stdout
    QTest::addColumn<QString>("err"); // expected in stderr

    QTest::newRow("version") << QStringList { "--version" } << 0 << "nuvclassify 1."
                             << "";
    QTest::newRow("help for one operation")
        << QStringList { "help", "addShare" } << 0
        << "addShare title:string documents:list recipient:string expiry:date-time accessLimit:int"
        << "";
    QTest::newRow("local call loads the plugin")
        << QStringList { "getPluginInfo" } << 0 << "The classify plugin!"
        << "";
    QTest::newRow("no operation") << QStringList() << 2 << ""
                                  << "Usage: nuvclassify";
    QTest::newRow("malformed argument") << QStringList { "setRoles", "x" } << 2 << ""
                                        << "is not a JSON array of strings";
    QTest::newRow("no password without a terminal")
        << QStringList { "--broker", "localhost:1", "--transport-dir", scriptedTransportDir(),
                         "--user",   "u",           "getRoles" }
        << 2 << ""
        << "no password for u";
    QTest::newRow("missing embedded database")
        << QStringList { "--embedded", "/nonexistent/n.db", "--user", "u", "--password",
                         "p",          "getRoles" }
        << 3 << ""
        << "no database at /nonexistent/n.db";
}

void CliOutputTest::executable()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(QString, out);
    QFETCH(QString, err);

    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove("NUV_USER");
    environment.remove("NUV_PASSWORD");
    process.setProcessEnvironment(environment);
    process.setStandardInputFile(QProcess::nullDevice()); // not a terminal: no prompt
    process.start(QStringLiteral(NUV_CLI_EXECUTABLE), arguments);
    QVERIFY(process.waitForFinished(120000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    const QString stdoutText = QString::fromUtf8(process.readAllStandardOutput());
    const QString stderrText = QString::fromUtf8(process.readAllStandardError());
    QVERIFY2(process.exitCode() == status, qPrintable(stderrText));
    QVERIFY2(stdoutText.contains(out), qPrintable(stdoutText));
    QVERIFY2(stderrText.contains(err), qPrintable(stderrText));
}

void CliOutputTest::unreachableLogin_data()
{
    QTest::addColumn<bool>("atConnect");
    QTest::addColumn<QString>("text");
    QTest::newRow("no broker") << true
                               << "Cannot connect to the message broker at localhost:1: "
                                  "Connection refused";
    QTest::newRow("no server answers")
        << false << "No reply to \"CFLOGIN\" within 30 s (time-out): nothing answered";
    QTest::newRow("embedded database cannot open")
        << true << "embedded transport: unable to open database file";
}

void CliOutputTest::unreachableLogin()
{
    QFETCH(bool, atConnect);
    QFETCH(QString, text);
    serve(nuvMQClassifyMessage(Reply("OK")));
    if (atConnect)
        scripted()->refuseConnect(text);
    else
        scripted()->queueFailure(text);
    const Outcome outcome = run(connectionOptions() + QStringList { "getRoles" });
    scripted()->refuseConnect(QString());
    QCOMPARE(outcome.status, 4);
    QVERIFY2(outcome.err.contains(text), qPrintable(outcome.err));
}

QTEST_GUILESS_MAIN(CliOutputTest)
#include "tst_clioutput.moc"
