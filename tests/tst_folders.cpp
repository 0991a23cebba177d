// SPDX-License-Identifier: Apache-2.0
// The folder structure and the system folders, through the real plugin and
// the scripted transport. Both readers pair folder records with byte arrays
// by the key in field 5; every pairing row runs against both of them.

#include "lockprobe.h"

#include <QtTest>

using namespace commandkit;

namespace {
// Every operation of this area once; defined below its helpers.
QList<Operation> catalogue();
} // namespace

class FoldersTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requests_data();
    void requests() { checkRequestRow(); }
    void outcomes_data();
    void outcomes() { checkOutcomeRow(); }
    void lockedOperations_data() { addLockingRows(catalogue(), true); }
    void lockedOperations() { checkLockedOperationRow(getBemerkungenHolds()); }
    void folderAssembly_data();
    void folderAssembly();
};

namespace {

using FolderReader = std::function<bool(ClassifyInterface *, QStringList &, QList<QByteArray> &)>;

const FolderReader structure = [](ClassifyInterface *c, QStringList &f, QList<QByteArray> &p) {
    return c->getFolderStructure("struct", f, p);
};
const FolderReader systemFolders = [](ClassifyInterface *c, QStringList &f, QList<QByteArray> &p) {
    return c->getSystemFolders(f, p, true);
};
const FolderReader systemFoldersWithoutEmpty
    = [](ClassifyInterface *c, QStringList &f, QList<QByteArray> &p) {
          return c->getSystemFolders(f, p, false);
      };

Call readFolders(const FolderReader &reader, const QStringList &before,
                 const QList<QByteArray> &payloadsBefore)
{
    return [=](ClassifyInterface *c) {
        QStringList folders = before;
        QList<QByteArray> payloads = payloadsBefore;
        const bool ok = reader(c, folders, payloads);
        return QVariantList { ok, folders, bytes(payloads) };
    };
}

Call mainFolder(const QString &folder)
{
    return returning([folder](ClassifyInterface *c) { return c->getMainFolder(folder); });
}

Call newFolder(const QStringList &parts)
{
    return returning([parts](ClassifyInterface *c) {
        return c->newFolder(parts.value(0), parts.value(1), parts.value(2), parts.value(3));
    });
}

QList<Operation> catalogue()
{
    const Form form = Form::ErrorEquals;
    const QStringList oldFolders { "old" };
    const QList<QByteArray> oldPayloads { "oldp1", "oldp2", "oldp3" };
    // The first rich record carries the key 41, which owns the first byte
    // array; the second has no key. The caller's byte arrays are replaced.
    const QVariantList assembled { true, richList(), bytes({ "b1", "" }) };
    const QVariantList untouched { false, oldFolders, bytes(oldPayloads) };
    return {
        operation("getFolderStructure", readFolders(structure, oldFolders, oldPayloads),
                  { "CFGETMANS", "struct" }, form, LastError::Recorded, assembled, untouched),
        operation("saveFolderStructure", returning([](ClassifyInterface *c) {
                      return c->saveFolderStructure("struct", { "f1", "f2" }, { "p1" });
                  }),
                  { "CFSAVEMANS", "struct", { "f1", "f2" }, { "p1" } }, form, LastError::Recorded,
                  { true }, { false }),
        // Takes any reply; after a lost exchange the reply's docId is empty.
        operation("getMainFolder", mainFolder("folder"), { "CFMAINFOLDER", "folder" },
                  Form::Untested, LastError::Kept, { "41" }, { "" }),
        operation("newFolder", newFolder({ "a", "b", "c", "d" }),
                  { "CFNEWFOLDER", "", { "a", "b", "c", "d" } }, Form::OkEquals,
                  LastError::Recorded, { true }, { false }),
        operation("getSystemFolders", readFolders(systemFolders, oldFolders, oldPayloads),
                  { "CFDOCSYSFOLDERS", "0", { "EMPTYFOLDERS" } }, form, LastError::Recorded,
                  assembled, untouched),
        operation("setSystemFolders", returning([](ClassifyInterface *c) {
                      return c->setSystemFolders({ "f1" }, { "p1", "p2" });
                  }),
                  { "CFDOCSETSYSFOLDERS", "0", { "f1" }, { "p1", "p2" } }, form,
                  LastError::Recorded, { true }, { false }),
    };
}

// A folder record whose key sits in field 5.
QString folder(const QString &key)
{
    return joined({ "id", "parent", "name", "x", "y", key });
}

} // namespace

void FoldersTest::requests_data()
{
    addRequestColumns();
    addCatalogueRequestRows(catalogue());
    addRequestRow("getSystemFolders(true) asks for EMPTYFOLDERS under docId 0",
                  readFolders(systemFolders, {}, {}),
                  { "CFDOCSYSFOLDERS", "0", { "EMPTYFOLDERS" } });
    addRequestRow("getSystemFolders(false) asks for NOEMPTYFOLDERS under docId 0",
                  readFolders(systemFoldersWithoutEmpty, {}, {}),
                  { "CFDOCSYSFOLDERS", "0", { "NOEMPTYFOLDERS" } });
    addRequestRow("getFolderStructure sends an empty structure key as it is",
                  [](ClassifyInterface *c) {
                      QStringList f;
                      QList<QByteArray> p;
                      return QVariantList { c->getFolderStructure("", f, p) };
                  },
                  { "CFGETMANS", "" });
    addRequestRow(
        "saveFolderStructure sends lists of different lengths unchanged",
        returning([](ClassifyInterface *c) {
            return c->saveFolderStructure("k", { folder("A"), folder("B") }, { "", "pa", "pb" });
        }),
        { "CFSAVEMANS", "k", { folder("A"), folder("B") }, { "", "pa", "pb" } });
    addRequestRow("setSystemFolders sends empty lists under docId 0",
                  returning([](ClassifyInterface *c) { return c->setSystemFolders({}, {}); }),
                  { "CFDOCSETSYSFOLDERS", "0", {}, {} });
    addRequestRow("newFolder sends four empty strings as four entries", newFolder({}),
                  { "CFNEWFOLDER", "", { "", "", "", "" } });
}

void FoldersTest::outcomes_data()
{
    addOutcomeColumns();
    addCatalogueOutcomeRows(catalogue());
    addOutcomeRow("getMainFolder on ERROR returns the reply's docId and keeps the last error",
                  mainFolder("f"), replying(Reply("ERROR").docId("main").error("refused")),
                  { "main" }, earlierError);
    addOutcomeRow("newFolder with status \"ok\" fails and stores the error text",
                  newFolder({ "a", "b", "c", "d" }), replying(Reply("ok").error("lower case")),
                  { false }, "lower case");
    addOutcomeRow("newFolder with an empty status fails and stores the error text",
                  newFolder({ "a", "b", "c", "d" }), replying(Reply("").error("no status")),
                  { false }, "no status");
    addOutcomeRow("setSystemFolders on ERROR returns false and stores the error text",
                  returning([](ClassifyInterface *c) { return c->setSystemFolders({ "f" }, {}); }),
                  replying(Reply("ERROR").error("read only")), { false }, "read only");
    addOutcomeRow("getFolderStructure replaces a filled payload list instead of extending it",
                  readFolders(structure, { "old" }, { "p1", "p2", "p3" }),
                  Reply("OK").docId(joined({ "K" })).dataList({ folder("K") }).data({ "k" }),
                  { true, QStringList { folder("K") }, bytes({ "k" }) }, earlierError);
    addOutcomeRow("getSystemFolders with no records returns true and two empty lists",
                  readFolders(systemFolders, { "old" }, { "oldp" }),
                  replying(Reply("OK").docId(joined({ "A" })).data({ "a" })),
                  { true, QStringList(), bytes({}) }, earlierError);
}

void FoldersTest::folderAssembly_data()
{
    addPairingColumns();
    addPairingRow("empty key list: every folder gets an empty byte array", "",
                  { folder("A"), folder("B"), folder("") }, { "a", "b" }, { "", "", "" });
    addPairingRow("no folder records: both lists empty whatever the keys", joined({ "A", "B" }), {},
                  { "a", "b" }, {});
    addPairingRow("empty key between two separators pairs A with data 0 and B with data 1",
                  joined({ "A", "", "B" }), { folder("B"), folder("A") }, { "a", "b" },
                  { "b", "a" });
    addPairingRow("system folder keys X and Y around an empty key pair alike",
                  joined({ "X", "", "Y" }), { folder("X"), folder("Y") }, { "x", "y" },
                  { "x", "y" });
    addPairingRow("separators at both ends are skipped", joined({ "", "A", "B", "" }),
                  { folder("A"), folder("B") }, { "a", "b" }, { "a", "b" });
    addPairingRow("keys A and A: every folder A gets data 1", joined({ "A", "A" }),
                  { folder("A"), folder("A") }, { "first", "second" }, { "second", "second" });
    addPairingRow("keys are compared case-sensitively", joined({ "A" }),
                  { folder("a"), folder("A") }, { "upper" }, { "", "upper" });
    addPairingRow("keys are compared whole, not trimmed", joined({ "A" }),
                  { folder(" A"), folder("A ") }, { "a" }, { "", "" });
    addPairingRow("non-ASCII keys pair exactly", joined({ QString::fromUtf8("\xc3\x84"), "E" }),
                  { folder(QString::fromUtf8("\xc3\x84")), folder(QString::fromUtf8("A\xcc\x88")) },
                  { "umlaut", "e" }, { "umlaut", "" });
    addPairingRow("folders sharing a key all get its byte array", joined({ "S" }),
                  { folder("S"), folder("T"), folder("S") }, { "s" }, { "s", "", "s" });
    addPairingRow("byte arrays whose key matches no folder are dropped", joined({ "A", "B", "C" }),
                  { folder("B") }, { "a", "b", "c" }, { "b" });
    addPairingRow("fewer byte arrays than keys: the missing ones are empty",
                  joined({ "A", "B", "C" }), { folder("A"), folder("B"), folder("C") }, { "a" },
                  { "a", "", "" });
    addPairingRow("no byte arrays at all", joined({ "A", "B" }), { folder("A"), folder("B") }, {},
                  { "", "" });
    addPairingRow("more byte arrays than keys: the extra ones are unused", joined({ "A" }),
                  { folder("A") }, { "a", "b" }, { "a" });
    addPairingRow("record of five fields has no key", joined({ "A" }),
                  { joined({ "1", "2", "3", "4", "A" }) }, { "a" }, { "" });
    addPairingRow("record of exactly six fields", joined({ "A" }),
                  { joined({ "", "", "", "", "", "A" }) }, { "a" }, { "a" });
    addPairingRow("fields after the key are ignored", joined({ "A" }),
                  { joined({ "1", "2", "3", "4", "5", "A", "7", "8" }) }, { "a" }, { "a" });
    addPairingRow("empty record has no key", joined({ "A" }), { "" }, { "a" }, { "" });
    addPairingRow("record without any separator has no key", joined({ "A" }), { "A" }, { "a" },
                  { "" });
    addPairingRow("empty key field pairs with nothing", joined({ "A" }), { folder("") }, { "a" },
                  { "" });
    addPairingRow("byte arrays keep zero bytes", joined({ "A" }), { folder("A") },
                  { QByteArray("\0a\0", 3) }, { QByteArray("\0a\0", 3) });

    addThousandsOfRecordsRows([](int n) { return QStringLiteral("folder-%1").arg(n); }, folder);
}

// Each row runs through both readers with the same reply; both must give the
// same folders and byte arrays, replacing what the caller's lists held.
void FoldersTest::folderAssembly()
{
    QFETCH(QString, docId);
    QFETCH(QStringList, records);
    QFETCH(QList<QByteArray>, data);
    QFETCH(QList<QByteArray>, payloads);

    const QList<QPair<QString, FolderReader>> readers { { "getFolderStructure", structure },
                                                        { "getSystemFolders", systemFolders } };
    for (const auto &reader : readers) {
        ClientPtr client = loggedInClient();
        answer(Reply("OK").docId(docId).dataList(records).data(data));
        QStringList folderList { "stale" };
        QList<QByteArray> payloadList { "stale", "stale" };
        const bool ok = reader.second(client.get(), folderList, payloadList);
        // The reader's name leads, so that a mismatch says which one it was.
        QCOMPARE(render(QVariantList { reader.first, ok, folderList, bytes(payloadList) }),
                 render(QVariantList { reader.first, true, records, bytes(payloads) }));
    }
}

QTEST_GUILESS_MAIN(FoldersTest)
#include "tst_folders.moc"
