// SPDX-License-Identifier: Apache-2.0
// The one synchronous exchange every command passes through, and the common
// operation pattern around it, seen from the wire and from the host.

#include "testsupport.h"

#include <QSignalSpy>
#include <QtTest>

#include <thread>

using namespace testsupport;

namespace {
// An operation reduced to success or failure, so that rows can mix them.
using Operation = std::function<bool(ClassifyInterface *)>;

// The "ERROR" form: only the exact word "ERROR" fails.
const Operation errorForm = [](ClassifyInterface *c) { return !c->getRoles().isEmpty(); };
// The "OK" form: only the exact word "OK" succeeds.
const Operation okForm = [](ClassifyInterface *c) { return c->closeSession(); };
// An "ERROR"-form operation whose result is the outcome itself.
const Operation errorFormFlag = [](ClassifyInterface *c) { return c->recreateIndex(); };
const Operation unlockedErrorForm
    = [](ClassifyInterface *c) { return !c->getScanInputProcessList().isEmpty(); };

nuvMQClassifyMessage withoutFlaggedText(const QString &status, const QString &errorText)
{
    nuvMQClassifyMessage reply = Reply(status).dataList({ "r" });
    reply.errorText = errorText; // present, but not flagged as meaningful
    return reply;
}

// Sets up the transport's side of one exchange.
using Script = std::function<void()>;

Script reply(const nuvMQClassifyMessage &message)
{
    return [message] { answer(message); };
}
} // namespace

Q_DECLARE_METATYPE(Operation)
Q_DECLARE_METATYPE(Script)

class ExchangeTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requestEnvelope_data();
    void requestEnvelope();
    void defaultBlockRequest();
    void updateMarkerCarried_data();
    void updateMarkerCarried();
    void currentArchiveCarried();
    void reloadSignal_data();
    void reloadSignal();
    void transportFailure_data();
    void transportFailure();
    void noReplyLeavesListsEmpty();
    void statusWordForms_data();
    void statusWordForms();
    void connectionLost_data();
    void connectionLost();
    void operationsBeforeLogin_data();
    void operationsBeforeLogin();
};

void ExchangeTest::requestEnvelope_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QString>("command");
    QTest::addColumn<qint64>("timeout");
    QTest::newRow("locked operation") << errorForm << "CFROLES" << qint64(30);
    QTest::newRow("unlocked operation") << unlockedErrorForm << "CFGETSCANINPUTLIST" << qint64(30);
    QTest::newRow("web pass-through waits 180 seconds") << Operation([](ClassifyInterface *c) {
        QList<QByteArray> data;
        QStringList strings;
        QString error;
        return c->doWebCommand(QStringLiteral("inner"), {}, data, strings, error);
    }) << "CFWEBCOMMAND" << qint64(180);
}

void ExchangeTest::requestEnvelope()
{
    QFETCH(Operation, operation);
    QFETCH(QString, command);
    QFETCH(qint64, timeout);
    ClientPtr client = loggedInClient();
    answer(Reply("OK").dataList({ "r" }));
    QVERIFY(operation(client.get()));
    QCOMPARE(exchangeCount(), 1);
    const ScriptedExchange exchange = scripted()->exchanges().first();
    QCOMPARE(exchange.request.command, command);
    QCOMPARE(exchange.kind, 1001);
    QCOMPARE(exchange.timeoutSeconds, timeout);
    QCOMPARE(exchange.priority, 0);
    QVERIFY(exchange.destination.isEmpty());
    QCOMPARE(exchange.context, nullptr);
}

void ExchangeTest::defaultBlockRequest()
{
    // A command without arguments sends a default block: nothing but the
    // command word and what the session adds.
    ClientPtr client = loggedInClient();
    answer(Reply("OK").updateString("U7"));
    QVERIFY(client->setCurrentArchive(QStringLiteral("Archiv 2")));
    answer(Reply("OK").dataList({ "r" }));
    client->getRoles();

    nuvMQClassifyMessage request = lastRequest();
    QCOMPARE(request.command, QStringLiteral("CFROLES"));
    QVERIFY(request.getDocId().isEmpty());
    QVERIFY(request.getDataList().isEmpty());
    QVERIFY(request.getData().isEmpty());
    QVERIFY(request.getAvailablePlugins().isEmpty());
    QCOMPARE(request.getUpdateRequested(), false);
    QCOMPARE(request.hasErrorText, false);
    QVERIFY(request.errorText.isEmpty());
    QVERIFY(request.headerText1.isEmpty() && request.headerText2.isEmpty()
            && request.headerText3.isEmpty() && request.headerText4.isEmpty()
            && request.headerText5.isEmpty());
    QCOMPARE(request.headerFlag, false);
    QCOMPARE(request.headerNumber, qint64(0));
    QCOMPARE(request.getCurrentArchive(), QStringLiteral("Archiv 2"));
    QCOMPARE(request.getUpdateString(), QStringLiteral("U7"));
}

void ExchangeTest::updateMarkerCarried_data()
{
    QTest::addColumn<Script>("secondAnswer");
    QTest::addColumn<QString>("sentNext");
    QTest::newRow("marker of a successful reply is sent next")
        << Script([] { answer(Reply("OK").updateString("U2")); }) << "U2";
    QTest::newRow("empty marker of a successful reply is sent next as empty")
        << Script([] { answer(Reply("OK")); }) << "";
    QTest::newRow("transport failure keeps the marker")
        << Script([] { scripted()->queueFailure(QStringLiteral("timeout")); }) << "U1";
    QTest::newRow("server ERROR reply still replaces the marker")
        << Script([] { answer(Reply("ERROR").error("no").updateString("U3")); }) << "U3";
    QTest::newRow("damaged reply text clears the marker")
        << Script([] { scripted()->queueWireText(QStringLiteral("%%%")); }) << "";
}

void ExchangeTest::updateMarkerCarried()
{
    QFETCH(Script, secondAnswer);
    QFETCH(QString, sentNext);
    ClientPtr client = loggedInClient();
    // The login reply carried no marker.
    answer(Reply("OK").updateString("U1"));
    client->getRoles();
    QCOMPARE(lastRequest().getUpdateString(), QString());

    secondAnswer();
    client->getRoles();
    QCOMPARE(lastRequest().getUpdateString(), QStringLiteral("U1"));

    answer(Reply("OK"));
    client->getRoles();
    QCOMPARE(lastRequest().getUpdateString(), sentNext);
}

void ExchangeTest::currentArchiveCarried()
{
    ClientPtr client = loggedInClient();
    answer(Reply("OK"));
    QVERIFY(client->setCurrentArchive(QStringLiteral("Rechnungen")));
    QCOMPARE(client->getCurrentArchive(), QStringLiteral("Rechnungen"));
    // Carried by locked and unlocked operations alike.
    answer(Reply("OK").dataList({ "r" }));
    QVERIFY(errorForm(client.get()));
    QCOMPARE(lastRequest().getCurrentArchive(), QStringLiteral("Rechnungen"));
    answer(Reply("OK").dataList({ "r" }));
    QVERIFY(unlockedErrorForm(client.get()));
    QCOMPARE(lastRequest().getCurrentArchive(), QStringLiteral("Rechnungen"));
}

void ExchangeTest::reloadSignal_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<Script>("script");
    QTest::addColumn<bool>("succeeds");
    QTest::addColumn<int>("reloads");

    QTest::newRow("successful reply asking for a reload")
        << errorForm << reply(Reply("OK").dataList({ "r" }).updateRequested()) << true << 1;
    QTest::newRow("failing ERROR reply asking for a reload")
        << errorForm << reply(Reply("ERROR").error("x").updateRequested()) << false << 1;
    QTest::newRow("OK-form failure asking for a reload")
        << okForm << reply(Reply("NOK").updateRequested()) << false << 1;
    QTest::newRow("unlocked operation")
        << unlockedErrorForm << reply(Reply("OK").dataList({ "r" }).updateRequested()) << true << 1;
    QTest::newRow("reply without the flag")
        << errorForm << reply(Reply("OK").dataList({ "r" })) << true << 0;
    QTest::newRow("transport failure")
        << errorForm << Script([] { scripted()->queueFailure(QStringLiteral("down")); }) << false
        << 0;
    QTest::newRow("login reply asking for a reload") << Operation([](ClassifyInterface *c) {
        return c->connectToNuvKESP(QStringLiteral("h"), 1, QStringLiteral("u"),
                                   QStringLiteral("p"));
    }) << reply(Reply("OK").updateRequested()) << true
                                                     << 1;
}

void ExchangeTest::reloadSignal()
{
    QFETCH(Operation, operation);
    QFETCH(Script, script);
    QFETCH(bool, succeeds);
    QFETCH(int, reloads);
    ClientPtr client = loggedInClient();
    QSignalSpy requests(client.get(), SIGNAL(serverRequest(QString)));

    // Twice: one signal per exchange, emitted before the operation returns.
    for (int round = 1; round <= 2; ++round) {
        script();
        QCOMPARE(operation(client.get()), succeeds);
        QCOMPARE(requests.count(), round * reloads);
    }
    for (const QList<QVariant> &arguments : qAsConst(requests))
        QCOMPARE(arguments.value(0).toString(), QStringLiteral("DORELOADALL"));
}

void ExchangeTest::transportFailure_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::newRow("ERROR-form operation") << errorForm;
    QTest::newRow("OK-form operation") << okForm;
    QTest::newRow("unlocked operation") << unlockedErrorForm;
}

void ExchangeTest::transportFailure()
{
    QFETCH(Operation, operation);
    ClientPtr client = loggedInClient();
    scripted()->queueFailure(QStringLiteral("broker gone"));
    QCOMPARE(operation(client.get()), false);
    QCOMPARE(client->errorString(), QStringLiteral("broker gone"));
    QCOMPARE(exchangeCount(), 1);
}

void ExchangeTest::noReplyLeavesListsEmpty()
{
    // The pass-through hands the reply's lists to the caller in every
    // outcome, which shows what a failed exchange returns.
    ClientPtr client = loggedInClient();
    scripted()->queueFailure(QStringLiteral("no reply within 30 seconds"));
    QList<QByteArray> data { "stale" };
    QStringList strings { "stale" };
    QString error;
    QVERIFY(!client->doLdapCommand(QStringLiteral("search"), {}, data, strings, error));
    QCOMPARE(error, QStringLiteral("no reply within 30 seconds"));
    QCOMPARE(data, QList<QByteArray>());
    QCOMPARE(strings, QStringList());
}

void ExchangeTest::statusWordForms_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<Script>("script");
    QTest::addColumn<bool>("succeeds");
    QTest::addColumn<QString>("lastError");

    const QString earlier = QStringLiteral("earlier failure");
    const auto row
        = [](const char *status) { return Reply(status).dataList({ "r" }).error("why"); };
    const struct
    {
        const char *status;
        bool passesErrorForm;
        bool passesOkForm;
    } words[] = {
        { "ERROR", false, false }, { "error", true, false },  { "Error", true, false },
        { "", true, false },       { "OK", true, true },      { "ok", true, false },
        { "OK ", true, false },    { " ERROR", true, false }, { "ERRORS", true, false },
    };
    for (const auto &w : words) {
        QTest::addRow("status \"%s\", ERROR form", w.status)
            << errorForm << reply(row(w.status)) << w.passesErrorForm
            << (w.passesErrorForm ? earlier : QStringLiteral("why"));
        QTest::addRow("status \"%s\", OK form", w.status)
            << okForm << reply(row(w.status)) << w.passesOkForm
            << (w.passesOkForm ? earlier : QStringLiteral("why"));
    }
    QTest::newRow("ERROR with an unflagged error text gives an empty last error")
        << errorForm << reply(withoutFlaggedText("ERROR", "hidden")) << false << "";
    QTest::newRow("ERROR without any error text gives an empty last error")
        << errorForm << reply(Reply("ERROR")) << false << "";
    // A reply decoded from nothing has an empty status word.
    const Script damaged
        = [] { scripted()->queueWireText(QStringLiteral("\u00a7\u00a7 !! \u00a7\u00a7")); };
    QTest::newRow("damaged reply text passes the ERROR form")
        << errorFormFlag << damaged << true << earlier;
    QTest::newRow("damaged reply text fails the OK form") << okForm << damaged << false << "";
}

void ExchangeTest::statusWordForms()
{
    QFETCH(Operation, operation);
    QFETCH(Script, script);
    QFETCH(bool, succeeds);
    QFETCH(QString, lastError);
    ClientPtr client = loggedInClient();
    answer(Reply("ERROR").error("earlier failure"));
    client->getRoles();
    QCOMPARE(client->errorString(), QStringLiteral("earlier failure"));

    script();
    QCOMPARE(operation(client.get()), succeeds);
    QCOMPARE(client->errorString(), lastError);
    QCOMPARE(client->getLastError(), lastError);
}

void ExchangeTest::connectionLost_data()
{
    QTest::addColumn<Script>("emitLost");
    QTest::addColumn<int>("beforeEvents");
    QTest::newRow("on the client's thread: delivered at once")
        << Script([] { scripted()->emitConnectionLost(); }) << 1;
    QTest::newRow("on another thread: delivered on the client's thread")
        << Script([] { std::thread([] { scripted()->emitConnectionLost(); }).join(); }) << 0;
}

void ExchangeTest::connectionLost()
{
    QFETCH(Script, emitLost);
    QFETCH(int, beforeEvents);
    ClientPtr client = loggedInClient();
    QSignalSpy lost(client.get(), SIGNAL(clientDisconnect()));
    const QStringList roles = client->getUserRoles();

    emitLost();
    QCOMPARE(lost.count(), beforeEvents);
    QCoreApplication::processEvents();
    QCOMPARE(lost.count(), 1);
    // The session stays as it was until the next login.
    QCOMPARE(client->getUsername(), QStringLiteral("user"));
    QCOMPARE(client->getUserRoles(), roles);
    QCOMPARE(scripted()->calls(), QStringList());
}

void ExchangeTest::operationsBeforeLogin_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<bool>("recordsError");
    QTest::newRow("locked operation") << errorForm << true;
    QTest::newRow("unlocked operation") << unlockedErrorForm << true;
    QTest::newRow("OK-form operation") << okForm << true;
    QTest::newRow("operation returning a string")
        << Operation([](ClassifyInterface *c) { return !c->getServerVersion().isEmpty(); }) << true;
    QTest::newRow("poll for server requests") << Operation([](ClassifyInterface *c) {
        c->checkUpdate();
        return false;
    }) << true;
    QTest::newRow("time-stamp notice leaves the last error") << Operation([](ClassifyInterface *c) {
        c->updateLastModified();
        return false;
    }) << false;
    QTest::newRow("pass-through reports through its argument")
        << Operation([](ClassifyInterface *c) {
               QList<QByteArray> data;
               QStringList strings;
               QString error;
               const bool passed = c->doLdapCommand(QStringLiteral("x"), {}, data, strings, error);
               return passed || !error.contains(QLatin1String("connectToNuvKESP"));
           })
        << false;
}

void ExchangeTest::operationsBeforeLogin()
{
    QFETCH(Operation, operation);
    QFETCH(bool, recordsError);
    scripted()->reset();
    ClientPtr client = newClient();
    QSignalSpy requests(client.get(), SIGNAL(serverRequest(QString)));

    QCOMPARE(operation(client.get()), false);
    if (recordsError) {
        QVERIFY2(client->errorString().contains(QLatin1String("connectToNuvKESP")),
                 qPrintable(client->errorString()));
    } else {
        QCOMPARE(client->errorString(), QString());
    }
    QCOMPARE(client->getAuthToken(), QString());
    QCOMPARE(requests.count(), 0);
    QCOMPARE(scripted()->calls(), QStringList());
}

QTEST_GUILESS_MAIN(ExchangeTest)
#include "tst_exchange.moc"
