// SPDX-License-Identifier: Apache-2.0
// Clipboards and cards, shares, stored searches and the user data store.

#include "servertestsupport.h"

#include <QtTest>

using namespace servertest;

using Clipboards = QList<QPair<QString, QString>>;

class ServerClipboardsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void clipboardsAndCards();
    void textIsStoredAsItCame_data();
    void textIsStoredAsItCame();
    void clipboardsAreSharedThroughRoles();
    void clipboardRolesNameUsersOrRoles_data();
    void clipboardRolesNameUsersOrRoles();
    void cardErrors_data();
    void cardErrors();
    void shares();
    void shareRequests_data();
    void shareRequests();
    void storedSearches();
    void storedSearchesAreChecked_data();
    void storedSearchesAreChecked();
    void userDataStore();
    void publicUserData();
};

void ServerClipboardsTest::textIsStoredAsItCame_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("quote") << "O'Brien";
    QTest::newRow("statement in a name") << "x'); DROP TABLE users; --";
    QTest::newRow("backslashes") << "back\\slash\\' and \\x00";
    QTest::newRow("placeholder") << "what? and ?";
    QTest::newRow("double quotes") << "say \"hi\"";
    QTest::newRow("non-Latin") << QString::fromUtf8(
        "Gr\xc3\xbc\xc3\x9f\x65 \xe6\x97\xa5\xe6\x9c\xac");
}

// Whatever a name or a card text holds, it is data: it comes back as it went
// in, on either database, and every statement after it still works.
void ServerClipboardsTest::textIsStoredAsItCame()
{
    QFETCH(QString, text);
    TestServer server;
    ClientPtr admin = server.admin();
    const QString clipboard = admin->addClipboard(text);
    QVERIFY2(!clipboard.isEmpty(), qPrintable(admin->errorString()));
    QVERIFY2(admin->addClipboardCard(clipboard, "1", text), qPrintable(admin->errorString()));
    Clipboards clipboards;
    QVERIFY(admin->readClipboards(clipboards));
    QCOMPARE(clipboards, Clipboards({ { clipboard, text } }));
    QList<QString> cards;
    QList<QString> texts;
    QVERIFY(admin->readClipboardCards(clipboard, cards, texts));
    QCOMPARE(texts, QList<QString> { text });
    QStringList users;
    QVERIFY(admin->getUsers(users));
    QCOMPARE(users.size(), 1);
}

void ServerClipboardsTest::clipboardsAndCards()
{
    TestServer server;
    ClientPtr admin = server.admin();
    const QString work = admin->addClipboard("Work");
    const QString home = admin->addClipboard("Home");
    QVERIFY(!work.isEmpty() && work != home);
    QVERIFY(admin->addClipboard("Work").isNull());
    QCOMPARE(admin->errorString(), QString("CFADDCLIPBOARD: admin already has a clipboard 'Work'"));
    QVERIFY(admin->renameClipboard(home, "Private"));
    Clipboards clipboards;
    QVERIFY(admin->readClipboards(clipboards));
    QCOMPARE(clipboards, Clipboards({ { work, "Work" }, { home, "Private" } }));

    QVERIFY(admin->addClipboardCard(work, "17", "Invoice 17"));
    QVERIFY(admin->addClipboardCard(work, "18", "Letter"));
    QVERIFY(admin->updateClibpoardCard(work, "18", "Letter to ACME"));
    QList<QString> cards;
    QList<QString> texts;
    QVERIFY(admin->readClipboardCards(work, cards, texts));
    QCOMPARE(cards, QList<QString>({ "17", "18" }));
    QCOMPARE(texts, QList<QString>({ "Invoice 17", "Letter to ACME" }));
    QVERIFY(admin->removeClipboardCard(work, "17"));
    texts.clear();
    QVERIFY(admin->readClipboardCards(work, cards, texts));
    QCOMPARE(cards, QList<QString> { "18" });
    QVERIFY(admin->clearClipboardCards(work));
    QVERIFY(admin->readClipboardCards(work, cards, texts));
    QCOMPARE(cards, QList<QString>());
    QVERIFY(admin->removeClipboard(home));
    clipboards.clear();
    QVERIFY(admin->readClipboards(clipboards));
    QCOMPARE(clipboards.size(), 1);
}

void ServerClipboardsTest::clipboardsAreSharedThroughRoles()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->setRoles({ "Team" }));
    ClientPtr owner = server.user("abby");
    ClientPtr member = server.user("ben", { "Team" });
    ClientPtr stranger = server.user("cleo");
    const QString shared = owner->addClipboard("Shared");
    QVERIFY(owner->addClipboardCard(shared, "1", "first"));
    QVERIFY(owner->writeClipboardRoles(shared, { "Team" }));
    QCOMPARE(owner->readClipboardRoles(shared), QStringList { "Team" });

    Clipboards clipboards;
    QVERIFY(member->readClipboards(clipboards));
    QCOMPARE(clipboards, Clipboards({ { shared, "Shared" } }));
    QVERIFY(member->addClipboardCard(shared, "2", "second"));
    QVERIFY(!member->renameClipboard(shared, "Mine"));
    QCOMPARE(member->errorString(),
             QString("CFRENAMECLIPBOARD: only the owner may change clipboard %1").arg(shared));
    QVERIFY(!member->writeClipboardRoles(shared, {}));

    clipboards.clear();
    QVERIFY(stranger->readClipboards(clipboards));
    QCOMPARE(clipboards, Clipboards());
    QList<QString> cards;
    QList<QString> texts;
    QVERIFY(!stranger->readClipboardCards(shared, cards, texts));
    QCOMPARE(stranger->errorString(),
             QString("CFCREADCCARDS: there is no clipboard %1 for cleo").arg(shared));
    QVERIFY(!owner->writeClipboardRoles(shared, { "Nobody" }));
    QCOMPARE(owner->errorString(), QString("CFWCBROLES: 'Nobody' is neither a user nor a role"));
}

void ServerClipboardsTest::clipboardRolesNameUsersOrRoles_data()
{
    QTest::addColumn<QStringList>("principals");
    QTest::addColumn<QString>("error");
    QTest::newRow("a role and a user") << QStringList({ "Team", "admin" }) << QString();
    QTest::newRow("unknown name") << QStringList { "Nobody" }
                                  << "CFWCBROLES: 'Nobody' is neither a user nor a role";
    QTest::newRow("role with rights appended")
        << QStringList { joined({ "Team", "rw" }) }
        << QString("CFWCBROLES: '%1' is neither a user nor a role (it holds a field separator)")
               .arg(joined({ "Team", "rw" }));
}

void ServerClipboardsTest::clipboardRolesNameUsersOrRoles()
{
    QFETCH(QStringList, principals);
    QFETCH(QString, error);
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->setRoles({ "Team" }));
    const QString clipboard = admin->addClipboard("Work");
    QCOMPARE(admin->writeClipboardRoles(clipboard, principals), error.isEmpty());
    QCOMPARE(admin->errorString(), error);
    QCOMPARE(admin->readClipboardRoles(clipboard), error.isEmpty() ? principals : QStringList());
}

using CardCall = std::function<bool(ClassifyInterface *, const QString &)>;
Q_DECLARE_METATYPE(CardCall)

void ServerClipboardsTest::cardErrors_data()
{
    QTest::addColumn<CardCall>("call");
    QTest::addColumn<QString>("error");
    QTest::newRow("duplicate card") << CardCall([](ClassifyInterface *c, const QString &b) {
        return c->addClipboardCard(b, "1", "again");
    }) << "CFCADDCARD: clipboard 1 already holds card '1'";
    QTest::newRow("empty card") << CardCall([](ClassifyInterface *c, const QString &b) {
        return c->addClipboardCard(b, "", "x");
    }) << "CFCADDCARD: the card is missing";
    QTest::newRow("update a missing card") << CardCall([](ClassifyInterface *c, const QString &b) {
        return c->updateClibpoardCard(b, "9", "x");
    }) << "CFCUPDATECARD: clipboard 1 holds no card '9'";
    QTest::newRow("remove a missing card") << CardCall([](ClassifyInterface *c, const QString &b) {
        return c->removeClipboardCard(b, "9");
    }) << "CFCREMOVECARD: clipboard 1 holds no card '9'";
    QTest::newRow("unknown clipboard") << CardCall([](ClassifyInterface *c, const QString &) {
        return c->clearClipboardCards("42");
    }) << "CFCCLEARCARDS: there is no clipboard 42 for admin";
    QTest::newRow("clipboard is no number") << CardCall([](ClassifyInterface *c, const QString &) {
        return c->removeClipboard("Work");
    }) << "CFREMOVECLIPBOARD: the clipboard must be a number, not 'Work'";
}

void ServerClipboardsTest::cardErrors()
{
    QFETCH(CardCall, call);
    QFETCH(QString, error);
    TestServer server;
    ClientPtr admin = server.admin();
    const QString clipboard = admin->addClipboard("Work");
    QCOMPARE(clipboard, QString("1"));
    QVERIFY(admin->addClipboardCard(clipboard, "1", "one"));
    QVERIFY(!call(admin.get(), clipboard));
    QCOMPARE(admin->errorString(), error);
}

void ServerClipboardsTest::shares()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QString a;
    QString b;
    QVERIFY(admin->classify(a, {}));
    QVERIFY(admin->classify(b, {}));
    const QDateTime expiry = QDateTime::currentDateTimeUtc().addDays(7);
    const QString key
        = admin->addShare("Documents for ACME", { a, b }, "buyer@acme.example", expiry, 3);
    QCOMPARE(key.size(), 32);
    const QString unlimited = admin->addShare("Open", { a }, "anyone", QDateTime(), -1);
    QVERIFY(!unlimited.isEmpty());
    QStringList listed = admin->getShares();
    QCOMPARE(listed.size(), 2);
    // Both were made within the same second; find the first by its key.
    const QStringList first = fieldsOf(listed.at(listed.at(0).startsWith(key) ? 0 : 1));
    QCOMPARE(first,
             QStringList({ key, "Documents for ACME", "buyer@acme.example",
                           expiry.toString("yyyy-MM-dd hh:mm:ss"), "3", "admin", a + "," + b }));
    QStringList history;
    QVERIFY(admin->getDocHistory(a, history));
    QCOMPARE(fieldsOf(history.last()).mid(2), QStringList({ "shared", "anyone" }));

    ClientPtr dina = server.user("dina");
    QVERIFY(dina->getShares().isEmpty());
    QVERIFY(!dina->deleteShare(key));
    QVERIFY(admin->deleteShare(key));
    QCOMPARE(admin->getShares().size(), 1);
}

void ServerClipboardsTest::shareRequests_data()
{
    QTest::addColumn<QStringList>("documents");
    QTest::addColumn<QDateTime>("expiry");
    QTest::addColumn<QString>("error");
    QTest::newRow("no document") << QStringList() << QDateTime()
                                 << "CFADDSHARE: dataList names no document to share";
    QTest::newRow("unknown document")
        << QStringList { "9" } << QDateTime() << "CFADDSHARE: document 9 does not exist";
    QTest::newRow("expiry in the past")
        << QStringList { "1" } << QDateTime(QDate(2001, 2, 3), QTime(4, 5, 6))
        << "CFADDSHARE: the expiry 2001-02-03 04:05:06 lies in the past";
}

void ServerClipboardsTest::shareRequests()
{
    QFETCH(QStringList, documents);
    QFETCH(QDateTime, expiry);
    QFETCH(QString, error);
    TestServer server;
    ClientPtr admin = server.admin();
    QString doc;
    QVERIFY(admin->classify(doc, {}));
    QVERIFY(admin->addShare("t", documents, "r", expiry, 0).isNull());
    QCOMPARE(admin->errorString(), error);
    QCOMPARE(admin->getShares(), QStringList());
}

void ServerClipboardsTest::storedSearches()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->addExtentedSearch("Open invoices", "all open ones",
                                     { "doctype=Invoice", "status=open" }));
    QVERIFY(admin->addExtentedSearch("Everything", "", {}));
    QCOMPARE(admin->getExtentedSearch({}),
             QStringList({ joined({ "1", "Open invoices", "all open ones", "doctype=Invoice",
                                    "status=open" }),
                           joined({ "2", "Everything", "" }) }));
    QVERIFY(admin->updateExtentedSearch(2, "Recent", "this year", { "date>=2024-01-01" }));
    QCOMPARE(admin->getExtentedSearch({ "Recent" }),
             QStringList { joined({ "2", "Recent", "this year", "date>=2024-01-01" }) });
    QCOMPARE(admin->getExtentedSearch({ "1" }).size(), 1);
    QVERIFY(admin->deleteExtentedSearch("Open invoices"));
    QVERIFY(admin->deleteExtentedSearch("2"));
    QCOMPARE(admin->getExtentedSearch({}), QStringList());
    // Searches are personal.
    QVERIFY(admin->addExtentedSearch("Mine", "", {}));
    ClientPtr ella = server.user("ella");
    QCOMPARE(ella->getExtentedSearch({}), QStringList());
    QVERIFY(!ella->deleteExtentedSearch("Mine"));
    QCOMPARE(ella->errorString(), QString("CFEXTSEARCHDEL: ella has no search 'Mine'"));
}

void ServerClipboardsTest::storedSearchesAreChecked_data()
{
    QTest::addColumn<QStringList>("conditions");
    QTest::addColumn<QString>("error");
    QTest::newRow("unknown field")
        << QStringList { "colour=red" } << "CFEXTSEARCHADD: there is no field 'colour'";
    QTest::newRow("no operator") << QStringList {
        "title"
    } << "CFEXTSEARCHADD: 'title' is no condition of the form field=value";
    QTest::newRow("id compared with text")
        << QStringList { "id>abc" } << "CFEXTSEARCHADD: id compares with numbers, not with 'abc'";
}

void ServerClipboardsTest::storedSearchesAreChecked()
{
    QFETCH(QStringList, conditions);
    QFETCH(QString, error);
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(!admin->addExtentedSearch("Bad", "", conditions));
    QCOMPARE(admin->errorString(), error);
    QCOMPARE(admin->getDocumentCount(conditions.first(), true, false), qint64(-1));
}

void ServerClipboardsTest::userDataStore()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->saveUserData("layout", "main", "first-A", "second-A", false));
    QVERIFY(admin->saveUserData("layout", "side", "first-B", "second-B", false));
    QByteArray first;
    QByteArray second = "sent along";
    QVERIFY(admin->loadUserData("layout", "main", first, second));
    QCOMPARE(first, QByteArray("first-A"));
    QCOMPARE(second, QByteArray("second-A"));
    QList<QString> names { "kept" };
    QList<QByteArray> firsts;
    QList<QByteArray> seconds;
    QVERIFY(admin->loadUserData("layout", names, firsts, seconds));
    QCOMPARE(names, QList<QString>({ "kept", "main", "side" }));
    QCOMPARE(firsts, QList<QByteArray>({ "first-A", "first-B" }));
    QCOMPARE(seconds, QList<QByteArray>({ "second-A", "second-B" }));
    QVERIFY(admin->deleteUserData("layout", "main"));
    QVERIFY(!admin->loadUserData("layout", "main", first, second));
    QCOMPARE(admin->errorString(),
             QString("CFLOADUSERDATA: there is no user data 'layout' / 'main'"));
    QVERIFY(!admin->deleteUserData("layout", "main"));
    // Another user's private items stay invisible.
    ClientPtr finn = server.user("finn");
    QVERIFY(!finn->loadUserData("layout", "side", first, second));
}

void ServerClipboardsTest::publicUserData()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->saveUserData("templates", "letter", "body", "meta", true));
    ClientPtr gwen = server.user("gwen");
    QByteArray first;
    QByteArray second;
    QVERIFY(gwen->loadUserData("templates", "letter", first, second));
    QCOMPARE(first, QByteArray("body"));
    QVERIFY(gwen->saveUserData("templates", "letter", "my body", "my meta", false));
    QVERIFY(gwen->loadUserData("templates", "letter", first, second));
    QCOMPARE(first, QByteArray("my body"));
    QVERIFY(!gwen->deleteUserData("templates", "other"));
}

QTEST_GUILESS_MAIN(ServerClipboardsTest)
#include "tst_serverclipboards.moc"
