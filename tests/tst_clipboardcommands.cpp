// SPDX-License-Identifier: Apache-2.0
// Clipboards and their cards, shares and stored extended searches, through
// the real plugin and the scripted transport.

#include "commandkit.h"

#include <QtTest>

#include <climits>
#include <utility>

using namespace commandkit;

class ClipboardCommandsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requests_data();
    void requests() { checkRequestRow(); }
    void outcomes_data();
    void outcomes() { checkOutcomeRow(); }
    void sharesRunWhileTheLockIsHeld_data();
    void sharesRunWhileTheLockIsHeld();
};

namespace {

const QChar separator(0xFEFF);
const QStringList noList;

using Pairs = QList<QPair<QString, QString>>;

// These operations promise a null string in some places and an empty one
// in others, so an outcome shows a null text as an invalid QVariant.
QVariant text(const QString &s)
{
    return s.isNull() ? QVariant() : QVariant(s);
}

QVariantList texts(const QList<QString> &list)
{
    QVariantList out;
    for (const QString &s : list)
        out << text(s);
    return out;
}

QVariantList pairs(const Pairs &list)
{
    QVariantList out;
    for (const auto &pair : list)
        out << QVariant(QVariantList { pair.first, text(pair.second) });
    return out;
}

Call newClipboard(const QString &name)
{
    return [name](ClassifyInterface *c) { return QVariantList { text(c->addClipboard(name)) }; };
}

Call readClipboards(const Pairs &before)
{
    return [before](ClassifyInterface *c) {
        Pairs list = before;
        const bool ok = c->readClipboards(list);
        return QVariantList { ok, pairs(list) };
    };
}

Call readCards(const QString &clipboard, const QStringList &cardsBefore,
               const QStringList &textsBefore)
{
    return [=](ClassifyInterface *c) {
        QList<QString> cards = cardsBefore;
        QList<QString> cardTexts = textsBefore;
        const bool ok = c->readClipboardCards(clipboard, cards, cardTexts);
        return QVariantList { ok, QStringList(cards), texts(cardTexts) };
    };
}

Call addCard(const QString &clipboard, const QString &card, const QString &cardData)
{
    return returning(
        [=](ClassifyInterface *c) { return c->addClipboardCard(clipboard, card, cardData); });
}

Call updateCard(const QString &clipboard, const QString &card, const QString &cardData)
{
    return returning(
        [=](ClassifyInterface *c) { return c->updateClibpoardCard(clipboard, card, cardData); });
}

Call newShare(const QString &first, const QStringList &entries, const QString &third,
              const QDateTime &expiry, int number)
{
    return [=](ClassifyInterface *c) {
        return QVariantList { text(c->addShare(first, entries, third, expiry, number)) };
    };
}

const QDateTime fifthOfMarch(QDate(2024, 3, 5), QTime(9, 7, 3));

Call plainShare(const QStringList &entries = { "e1", "e2" })
{
    return newShare("first", entries, "third", fifthOfMarch, 5);
}

// The data entries of addShare: third argument, number, date-time, first.
QList<QByteArray> shareData(const QByteArray &third, const QByteArray &number,
                            const QByteArray &expiry, const QByteArray &first)
{
    return { third, number, expiry, first };
}

Call addSearch(const QString &first, const QString &second, const QStringList &entries)
{
    return returning(
        [=](ClassifyInterface *c) { return c->addExtentedSearch(first, second, entries); });
}

Call updateSearch(int search, const QString &first, const QString &second,
                  const QStringList &entries)
{
    return returning([=](ClassifyInterface *c) {
        return c->updateExtentedSearch(search, first, second, entries);
    });
}

Call findSearch(const QStringList &entries)
{
    return returning([=](ClassifyInterface *c) { return c->getExtentedSearch(entries); });
}

Call deleteSearch(const QString &search)
{
    return returning([=](ClassifyInterface *c) { return c->deleteExtentedSearch(search); });
}

QList<Operation> catalogue()
{
    const Form errorForm = Form::ErrorEquals;
    const Form okForm = Form::OkEquals;
    const Pairs kept { { "kept", "text" } };
    const Pairs keptAndRead { { "kept", "text" }, { richRecord(), "b1" }, { "r2", "b2" } };
    return {
        operation("addClipboard", newClipboard("clip"), { "CFADDCLIPBOARD", "", { "clip" } },
                  errorForm, LastError::Recorded, { "41" }, { QVariant() }),
        operation("renameClipboard",
                  returning([](ClassifyInterface *c) { return c->renameClipboard("c1", "new"); }),
                  { "CFRENAMECLIPBOARD", "c1", { "new" } }, errorForm, LastError::Recorded,
                  passedTrue, failedFalse),
        operation("removeClipboard",
                  returning([](ClassifyInterface *c) { return c->removeClipboard("c1"); }),
                  { "CFREMOVECLIPBOARD", "c1" }, errorForm, LastError::Recorded, passedTrue,
                  failedFalse),
        operation("readClipboards", readClipboards(kept), { "CFREADCLIPBOARDS" }, errorForm,
                  LastError::Recorded, { true, pairs(keptAndRead) }, { false, pairs(kept) }),
        operation("readClipboardCards", readCards("c1", { "old" }, { "kept" }),
                  { "CFCREADCCARDS", "c1" }, errorForm, LastError::Recorded,
                  { true, richList(), QVariantList { "kept", "b1", "b2" } },
                  { false, QStringList { "old" }, QVariantList { "kept" } }),
        operation("addClipboardCard", addCard("c1", "k", "v"),
                  { "CFCADDCARD", "c1", { QString("k") + separator + "v" } }, errorForm,
                  LastError::Recorded, passedTrue, failedFalse),
        operation("removeClipboardCard",
                  returning([](ClassifyInterface *c) { return c->removeClipboardCard("c1", "k"); }),
                  { "CFCREMOVECARD", "c1", { "k" } }, errorForm, LastError::Recorded, passedTrue,
                  failedFalse),
        operation("clearClipboardCards",
                  returning([](ClassifyInterface *c) { return c->clearClipboardCards("c1"); }),
                  { "CFCCLEARCARDS", "c1" }, errorForm, LastError::Recorded, passedTrue,
                  failedFalse),
        operation("updateClibpoardCard", updateCard("c1", "k", "v"),
                  { "CFCUPDATECARD", "c1", { "k", "v" } }, errorForm, LastError::Recorded,
                  passedTrue, failedFalse),
        operation("readClipboardRoles",
                  returning([](ClassifyInterface *c) { return c->readClipboardRoles("c1"); }),
                  { "CFRCBROLES", "c1" }, errorForm, LastError::Recorded, passedList, failedList),
        operation("writeClipboardRoles", returning([](ClassifyInterface *c) {
                      return c->writeClipboardRoles("c1", { "r2", "r1" });
                  }),
                  { "CFWCBROLES", "c1", { "r2", "r1" } }, errorForm, LastError::Recorded,
                  passedTrue, failedFalse),
        operation("addShare", plainShare(),
                  { "CFADDSHARE",
                    "",
                    { "e1", "e2" },
                    shareData("third", "5", "2024-03-05 09:07:03", "first") },
                  okForm, LastError::Recorded, { "41" }, { QVariant() }),
        operation("getShares", returning([](ClassifyInterface *c) { return c->getShares(); }),
                  { "CFGETSHARES" }, okForm, LastError::Recorded, passedList, failedList),
        operation("deleteShare",
                  returning([](ClassifyInterface *c) { return c->deleteShare("s1"); }),
                  { "CFDELSHARE", "s1" }, okForm, LastError::Recorded, passedTrue, failedFalse),
        operation("addExtentedSearch", addSearch("A", "B", { "x", "y" }),
                  { "CFEXTSEARCHADD", "", { joined({ "A", "B", "x", "y" }) } }, errorForm,
                  LastError::Recorded, passedTrue, failedFalse),
        operation("updateExtentedSearch", updateSearch(7, "A", "B", { "x" }),
                  { "CFEXTSEARCHUPD", "", { joined({ "7", "A", "B", "x" }) } }, errorForm,
                  LastError::Recorded, passedTrue, failedFalse),
        operation("getExtentedSearch", findSearch({ "x", "y" }),
                  { "CFEXTSEARCHFIN", "", { joined({ "x", "y" }) } }, errorForm,
                  LastError::Recorded, passedList, failedList),
        operation("deleteExtentedSearch", deleteSearch("s1"), { "CFEXTSEARCHDEL", "", { "s1" } },
                  errorForm, LastError::Recorded, passedTrue, failedFalse),
    };
}

} // namespace

void ClipboardCommandsTest::requests_data()
{
    addRequestColumns();
    addCatalogueRequestRows(catalogue());

    const auto row = [](const char *name, const Call &call, const Request &expected) {
        addRequestRow(QString::fromUtf8(name), call, expected);
    };
    // Clipboards and cards
    row("addClipboardCard(c1, k, v) sends one entry of three characters", addCard("c1", "k", "v"),
        { "CFCADDCARD", "c1", { QString("k") + separator + "v" } });
    row("updateClibpoardCard(c1, k, v) sends k and v as two entries", updateCard("c1", "k", "v"),
        { "CFCUPDATECARD", "c1", { "k", "v" } });
    row("addClipboardCard with empty card and data sends the separator alone",
        addCard("c1", "", ""), { "CFCADDCARD", "c1", { QString(separator) } });
    row("updateClibpoardCard with empty card and data sends two empty entries",
        updateCard("c1", "", ""), { "CFCUPDATECARD", "c1", { "", "" } });
    row("addClipboardCard passes a separator inside the card through",
        addCard("c1", joined({ "a", "b" }), "v"),
        { "CFCADDCARD", "c1", { joined({ "a", "b", "v" }) } });
    row("an empty clipboard key is sent as it is", addCard("", "k", "v"),
        { "CFCADDCARD", "", { QString("k") + separator + "v" } });
    row("addClipboard with an empty name still sends one entry", newClipboard(""),
        { "CFADDCLIPBOARD", "", { "" } });
    row("readClipboardCards carries the clipboard and sends no lists",
        readCards("board 7", { "c" }, { "t" }), { "CFCREADCCARDS", "board 7" });
    row("writeClipboardRoles with no roles still sends",
        returning([](ClassifyInterface *c) { return c->writeClipboardRoles("c1", {}); }),
        { "CFWCBROLES", "c1", {} });

    // Shares
    row("addShare with an empty list sends no list entries and four data entries", plainShare({}),
        { "CFADDSHARE", "", {}, shareData("third", "5", "2024-03-05 09:07:03", "first") });
    row("addShare writes 09:07:03 on 5 March 2024 zero-padded", plainShare(),
        { "CFADDSHARE",
          "",
          { "e1", "e2" },
          shareData("third", "5", "2024-03-05 09:07:03", "first") });
    row("addShare writes 21:07:03 in 24-hour form",
        newShare("first", {}, "third", QDateTime(QDate(2024, 3, 5), QTime(21, 7, 3)), 5),
        { "CFADDSHARE", "", {}, shareData("third", "5", "2024-03-05 21:07:03", "first") });
    row("addShare with the number -1 sends its two bytes",
        newShare("first", {}, "third", fifthOfMarch, -1),
        { "CFADDSHARE", "", {}, shareData("third", "-1", "2024-03-05 09:07:03", "first") });
    row("addShare writes the extreme numbers in full",
        newShare("", {}, "", QDateTime(QDate(1999, 12, 31), QTime(23, 59, 59)), INT_MIN),
        { "CFADDSHARE", "", {}, shareData("", "-2147483648", "1999-12-31 23:59:59", "") });
    row("addShare keeps a UTC date-time's own clock and adds no zone",
        newShare("f", {}, "t", QDateTime(QDate(2024, 3, 5), QTime(9, 7, 3), Qt::UTC), 0),
        { "CFADDSHARE", "", {}, shareData("t", "0", "2024-03-05 09:07:03", "f") });
    row("addShare keeps an offset date-time's own clock",
        newShare("f", {}, "t",
                 QDateTime(QDate(2024, 3, 5), QTime(21, 7, 3), Qt::OffsetFromUTC, -5 * 3600), 0),
        { "CFADDSHARE", "", {}, shareData("t", "0", "2024-03-05 21:07:03", "f") });
    row("addShare sends an invalid date-time as an empty entry",
        newShare("f", {}, "t", QDateTime(), 0),
        { "CFADDSHARE", "", {}, shareData("t", "0", "", "f") });
    row("addShare sends its texts as UTF-8 without a terminating zero",
        newShare(QString::fromUtf8("Grüße"), { QString::fromUtf8("ä") }, QString::fromUtf8("€"),
                 fifthOfMarch, 12),
        { "CFADDSHARE",
          "",
          { QString::fromUtf8("ä") },
          shareData("\xe2\x82\xac", "12", "2024-03-05 09:07:03",
                    "Gr\xc3\xbc\xc3\x9f"
                    "e") });
    row("deleteShare with an empty share still sends",
        returning([](ClassifyInterface *c) { return c->deleteShare(""); }), { "CFDELSHARE", "" });

    // Extended searches
    row("addExtentedSearch(A, B, [x, y]) sends A|B|x|y", addSearch("A", "B", { "x", "y" }),
        { "CFEXTSEARCHADD", "", { joined({ "A", "B", "x", "y" }) } });
    row("addExtentedSearch with an empty list keeps the separator after B", addSearch("A", "B", {}),
        { "CFEXTSEARCHADD", "", { joined({ "A", "B", "" }) } });
    row("addExtentedSearch with one list entry leaves no separator at the end",
        addSearch("A", "B", { "x" }), { "CFEXTSEARCHADD", "", { joined({ "A", "B", "x" }) } });
    row("updateExtentedSearch(7, A, B, [x]) sends 7|A|B|x", updateSearch(7, "A", "B", { "x" }),
        { "CFEXTSEARCHUPD", "", { joined({ "7", "A", "B", "x" }) } });
    row("updateExtentedSearch with an empty list keeps the separator after the last part",
        updateSearch(7, "A", "B", {}), { "CFEXTSEARCHUPD", "", { joined({ "7", "A", "B", "" }) } });
    row("updateExtentedSearch with a negative number starts with the minus sign",
        updateSearch(-12, "A", "B", { "x", "y" }),
        { "CFEXTSEARCHUPD", "", { joined({ "-12", "A", "B", "x", "y" }) } });
    row("getExtentedSearch([x, y]) sends x|y", findSearch({ "x", "y" }),
        { "CFEXTSEARCHFIN", "", { joined({ "x", "y" }) } });
    row("getExtentedSearch with one entry sends it unchanged", findSearch({ "x" }),
        { "CFEXTSEARCHFIN", "", { "x" } });
    row("getExtentedSearch with an empty list sends one empty entry", findSearch({}),
        { "CFEXTSEARCHFIN", "", { "" } });
    row("deleteExtentedSearch sends no docId and its argument as the one entry",
        deleteSearch("search 3"), { "CFEXTSEARCHDEL", "", { "search 3" } });
    row("deleteExtentedSearch does not split at a separator", deleteSearch(joined({ "a", "b" })),
        { "CFEXTSEARCHDEL", "", { joined({ "a", "b" }) } });
    row("parts holding the separator are joined as they are",
        addSearch(joined({ "A", "Z" }), "B", { "x" }),
        { "CFEXTSEARCHADD", "", { joined({ "A", "Z", "B", "x" }) } });
    row("empty parts give adjacent separators", addSearch("", "", { "", "" }),
        { "CFEXTSEARCHADD", "", { QString(3, separator) } });
}

void ClipboardCommandsTest::outcomes_data()
{
    addOutcomeColumns();
    addCatalogueOutcomeRows(catalogue());

    const auto row = [](const char *name, const Call &call, const nuvMQClassifyMessage &reply,
                        const QVariantList &outcome, const QString &lastError) {
        addOutcomeRow(QString::fromUtf8(name), call, replying(reply), outcome, lastError);
    };
    const QVariant nullText;
    const QByteArray zeroInside("ab\0cd", 5);

    // Created names: null only for a failure.
    row("addClipboard on ERROR returns a null string", newClipboard("clip"),
        Reply("ERROR").docId("c9").error("no board"), { nullText }, "no board");
    row("addClipboard returns the reply's docId", newClipboard("clip"), Reply("").docId("c9"),
        { "c9" }, earlierError);
    row("addClipboard with an empty docId returns an empty, not null, string", newClipboard("clip"),
        Reply("OK").docId(""), { "" }, earlierError);
    row("addClipboard with a reply that lacks a docId returns an empty string",
        newClipboard("clip"), Reply("OK"), { "" }, earlierError);
    row("addShare on OK with an empty docId returns an empty, not null, string", plainShare(),
        Reply("OK").docId(""), { "" }, earlierError);
    row("addShare on OK without a docId returns an empty string", plainShare(), Reply("OK"), { "" },
        earlierError);
    row("addShare on an empty status returns a null string", plainShare(),
        Reply("").docId("s9").error("not ok"), { nullText }, "not ok");

    // Reading the clipboards: pairs appended, text up to the first zero byte.
    const Pairs two { { "p1", "t1" }, { "p2", "t2" } };
    row("readClipboards appends three pairs to two, leaving five", readClipboards(two),
        Reply("OK").dataList({ "a", "b", "c" }).data({ "1", "2", "3" }),
        { true, pairs(two + Pairs { { "a", "1" }, { "b", "2" }, { "c", "3" } }) }, earlierError);
    row("readClipboards ends a text at its first zero byte", readClipboards({}),
        Reply("OK").dataList({ "a" }).data({ zeroInside }), { true, pairs({ { "a", "ab" } }) },
        earlierError);
    row("readClipboards gives a null text for a null byte array", readClipboards({}),
        Reply("OK").dataList({ "a", "b" }).data({ QByteArray(), "" }),
        { true, pairs({ { "a", QString() }, { "b", "" } }) }, earlierError);
    row("readClipboards gives a null text where byte arrays run out", readClipboards({}),
        Reply("OK").dataList({ "a", "b", "c" }).data({ "1" }),
        { true, pairs({ { "a", "1" }, { "b", QString() }, { "c", QString() } }) }, earlierError);
    row("readClipboards ignores byte arrays beyond the names", readClipboards({}),
        Reply("OK").dataList({ "a" }).data({ "1", "2" }), { true, pairs({ { "a", "1" } }) },
        earlierError);
    row("readClipboards with an empty reply keeps the list as it was", readClipboards(two),
        Reply("OK"), { true, pairs(two) }, earlierError);
    row("readClipboards decodes UTF-8 and stops at a leading zero byte", readClipboards({}),
        Reply("OK")
            .dataList({ "a", "b" })
            .data({ "Gr\xc3\xbc\xc3\x9f"
                    "e",
                    QByteArray("\0x", 2) }),
        { true, pairs({ { "a", QString::fromUtf8("Grüße") }, { "b", "" } }) }, earlierError);
    row("readClipboards on ERROR leaves the list as it was", readClipboards(two),
        Reply("ERROR").dataList({ "a" }).data({ "1" }).error("no boards"), { false, pairs(two) },
        "no boards");

    // Reading the cards: names replaced, texts appended.
    row("readClipboardCards with no names and two byte arrays empties the cards, adds two texts",
        readCards("c1", { "old1", "old2" }, { "kept" }), Reply("OK").data({ "t1", "t2" }),
        { true, noList, QVariantList { "kept", "t1", "t2" } }, earlierError);
    row("readClipboardCards replaces the cards even when no texts come",
        readCards("c1", { "old" }, { "kept" }), Reply("OK").dataList({ "n1", "n2" }),
        { true, QStringList { "n1", "n2" }, QVariantList { "kept" } }, earlierError);
    row("readClipboardCards ends a text at its first zero byte", readCards("c1", {}, {}),
        Reply("OK").dataList({ "n" }).data({ zeroInside }),
        { true, QStringList { "n" }, QVariantList { "ab" } }, earlierError);
    row("readClipboardCards gives a null text for a null byte array", readCards("c1", {}, {}),
        Reply("OK").data({ QByteArray(), "", "x" }),
        { true, noList, QVariantList { nullText, "", "x" } }, earlierError);
    row("readClipboardCards on ERROR leaves both lists as they were",
        readCards("c1", { "old" }, { "kept" }),
        Reply("ERROR").dataList({ "n" }).data({ "t" }).error("no cards"),
        { false, QStringList { "old" }, QVariantList { "kept" } }, "no cards");

    // Shares: only the exact word OK passes.
    row("getShares with OK and no entries returns an empty list",
        returning([](ClassifyInterface *c) { return c->getShares(); }), Reply("OK"), { noList },
        earlierError);
    row("deleteShare with a leading blank before OK fails",
        returning([](ClassifyInterface *c) { return c->deleteShare("s1"); }),
        Reply(" OK").error("not ok"), { false }, "not ok");

    // Extended searches: the reply's list as it stands.
    row("getExtentedSearch returns the reply's entries unsplit", findSearch({ "x" }),
        Reply("FOUND").dataList({ joined({ "1", "A" }), "" }),
        { QStringList { joined({ "1", "A" }), "" } }, earlierError);
    row("getExtentedSearch on ERROR ignores the reply's entries", findSearch({ "x" }),
        Reply("ERROR").dataList({ "1" }).error("no search"), { noList }, "no search");
    row("ERROR without an error text leaves an empty last error", deleteSearch("s1"),
        Reply("ERROR"), { false }, "");
}

// The share commands do not take the client's lock: a slot connected
// directly to serverRequest runs while a locking command still holds it, and
// a share command issued from there must complete. Were it to take the lock,
// it would wait for itself and this test would never finish.
class ShareFromSlot : public QObject
{
    Q_OBJECT
public:
    ClassifyInterface *client = nullptr;
    Call share;
    QVariantList outcome;
public Q_SLOTS:
    void onServerRequest(const QString &request)
    {
        if (request == QLatin1String("DORELOADALL") && share)
            outcome = std::exchange(share, nullptr)(client);
    }
};

void ClipboardCommandsTest::sharesRunWhileTheLockIsHeld_data()
{
    QTest::addColumn<Call>("share");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QVariantList>("outcome");
    QTest::newRow("addShare") << plainShare() << "CFADDSHARE" << QVariantList { "s7" };
    QTest::newRow("getShares") << returning([](ClassifyInterface *c) { return c->getShares(); })
                               << "CFGETSHARES" << QVariantList { QStringList { "s7" } };
    QTest::newRow("deleteShare") << returning([](ClassifyInterface *c) {
        return c->deleteShare("s7");
    }) << "CFDELSHARE" << QVariantList { true };
}

void ClipboardCommandsTest::sharesRunWhileTheLockIsHeld()
{
    QFETCH(Call, share);
    QFETCH(QString, command);
    QFETCH(QVariantList, outcome);

    ClientPtr client = loggedInClient();
    ShareFromSlot slot;
    slot.client = client.get();
    slot.share = share;
    QVERIFY(connect(client.get(), SIGNAL(serverRequest(QString)), &slot,
                    SLOT(onServerRequest(QString)), Qt::DirectConnection));
    answer(Reply("OK").dataList({ "role" }).updateRequested());
    answer(Reply("OK").docId("s7").dataList({ "s7" }));

    QCOMPARE(client->readClipboardRoles("c1"), QStringList { "role" });
    QCOMPARE(render(slot.outcome), render(outcome));
    const QList<ScriptedExchange> exchanges = scripted()->exchanges();
    QCOMPARE(exchanges.size(), 2);
    QCOMPARE(exchanges.at(0).request.command, QString("CFRCBROLES"));
    QCOMPARE(exchanges.at(1).request.command, command);
}

QTEST_GUILESS_MAIN(ClipboardCommandsTest)
#include "tst_clipboardcommands.moc"
