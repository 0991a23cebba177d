// SPDX-License-Identifier: Apache-2.0
// No user reads or changes what belongs to another: a document restricted
// to its owner, a temporary classification (draft), a clipboard, a share and
// private user data stay out of another user's replies, counts and searches
// included, and every attempt to change them is refused and changes nothing.

#include "servertestsupport.h"

#include <QtTest>

using namespace servertest;

namespace {

const QString ownerToken = QStringLiteral("11111111111111111111111111111111");
const QString otherToken = QStringLiteral("22222222222222222222222222222222");

// What the owner made; every text holds a marker that must not leak.
struct Owned
{
    QString document;
    QString draft;
    QString clipboard;
    QString share;
};

const QStringList secrets { "zebra", "draftvalue", "Private board", "secret-bytes" };

QString call(nuvserver::ServerEngine &engine, const QString &token, const QString &command,
             const QString &docId, const QStringList &dataList, const QList<QByteArray> &data = {})
{
    const nuvMQClassifyMessage reply
        = engine.handle(request(command, docId, dataList, data), token);
    if (reply.command == QLatin1String("ERROR"))
        qFatal("%s failed: %s", qPrintable(command), qPrintable(reply.errorText));
    return reply.getDocId();
}

Owned makeOwned(nuvserver::ServerEngine &engine)
{
    Owned owned;
    owned.document = call(engine, ownerToken, "CFGETNEXTOID", "", {});
    call(engine, ownerToken, "CFDOCNEWCLASSIFY", owned.document, { "Letter", "Plan zebra" });
    call(engine, ownerToken, "CFSETDOCUSERS", owned.document, { "SET", joined({ "erika", "rw" }) });
    owned.draft
        = call(engine, ownerToken, "CFDOCCLASSIFYTEMP", "", { joined({ "title", "draftvalue" }) });
    owned.clipboard = call(engine, ownerToken, "CFADDCLIPBOARD", "", { "Private board" });
    owned.share = call(engine, ownerToken, "CFADDSHARE", "", { owned.document },
                       { "someone@example.org", "0", "", "zebra share" });
    call(engine, ownerToken, "CFSAVEUSERDATA", "0", { "k1", "k2" },
         { "secret-bytes", "secret-bytes" });
    return owned;
}

QString textOf(const nuvMQClassifyMessage &reply)
{
    QString text = reply.getDocId() + reply.getDataList().join(QLatin1Char('|'));
    for (const QByteArray &bytes : reply.getData())
        text += QString::fromUtf8(bytes);
    return text;
}

} // namespace

class ServerIsolationTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void anotherUsersThings_data();
    void anotherUsersThings();
};

void ServerIsolationTest::anotherUsersThings_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("docId"); // DOC, DRAFT, CLIPBOARD, SHARE stand for the owner's
    QTest::addColumn<QStringList>("dataList");
    QTest::addColumn<QString>("expected"); // "refused", "nothing" or "count 0"
    const auto row = [](const char *name, const char *command, const char *docId,
                        const QStringList &dataList, const char *expected) {
        QTest::newRow(name) << command << docId << dataList << expected;
    };
    row("document data", "CFDOCINFO", "DOC", {}, "refused");
    row("document history", "CFDOCHIST", "DOC", {}, "refused");
    row("document revisions", "CFDOCREV", "DOC", {}, "refused");
    row("documents by number", "CFDOCSINFO", "0", { "DOC" }, "refused");
    row("documents of the archive", "CFDOCSINFO", "0", {}, "nothing");
    row("search by title", "CFDOCSINFO", "0", { "title~zebra" }, "nothing");
    row("search by full text", "CFDOCSINFO", "0", { "text=zebra" }, "nothing");
    row("count", "CFDOCGETCOUNT", "", { "" }, "count 0");
    row("count by title", "CFDOCGETCOUNT", "", { "title~zebra" }, "count 0");
    row("classification count", "CFCLASSCOUNT", "", { "" }, "count 0");
    row("remarks", "CFBEMERK", "", {}, "nothing");
    row("classify", "CFDOCCLASSIFY", "DOC", { joined({ "title", "mine" }) }, "refused");
    row("classify many", "CFDOCMULTICLASSIFY", "DOC", { joined({ "title", "mine" }) }, "refused");
    row("to the trash", "CFDOCSTOTRASH", "", { "DOC" }, "refused");
    row("rights", "CFSETDOCUSERS", "DOC", { "SET", joined({ "max", "rw" }) }, "refused");
    row("draft", "CFDOCGETCLASSIFYTEMP", "DRAFT", {}, "refused");
    row("oldest draft", "CFDOCGETCLASSIFYTEMP", "0", {}, "refused");
    row("draft change", "CFDOCCLASSIFYTEMP", "DRAFT", { joined({ "title", "x" }) }, "refused");
    row("draft delete", "CFDOCDELETECLASSIFYTEMP", "DRAFT", {}, "refused");
    row("clipboards", "CFREADCLIPBOARDS", "", {}, "nothing");
    row("clipboard cards", "CFCREADCCARDS", "CLIPBOARD", {}, "refused");
    row("clipboard rename", "CFRENAMECLIPBOARD", "CLIPBOARD", { "taken" }, "refused");
    row("clipboard card", "CFCADDCARD", "CLIPBOARD", { joined({ "c", "d" }) }, "refused");
    row("clipboard removal", "CFREMOVECLIPBOARD", "CLIPBOARD", {}, "refused");
    row("shares", "CFGETSHARES", "", {}, "nothing");
    row("share removal", "CFDELSHARE", "SHARE", {}, "refused");
    row("user data", "CFLOADUSERDATA", "", { "k1", "k2" }, "refused");
    row("user data keys", "CFLOADUSERDATA", "", { "k1" }, "nothing");
}

void ServerIsolationTest::anotherUsersThings()
{
    QFETCH(QString, command);
    QFETCH(QString, docId);
    QFETCH(QStringList, dataList);
    QFETCH(QString, expected);
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY2(admin->saveDocTypes({ "Letter" }, {}), qPrintable(admin->errorString()));
    server.user(QStringLiteral("erika"));
    server.user(QStringLiteral("max"));
    auto engine = server.engine();
    engineLogin(*engine, ownerToken, "erika", passwordOf("erika"));
    engineLogin(*engine, otherToken, "max", passwordOf("max"));
    const Owned owned = makeOwned(*engine);
    const auto resolve = [&owned](QString text) {
        return text.replace("DRAFT", owned.draft)
            .replace("CLIPBOARD", owned.clipboard)
            .replace("SHARE", owned.share)
            .replace("DOC", owned.document);
    };
    for (QString &entry : dataList)
        entry = resolve(entry);
    const auto state = [&server] {
        return server
            .inspect("SELECT (SELECT title FROM documents) || '/' || (SELECT count(*) FROM"
                     " temp_classifications) || '/' || (SELECT name FROM clipboards) || '/' ||"
                     " (SELECT count(*) FROM shares) || '/' || (SELECT count(*) FROM user_data)"
                     " || '/' || (SELECT count(*) FROM doc_rights)")
            .toString();
    };
    const QString before = state();
    QCOMPARE(before, QStringLiteral("Plan zebra/1/Private board/1/1/1"));

    const nuvMQClassifyMessage reply
        = engine->handle(request(command, resolve(docId), dataList), otherToken);
    if (expected == QLatin1String("refused"))
        QVERIFY2(reply.command == QLatin1String("ERROR"), qPrintable(textOf(reply)));
    else
        QVERIFY2(reply.command == QLatin1String("OK"), qPrintable(reply.errorText));
    if (expected == QLatin1String("count 0"))
        QCOMPARE(reply.getDocId(), QStringLiteral("0"));
    if (expected == QLatin1String("nothing")) {
        QCOMPARE(reply.getDataList(), QStringList());
        QCOMPARE(reply.getData(), QList<QByteArray>());
    }
    for (const QString &secret : secrets) {
        QVERIFY2(!textOf(reply).contains(secret), qPrintable(textOf(reply)));
        QVERIFY2(!reply.errorText.contains(secret), qPrintable(reply.errorText));
    }
    QCOMPARE(state(), before);
}

QTEST_GUILESS_MAIN(ServerIsolationTest)
#include "tst_serverisolation.moc"
