// SPDX-License-Identifier: Apache-2.0
// Archives and tenants, through the real plugin and the scripted transport:
// the archive that later requests carry, and how the tenant records of a
// reply are paired with its byte arrays.

#include "lockprobe.h"

#include <QSignalSpy>
#include <QtTest>

using namespace commandkit;

namespace {
// Every operation of this area once; defined below its helpers.
QList<Operation> catalogue();
} // namespace

class ArchiveCommandsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requests_data();
    void requests() { checkRequestRow(); }
    void outcomes_data();
    void outcomes() { checkOutcomeRow(); }
    void lockedOperations_data() { addLockingRows(catalogue(), true); }
    void lockedOperations() { checkLockedOperationRow(getBemerkungenHolds()); }
    void currentArchiveTravelsWithLaterRequests_data();
    void currentArchiveTravelsWithLaterRequests();
    void tenantAssembly_data();
    void tenantAssembly();
    void tenantsReadTwiceAppendTwice();
};

namespace {

Call archives(const QStringList &before)
{
    return [before](ClassifyInterface *c) {
        QStringList list = before;
        const bool ok = c->getArchives(list);
        return QVariantList { ok, list };
    };
}

// The outcome of selecting an archive is the result and the archive the
// client holds afterwards.
Call selectArchive(const QString &archive)
{
    return [archive](ClassifyInterface *c) {
        const bool ok = c->setCurrentArchive(archive);
        return QVariantList { ok, c->getCurrentArchive() };
    };
}

// The outcome of creating a tenant is the result and every serverRequest
// the call emitted.
Call newTenant(const QString &first, const QString &second, const QByteArray &payload)
{
    return [=](ClassifyInterface *c) {
        QSignalSpy spy(c, SIGNAL(serverRequest(QString)));
        const bool ok = c->insertMandant(first, second, payload);
        QStringList emitted;
        for (const QList<QVariant> &arguments : qAsConst(spy))
            emitted << arguments.value(0).toString();
        return QVariantList { ok, emitted };
    };
}

Call tenants(const QStringList &before, const QList<QByteArray> &payloadsBefore)
{
    return [=](ClassifyInterface *c) {
        QStringList list = before;
        QList<QByteArray> payloads = payloadsBefore;
        const bool ok = c->getMandanten(list, payloads);
        return QVariantList { ok, list, bytes(payloads) };
    };
}

QList<Operation> catalogue()
{
    const Form form = Form::ErrorEquals;
    const QList<QByteArray> oldPayloads { "oldp" };
    return {
        operation("getArchives", archives({ "old" }), { "CFDOCGETARCHIVES" }, form,
                  LastError::Recorded, { true, richList() }, { false, QStringList { "old" } }),
        operation("setCurrentArchive", selectArchive("arch2"), { "CFSELARCHIVE", "arch2" }, form,
                  LastError::Recorded, { true, "arch2" }, { false, "" }),
        operation("insertMandant", newTenant("m1", "m2", "pay"),
                  { "CFNEWMANDANT", "", { "m1", "m2" }, { "pay" } }, form, LastError::Recorded,
                  { true, QStringList { "SYSUPDATE" } }, { false, QStringList() }),
        // The first rich record is tenant 41, whose key leads the reply; the
        // second has no tenant number and matches nothing. Appended behind
        // what the caller's list held.
        operation("getMandanten", tenants({ "old" }, oldPayloads), { "CFDOCGETMANDANTEN" }, form,
                  LastError::Recorded, { true, richList(), bytes({ "oldp", "b1", "" }) },
                  { false, QStringList { "old" }, bytes(oldPayloads) }),
    };
}

// A tenant record whose number sits in field 3.
QString tenant(const QString &number)
{
    return joined({ "name", "x", "y", number, "tail" });
}

} // namespace

void ArchiveCommandsTest::requests_data()
{
    addRequestColumns();
    addCatalogueRequestRows(catalogue());
    addRequestRow("insertMandant sends empty strings and an empty payload as they are",
                  newTenant("", "", QByteArray()), { "CFNEWMANDANT", "", { "", "" }, { "" } });
    addRequestRow("insertMandant keeps a binary payload intact",
                  newTenant("a", "b", QByteArray("\0\xff\x01", 3)),
                  { "CFNEWMANDANT", "", { "a", "b" }, { QByteArray("\0\xff\x01", 3) } });
    addRequestRow("setCurrentArchive with an empty name is sent as it is", selectArchive(""),
                  { "CFSELARCHIVE", "" });
}

void ArchiveCommandsTest::outcomes_data()
{
    addOutcomeColumns();
    addCatalogueOutcomeRows(catalogue());
    addOutcomeRow("insertMandant does not emit SYSUPDATE on ERROR", newTenant("a", "b", "p"),
                  replying(Reply("ERROR").updateRequested(false).error("exists")),
                  { false, QStringList() }, "exists");
    addOutcomeRow("insertMandant with a reload request emits both, reload first",
                  newTenant("a", "b", "p"), replying(Reply("OK").updateRequested()),
                  { true, QStringList { "DORELOADALL", "SYSUPDATE" } }, earlierError);
    addOutcomeRow("getArchives replaces a filled list by an empty one", archives({ "a1", "a2" }),
                  replying(Reply("OK")), { true, QStringList() }, earlierError);
    addOutcomeRow(
        "getMandanten on ERROR leaves both lists as they were", tenants({ "t" }, { "p1", "p2" }),
        replying(Reply("ERROR").docId("1").dataList({ tenant("1") }).data({ "x" }).error("no")),
        { false, QStringList { "t" }, bytes({ "p1", "p2" }) }, "no");
}

void ArchiveCommandsTest::currentArchiveTravelsWithLaterRequests_data()
{
    QTest::addColumn<Answer>("selection");
    QTest::addColumn<QString>("archiveAfter");

    QTest::newRow("selection accepted") << replying(Reply("OK")) << "second";
    QTest::newRow("selection with an empty status is accepted") << replying(Reply("")) << "second";
    QTest::newRow("selection refused with ERROR keeps the old archive")
        << replying(Reply("ERROR").error("no such archive")) << "first";
    QTest::newRow("selection lost in transport keeps the old archive")
        << transportFailure("broker gone") << "first";
}

void ArchiveCommandsTest::currentArchiveTravelsWithLaterRequests()
{
    QFETCH(Answer, selection);
    QFETCH(QString, archiveAfter);

    ClientPtr client = loggedInClient();
    answer(Reply("OK"));
    QVERIFY(client->setCurrentArchive("first"));
    selection.queue();
    client->setCurrentArchive("second");
    answer(Reply("OK"));
    QStringList list;
    QVERIFY(client->getArchives(list));

    QList<ScriptedExchange> exchanges = scripted()->exchanges();
    QCOMPARE(exchanges.size(), 3);
    // A selection travels under the archive that was current when it was sent.
    QCOMPARE(exchanges[0].request.getCurrentArchive(), QString(""));
    QCOMPARE(exchanges[1].request.getCurrentArchive(), QString("first"));
    QCOMPARE(exchanges[2].request.getCurrentArchive(), archiveAfter);
    QCOMPARE(client->getCurrentArchive(), archiveAfter);
}

void ArchiveCommandsTest::tenantAssembly_data()
{
    addPairingColumns();
    addPairingRow("empty key list: every tenant gets an empty byte array", "",
                  { tenant("1"), tenant("2") }, { "x" }, { "", "" });
    addPairingRow("empty part between two separators is dropped before counting",
                  joined({ "7", "", "9" }), { tenant("9"), tenant("7") }, { "d0", "d1" },
                  { "d1", "d0" });
    addPairingRow("separators at both ends are dropped", joined({ "", "7", "9", "" }),
                  { tenant("7"), tenant("9") }, { "d0", "d1" }, { "d0", "d1" });
    addPairingRow("5 and 05 are one tenant: the later byte array wins", joined({ "5", "05" }),
                  { tenant("5"), tenant("05") }, { "first", "second" }, { "second", "second" });
    addPairingRow("tenant field that is not a number is tenant 0", joined({ "0" }), { tenant("x") },
                  { "zero" }, { "zero" });
    addPairingRow("key that is not a number is tenant 0", joined({ "abc" }), { tenant("0") },
                  { "zero" }, { "zero" });
    addPairingRow("tenant number beyond 32 bits is tenant 0", joined({ "4294967296" }),
                  { tenant("0") }, { "big" }, { "big" });
    addPairingRow("negative tenant numbers pair like any other", joined({ "-3" }), { tenant("-3") },
                  { "neg" }, { "neg" });
    addPairingRow("tenant without a byte array gets an empty one", joined({ "1" }), { tenant("2") },
                  { "a" }, { "" });
    addPairingRow("tenants sharing a number share its byte array", joined({ "4" }),
                  { tenant("4"), tenant("4") }, { "a" }, { "a", "a" });
    addPairingRow("byte arrays of unknown tenants are dropped", joined({ "1", "2", "3" }),
                  { tenant("2") }, { "a", "b", "c" }, { "b" });
    addPairingRow("fewer byte arrays than keys: the missing ones are empty",
                  joined({ "1", "2", "3" }), { tenant("1"), tenant("2"), tenant("3") }, { "a" },
                  { "a", "", "" });
    addPairingRow("no byte arrays at all", joined({ "1", "2" }), { tenant("2"), tenant("1") }, {},
                  { "", "" });
    addPairingRow("more byte arrays than keys: the extra ones are unused", joined({ "1" }),
                  { tenant("1") }, { "a", "b" }, { "a" });
    addPairingRow("record of three fields is tenant 0", joined({ "0" }),
                  { joined({ "a", "b", "c" }) }, { "zero" }, { "zero" });
    addPairingRow("record of three fields without a tenant 0 gets an empty array", joined({ "3" }),
                  { joined({ "a", "b", "3" }) }, { "three" }, { "" });
    addPairingRow("record of exactly four fields", joined({ "3" }),
                  { joined({ "a", "b", "c", "3" }) }, { "three" }, { "three" });
    addPairingRow("empty record is tenant 0", joined({ "0", "1" }), { "" }, { "zero", "one" },
                  { "zero" });
    addPairingRow("empty tenant field is tenant 0", joined({ "0" }), { tenant("") }, { "zero" },
                  { "zero" });
    addPairingRow("no tenant records though keys and byte arrays arrive", joined({ "1", "2" }), {},
                  { "a", "b" }, {});
    addPairingRow("byte arrays keep zero bytes and order", joined({ "2", "1" }),
                  { tenant("1"), tenant("2") }, { QByteArray("\0two", 4), QByteArray("o\0ne", 4) },
                  { QByteArray("o\0ne", 4), QByteArray("\0two", 4) });

    addThousandsOfRecordsRows([](int n) { return QString::number(n); }, tenant);
}

// Every row runs with a caller's list that already holds a byte array: the
// tenants' byte arrays are appended behind it.
void ArchiveCommandsTest::tenantAssembly()
{
    QFETCH(QString, docId);
    QFETCH(QStringList, records);
    QFETCH(QList<QByteArray>, data);
    QFETCH(QList<QByteArray>, payloads);

    ClientPtr client = loggedInClient();
    answer(Reply("OK").docId(docId).dataList(records).data(data));
    QStringList tenantList { "stale" };
    QList<QByteArray> payloadList { "kept" };
    QVERIFY(client->getMandanten(tenantList, payloadList));
    QCOMPARE(tenantList, records);
    QCOMPARE(payloadList, QList<QByteArray> { "kept" } + payloads);
}

void ArchiveCommandsTest::tenantsReadTwiceAppendTwice()
{
    ClientPtr client = loggedInClient();
    const nuvMQClassifyMessage reply = Reply("OK")
                                           .docId(joined({ "1", "2" }))
                                           .dataList({ tenant("1"), tenant("2") })
                                           .data({ "a", "b" });
    answer(reply);
    answer(reply);
    QStringList tenantList;
    QList<QByteArray> payloadList;
    QVERIFY(client->getMandanten(tenantList, payloadList));
    QVERIFY(client->getMandanten(tenantList, payloadList));
    QCOMPARE(tenantList.size(), 2);
    QCOMPARE(payloadList, (QList<QByteArray> { "a", "b", "a", "b" }));
}

QTEST_GUILESS_MAIN(ArchiveCommandsTest)
#include "tst_archivecommands.moc"
