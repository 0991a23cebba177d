// SPDX-License-Identifier: Apache-2.0
// The per-user data store on the server: how an item's flag and byte arrays
// travel, and what the two load forms make of replies of every shape. The
// ordinary request and outcome of each operation are checked from the
// catalogue (tst_admincatalogue).

#include "admincatalogue.h"

using namespace commandkit;

class UserDataStoreTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void request_data();
    void request();
    void loadOne_data();
    void loadOne();
    void loadAll_data();
    void loadAll();
    void savedItemLoadsBackInPlace();
};

namespace {

Call save(bool flag)
{
    return [flag](ClassifyInterface *c) {
        return Outcome { c->saveUserData("k1", "k2", "first", "second", flag) };
    };
}

// The single-item load, starting from the caller's own byte arrays for its
// third and fourth arguments.
Call loadOneInto(const QByteArray &third, const QByteArray &fourth)
{
    return [third, fourth](ClassifyInterface *c) {
        QByteArray first = third, second = fourth;
        const bool ok = c->loadUserData("k1", "k2", first, second);
        return Outcome { ok, first, second };
    };
}

// The list load, starting from the caller's own lists for its second, third
// and fourth arguments.
Call loadAllInto(const QStringList &second, const QList<QByteArray> &third,
                 const QList<QByteArray> &fourth)
{
    return [=](ClassifyInterface *c) {
        QList<QString> names = second;
        QList<QByteArray> firsts = third, seconds = fourth;
        const bool ok = c->loadUserData("k", names, firsts, seconds);
        return Outcome { ok, QStringList(names), bytes(firsts), bytes(seconds) };
    };
}

const QString serverText = QStringLiteral("no such item");
const QString malformed = QStringLiteral("malformed reply to CFLOADUSERDATA");

} // namespace

void UserDataStoreTest::request_data()
{
    addRequestColumns();

    QTest::newRow("saveUserData sends the flag false as \"0\"")
        << save(false) << sent("CFSAVEUSERDATA", "0", { "k1", "k2" }, { "second", "first" });
    QTest::newRow("saveUserData sends the flag true as \"1\"")
        << save(true) << sent("CFSAVEUSERDATA", "1", { "k1", "k2" }, { "second", "first" });
    QTest::newRow("saveUserData sends empty byte arrays in their places")
        << Call([](ClassifyInterface *c) {
               return Outcome { c->saveUserData("", "k2", "", "second", false) };
           })
        << sent("CFSAVEUSERDATA", "0", { "", "k2" }, { "second", "" });
    QTest::newRow("loadUserData(one item) sends the fourth argument's current value")
        << loadOneInto("ignored", "current")
        << sent("CFLOADUSERDATA", QString(), { "k1", "k2" }, { "current" });
    QTest::newRow("loadUserData(one item) sends an empty fourth argument as one entry")
        << loadOneInto("ignored", "") << sent("CFLOADUSERDATA", QString(), { "k1", "k2" }, { "" });
    QTest::newRow("loadUserData(all items) sends every entry of the fourth argument in order")
        << loadAllInto({ "n" }, { "f" }, { "s1", "", "s3" })
        << sent("CFLOADUSERDATA", QString(), { "k" }, { "s1", "", "s3" });
    QTest::newRow("loadUserData(all items) with an empty fourth argument sends no byte arrays")
        << loadAllInto({}, {}, {}) << sent("CFLOADUSERDATA", QString(), { "k" });
}

void UserDataStoreTest::request()
{
    checkRequestRow();
}

void UserDataStoreTest::loadOne_data()
{
    addOutcomeColumns();

    const Call load = loadOneInto("mine 3", "mine 4");
    const Outcome untouched { false, QByteArray("mine 3"), QByteArray("mine 4") };
    QTest::newRow("reply [B, A] gives the fourth argument B and the third A")
        << load << Answers { Reply("OK").data({ "B", "A" }) }
        << Outcome { true, QByteArray("A"), QByteArray("B") } << earlierError;
    QTest::newRow("a third byte array in the reply is not read")
        << load << Answers { Reply("OK").data({ "B", "A", "C" }) }
        << Outcome { true, QByteArray("A"), QByteArray("B") } << earlierError;
    QTest::newRow("empty byte arrays replace the caller's")
        << load << Answers { Reply("OK").data({ "", "" }) }
        << Outcome { true, QByteArray(""), QByteArray("") } << earlierError;
    QTest::newRow("\"ERROR\" keeps both byte arrays although the reply carries two")
        << load << Answers { Reply("ERROR").data({ "B", "A" }).error(serverText) } << untouched
        << serverText;
    QTest::newRow("a passing reply without byte arrays is malformed: nothing replaced")
        << load << Answers { Reply("OK") } << untouched << malformed;
    QTest::newRow("a passing reply with one byte array is malformed: nothing replaced")
        << load << Answers { Reply("OK").data({ "B" }) } << untouched << malformed;
}

void UserDataStoreTest::loadOne()
{
    checkOutcomeRow();
}

void UserDataStoreTest::loadAll_data()
{
    addOutcomeColumns();

    const Call load = loadAllInto({ "n1", "n2" }, { "f" }, { "s" });
    QTest::newRow("two names already there and one item give three names, one pair")
        << load << Answers { Reply("OK").dataList({ "item" }).data({ "S", "F" }) }
        << Outcome { true, QStringList { "n1", "n2", "item" }, bytes({ "F" }), bytes({ "S" }) }
        << earlierError;
    QTest::newRow("item k takes data entries 2k (fourth argument) and 2k + 1 (third)")
        << load << Answers { Reply("OK").dataList({ "i", "j" }).data({ "S0", "F0", "S1", "F1" }) }
        << Outcome { true, QStringList { "n1", "n2", "i", "j" }, bytes({ "F0", "F1" }),
                     bytes({ "S0", "S1" }) }
        << earlierError;
    QTest::newRow("no byte arrays give empty byte-array lists and keep the names")
        << load << Answers { Reply("OK").dataList({ "unpaired" }) }
        << Outcome { true, QStringList { "n1", "n2" }, bytes({}), bytes({}) } << earlierError;
    QTest::newRow("an odd count pairs what it can and ignores the last byte array")
        << load << Answers { Reply("OK").dataList({ "i", "j" }).data({ "S0", "F0", "S1" }) }
        << Outcome { true, QStringList { "n1", "n2", "i" }, bytes({ "F0" }), bytes({ "S0" }) }
        << earlierError;
    QTest::newRow("a single byte array gives no item at all")
        << load << Answers { Reply("OK").dataList({ "i" }).data({ "S0" }) }
        << Outcome { true, QStringList { "n1", "n2" }, bytes({}), bytes({}) } << earlierError;
    QTest::newRow("fewer names than items give empty names, never a read past the end")
        << load << Answers { Reply("OK").dataList({ "i" }).data({ "S0", "F0", "S1", "F1" }) }
        << Outcome { true, QStringList { "n1", "n2", "i", "" }, bytes({ "F0", "F1" }),
                     bytes({ "S0", "S1" }) }
        << earlierError;
    QTest::newRow("\"ERROR\" keeps all three lists although the reply carries an item")
        << load << Answers { Reply("ERROR").dataList({ "i" }).data({ "S", "F" }).error(serverText) }
        << Outcome { false, QStringList { "n1", "n2" }, bytes({ "f" }), bytes({ "s" }) }
        << serverText;
}

void UserDataStoreTest::loadAll()
{
    checkOutcomeRow();
}

// What one save sends, a load answered with the same byte arrays gives back
// in the same argument places.
void UserDataStoreTest::savedItemLoadsBackInPlace()
{
    ClientPtr client = loggedInClient();
    answer(Reply("OK"));
    QVERIFY(client->saveUserData("k1", "k2", "A", "B", false));
    const QList<QByteArray> saved = lastRequest().getData();
    QCOMPARE(saved, QList<QByteArray>({ "B", "A" }));

    answer(Reply("OK").data(saved));
    QByteArray x = "x", y = "y";
    QVERIFY(client->loadUserData("k1", "k2", x, y));
    QCOMPARE(x, QByteArray("A"));
    QCOMPARE(y, QByteArray("B"));
}

QTEST_GUILESS_MAIN(UserDataStoreTest)
#include "tst_userdatastore.moc"
