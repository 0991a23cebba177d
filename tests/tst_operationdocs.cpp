// SPDX-License-Identifier: Apache-2.0
// The doc comments of the interface say, for every operation, which command
// it sends and whether it takes the operation lock; the command-line help
// and the HTML reference are made from them. Here each claim meets the
// client's behaviour, from a slot connected directly to serverRequest (where
// a locking operation must be refused at once) and from plain code, and the
// generator is shown to stop at a header whose documentation is incomplete.

#include "../fuzz/alloperations.h"
#include "lockprobe.h"
#include "operationdocs.h"

#include <QProcess>
#include <QTemporaryDir>

using namespace commandkit;

namespace {

const nuvdoc::OperationDoc *docFor(const QString &signature)
{
    for (const nuvdoc::OperationDoc &doc : nuvdoc::operationDocs())
        if (doc.signature == signature)
            return &doc;
    return nullptr;
}

// Every exchange is answered so that every operation accepts it (a matching
// client version for the login, an entry for the readers that take the
// first, two byte arrays for those that take a pair), except the first
// "CFBEMERK", which also asks for a reload.
class Server
{
public:
    Server()
    {
        scripted()->setResponder([this](const nuvMQClassifyMessage &request) {
            if (request.command == QLatin1String("CFBEMERK") && !reloadSent) {
                reloadSent = true;
                return nuvMQClassifyMessage(Reply("OK").dataList({ "held" }).updateRequested());
            }
            return nuvMQClassifyMessage(
                Reply("OK").docId("1").dataList({ "1" }).data({ "18.09-5", "x" }));
        });
    }
    ~Server() { scripted()->setResponder(nullptr); }

private:
    bool reloadSent = false;
};

// The commands of the exchanges since `from`.
QStringList commandsSince(int from)
{
    QStringList commands;
    const QList<ScriptedExchange> exchanges = scripted()->exchanges();
    for (int i = from; i < exchanges.size(); ++i)
        commands << exchanges.at(i).request.command;
    return commands;
}

QString readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("cannot read %s", qPrintable(path));
    return QString::fromUtf8(file.readAll());
}

} // namespace

class OperationDocsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyOperationIsDocumented();
    void claimsHold_data();
    void claimsHold();
    void generatorStopsAtIncompleteDocs_data();
    void generatorStopsAtIncompleteDocs();
};

void OperationDocsTest::everyOperationIsDocumented()
{
    const QVector<nuvdoc::OperationDoc> &docs = nuvdoc::operationDocs();
    const QVector<alloperations::Operation> &operations = alloperations::operations();
    QCOMPARE(docs.size(), operations.size());
    for (int i = 0; i < alloperations::interfaceOperationCount; ++i) {
        QCOMPARE(docs.at(i).slot, i + 1);
        QCOMPARE(docs.at(i).signature, QString::fromLatin1(operations.at(i).name));
    }
    for (int i = alloperations::interfaceOperationCount; i < operations.size(); ++i) {
        const nuvdoc::OperationDoc *doc = docFor(QString::fromLatin1(operations.at(i).name));
        QVERIFY2(doc, operations.at(i).name);
        QCOMPARE(doc->slot, 0);
    }
    for (const nuvdoc::OperationDoc &doc : docs) {
        QVERIFY2(!doc.brief.isEmpty(), qPrintable(doc.signature));
        for (const nuvdoc::ParameterDoc &parameter : doc.parameters)
            QVERIFY2(!parameter.text.isEmpty(), qPrintable(doc.signature + " " + parameter.name));
    }
}

void OperationDocsTest::claimsHold_data()
{
    QTest::addColumn<int>("index");
    const QVector<alloperations::Operation> &operations = alloperations::operations();
    for (int i = 0; i < operations.size(); ++i)
        QTest::newRow(operations.at(i).name) << i;
}

void OperationDocsTest::claimsHold()
{
    QFETCH(int, index);
    const alloperations::Operation &operation = alloperations::operations().at(index);
    const nuvdoc::OperationDoc *doc = docFor(QString::fromLatin1(operation.name));
    QVERIFY(doc);

    ClientPtr client = loggedInClient();
    Server server;
    QStringList sentFromSlot;
    QString errorInSlot;
    int slotRuns = 0;
    RequestRelay relay(client.get(), [&](const QString &request) {
        if (request != QLatin1String("DORELOADALL") || slotRuns++ > 0)
            return;
        const int before = scripted()->exchanges().size();
        operation.call(client.get());
        sentFromSlot = commandsSince(before);
        errorInSlot = client->errorString();
    });
    QVERIFY(relay.isConnected());

    // getBemerkungen holds the lock while its reply asks for a reload, and
    // completes once the slot has returned.
    QCOMPARE(client->getBemerkungen(), QStringList { "held" });
    QCOMPARE(slotRuns, 1);
    const QStringList documented
        = doc->command.isEmpty() ? QStringList() : QStringList { doc->command };
    if (doc->locked) {
        QCOMPARE(sentFromSlot, QStringList());
        QCOMPARE(errorInSlot, refusedUnderLock);
    } else {
        QCOMPARE(sentFromSlot, documented);
        QVERIFY(errorInSlot != refusedUnderLock);
    }

    // Outside the slot every operation runs and sends what it says.
    const int before = scripted()->exchanges().size();
    operation.call(client.get());
    QCOMPARE(commandsSince(before), documented);
}

void OperationDocsTest::generatorStopsAtIncompleteDocs_data()
{
    QTest::addColumn<QString>("find");
    QTest::addColumn<QString>("replace");
    QTest::addColumn<QStringList>("complaints"); // empty: the header passes

    // Changes to the comment of the last operation, getRoleRoles.
    QTest::newRow("the header as it is") << QString() << QString() << QStringList();
    QTest::newRow("no comment") << "*"
                                << "" << QStringList { "getRoleRoles has no /** */ comment" };
    QTest::newRow("a misnamed \\param") << "\\param role "
                                        << "\\param roleName "
                                        << QStringList { "parameter role needs exactly one \\param",
                                                         "\\param roleName names no parameter" };
    QTest::newRow("a missing \\param")
        << "\\param role "
        << "role " << QStringList { "parameter role needs exactly one \\param" };
    QTest::newRow("a missing \\return")
        << "\\return "
        << "" << QStringList { "getRoleRoles: the result needs a \\return" };
    QTest::newRow("no command word") << "Sends \"CFGETROLESBYROLE\""
                                     << "Asks" << QStringList { "must say which command it sends" };
    QTest::newRow("nothing about the lock")
        << "takes the operation lock"
        << "waits"
        << QStringList { "must say either 'takes the operation lock' or 'takes no lock'" };
    QTest::newRow("both lock claims")
        << "takes the operation lock"
        << "takes the operation lock and takes no lock" << QStringList { "must say either" };
    QTest::newRow("nothing about the last error")
        << "sets the last error on failure"
        << "fails" << QStringList { "must say what it does to the last error" };
}

void OperationDocsTest::generatorStopsAtIncompleteDocs()
{
    QFETCH(QString, find);
    QFETCH(QString, replace);
    QFETCH(QStringList, complaints);

    QString header = readFile(QStringLiteral(NUV_INTERFACE_HEADER));
    const int declaration = header.indexOf(QLatin1String("virtual QStringList getRoleRoles"));
    const int opening = header.lastIndexOf(QLatin1String("/**"), declaration);
    QVERIFY(declaration > 0 && opening > 0);
    QString comment = header.mid(opening, declaration - opening);
    if (find == QLatin1String("*"))
        comment.clear();
    else if (!find.isEmpty()) {
        QVERIFY2(comment.contains(find), qPrintable(comment));
        comment.replace(find, replace);
    }
    header.replace(opening, declaration - opening, comment);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QFile changed(dir.filePath(QStringLiteral("classifyinterface.h")));
    QVERIFY(changed.open(QIODevice::WriteOnly));
    changed.write(header.toUtf8());
    changed.close();

    QProcess generator;
    generator.start(QStringLiteral(NUV_PYTHON),
                    { QStringLiteral(NUV_APIDOC_GENERATOR), QStringLiteral("--interface"),
                      changed.fileName(), QStringLiteral("--extra"),
                      QStringLiteral(NUV_CLIENT_HEADER), QStringLiteral("setRoleRoles"),
                      QStringLiteral("getRevisionen"), QStringLiteral("--output"),
                      dir.filePath(QStringLiteral("table.cpp")) });
    // Reading two headers takes well under a second; a minute means it hangs.
    QVERIFY2(generator.waitForFinished(60000), qPrintable(generator.errorString()));
    const QString errors = QString::fromUtf8(generator.readAllStandardError());
    QCOMPARE(generator.exitStatus(), QProcess::NormalExit);
    QCOMPARE(generator.exitCode() != 0, !complaints.isEmpty());
    for (const QString &complaint : complaints)
        QVERIFY2(errors.contains(complaint), qPrintable(errors));
    if (complaints.isEmpty())
        QVERIFY2(errors.isEmpty(), qPrintable(errors));
    QCOMPARE(QFile::exists(dir.filePath(QStringLiteral("table.cpp"))), complaints.isEmpty());
}

QTEST_GUILESS_MAIN(OperationDocsTest)
#include "tst_operationdocs.moc"
