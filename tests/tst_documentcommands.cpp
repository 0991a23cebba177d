// SPDX-License-Identifier: Apache-2.0
// Classification, document data and links, trash, archive moves, counts and
// deadlines, through the real plugin and the scripted transport.

#include "lockprobe.h"

#include <QtTest>

using namespace commandkit;

namespace {
// Every operation of this area once; defined below its helpers.
QList<Operation> catalogue();
} // namespace

class DocumentCommandsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requests_data();
    void requests() { checkRequestRow(); }
    void outcomes_data();
    void outcomes() { checkOutcomeRow(); }
    void lockedOperations_data() { addLockingRows(catalogue(), true); }
    void lockedOperations() { checkLockedOperationRow(getBemerkungenHolds()); }
    void unlockedOperations_data() { addLockingRows(catalogue(), false); }
    void unlockedOperations() { checkUnlockedOperationRow(getBemerkungenHolds()); }
};

namespace {

const QStringList noList;

Call revisions(const QString &docId)
{
    return [docId](ClassifyInterface *c) {
        QStringList rows;
        const bool invoked
            = QMetaObject::invokeMethod(c, "getRevisionen", Qt::DirectConnection,
                                        Q_RETURN_ARG(QStringList, rows), Q_ARG(QString, docId));
        return QVariantList { invoked, rows };
    };
}

// classify, multipleClassify and getNextOid share one shape: an in-and-out
// identifier, replaced only on success.
using IdentifierOperation = std::function<bool(ClassifyInterface *, QString &, QStringList)>;

Call withIdentifier(const IdentifierOperation &op, const QString &id, const QStringList &values)
{
    return [op, id, values](ClassifyInterface *c) {
        QString inOut = id;
        const bool ok = op(c, inOut, values);
        return QVariantList { ok, inOut };
    };
}

const IdentifierOperation nextOid
    = [](ClassifyInterface *c, QString &oid, QStringList) { return c->getNextOid(oid); };

Call history(const QString &docId, const QStringList &before)
{
    return [docId, before](ClassifyInterface *c) {
        QStringList rows = before;
        const bool ok = c->getDocHistory(docId, rows);
        return QVariantList { ok, rows };
    };
}

Call documentCount(const QString &query, bool withDeleted, bool ignoreArchive)
{
    return returning([=](ClassifyInterface *c) {
        return c->getDocumentCount(query, withDeleted, ignoreArchive);
    });
}

Call classifyCount(const QString &query, bool withoutHistory)
{
    return returning(
        [=](ClassifyInterface *c) { return c->getClassifyCount(query, withoutHistory); });
}

QList<Operation> catalogue()
{
    const Form errorForm = Form::ErrorEquals;
    const Form okForm = Form::OkEquals;
    return {
        operation("classify", withIdentifier(&ClassifyInterface::classify, "in", { "v1", "v2" }),
                  { "CFDOCCLASSIFY", "in", { "v1", "v2" } }, errorForm, LastError::Recorded,
                  { true, "41" }, { false, "in" }),
        operation("multipleClassify",
                  withIdentifier(&ClassifyInterface::multipleClassify, "in", { "v1", "v2" }),
                  { "CFDOCMULTICLASSIFY", "in", { "v1", "v2" } }, errorForm, LastError::Recorded,
                  { true, "41" }, { false, "in" }),
        operation("newClassify",
                  returning([](ClassifyInterface *c) { return c->newClassify(7, "x", "y"); }),
                  { "CFDOCNEWCLASSIFY", "7", { "x", "y" } }, errorForm, LastError::Recorded,
                  passedTrue, failedFalse),
        operation("newClassify with folder",
                  returning([](ClassifyInterface *c) { return c->newClassify(7, "x", "y", "f"); }),
                  { "CFDOCNEWCLASSIFYWITHFOLDER", "7", { "x", "y", "f" } }, errorForm,
                  LastError::Recorded, passedTrue, failedFalse),
        operation("getClassificationFields",
                  returning([](ClassifyInterface *c) { return c->getClassificationFields(true); }),
                  { "CFCLASSIFYFIELDS", "1" }, errorForm, LastError::Recorded, passedList,
                  failedList),
        operation("getNextOid", withIdentifier(nextOid, "7", {}), { "CFGETNEXTOID", "7" },
                  errorForm, LastError::Recorded, { true, "41" }, { false, "7" }),
        operation("getDocuments", returning([](ClassifyInterface *c) {
                      return c->getDocuments({ "d1", "d2" });
                  }),
                  { "CFDOCSINFO", "0", { "d1", "d2" } }, errorForm, LastError::Recorded, passedList,
                  failedList),
        operation("getDocumentData",
                  returning([](ClassifyInterface *c) { return c->getDocumentData("doc", "sel"); }),
                  { "CFDOCINFO", "doc", { "sel" } }, errorForm, LastError::Recorded, passedList,
                  failedList),
        operation("getDocHistory", history("doc", { "old" }), { "CFDOCHIST", "doc" }, errorForm,
                  LastError::Recorded, { true, richList() }, { false, QStringList { "old" } }),
        operation("getRevisionen", revisions("doc"), { "CFDOCREV", "doc" }, errorForm,
                  LastError::Recorded, { true, richList() }, { true, noList }),
        operation("getBemerkungen",
                  returning([](ClassifyInterface *c) { return c->getBemerkungen(); }),
                  { "CFBEMERK" }, errorForm, LastError::Recorded, passedList, failedList),
        operation("addLinkedDocuments", returning([](ClassifyInterface *c) {
                      return c->addLinkedDocuments("doc", { "l1", "l2" });
                  }),
                  { "CFADDLINKEDDOC", "doc", { "l1", "l2" } }, errorForm, LastError::Recorded,
                  passedTrue, failedFalse),
        operation("removeLinkedDocuments", returning([](ClassifyInterface *c) {
                      return c->removeLinkedDocuments("doc", { "l1", "l2" });
                  }),
                  { "CFREMOVELINKEDDOC", "doc", { "l1", "l2" } }, errorForm, LastError::Recorded,
                  passedTrue, failedFalse),
        operation("readLinkedDocuments",
                  returning([](ClassifyInterface *c) { return c->readLinkedDocuments("doc"); }),
                  { "CFREADLINKEDDOC", "doc" }, errorForm, LastError::Recorded, passedList,
                  failedList),
        operation("moveDocumentsToTrash", returning([](ClassifyInterface *c) {
                      return c->moveDocumentsToTrash({ "d1", "d2" });
                  }),
                  { "CFDOCSTOTRASH", QString(), { "d1", "d2" } }, errorForm, LastError::Recorded,
                  passedTrue, failedFalse)
            .unlocked(),
        operation("removeDocumentsFromTrash", returning([](ClassifyInterface *c) {
                      return c->removeDocumentsFromTrash({ "d1", "d2" });
                  }),
                  { "CFDOCSFROMTRASH", QString(), { "d1", "d2" } }, errorForm, LastError::Recorded,
                  passedTrue, failedFalse)
            .unlocked(),
        operation("moveDocToArchive",
                  returning([](ClassifyInterface *c) { return c->moveDocToArchive(8, 3); }),
                  { "CFDOCSTOARCHIVE", "3", { "8" } }, errorForm, LastError::Recorded, passedTrue,
                  failedFalse),
        operation("getDocumentCount", documentCount("q", true, false),
                  { "CFDOCGETCOUNT", QString(), { "q" } }, errorForm, LastError::Recorded,
                  { qint64(41) }, { qint64(-1) }),
        operation("getClassifyCount", classifyCount("q", false),
                  { "CFCLASSCOUNT", QString(), { "q" } }, errorForm, LastError::Recorded,
                  { qint64(41) }, { qint64(-1) }),
        operation("getDeadLineForDocId",
                  returning([](ClassifyInterface *c) { return c->getDeadLineForDocId("doc"); }),
                  { "CFSENDDEADLINEFORDOCID", QString(), { "doc" } }, okForm, LastError::Recorded,
                  passedList, failedList),
        operation("getDeadLines", returning([](ClassifyInterface *c) {
                      return c->getDeadLines({ "s1", "s2" });
                  }),
                  { "CFSENDDEADLINES", QString(), { "s1", "s2" } }, okForm, LastError::Recorded,
                  passedList, failedList),
        operation("saveDeadLines",
                  returning([](ClassifyInterface *c) { return c->saveDeadLines({ "d1" }); }),
                  { "CFSAVEDEADLINES", QString(), { "d1" } }, okForm, LastError::Recorded,
                  passedTrue, failedFalse),
    };
}

} // namespace

void DocumentCommandsTest::requests_data()
{
    addRequestColumns();
    addCatalogueRequestRows(catalogue());

    addRequestRow("getClassificationFields(true) sends 1 and no list",
                  returning([](ClassifyInterface *c) { return c->getClassificationFields(true); }),
                  { "CFCLASSIFYFIELDS", "1", {} });
    addRequestRow("getClassificationFields(false) sends 0 and no list",
                  returning([](ClassifyInterface *c) { return c->getClassificationFields(false); }),
                  { "CFCLASSIFYFIELDS", "0", {} });
    addRequestRow("getDocuments with an empty list still sends docId 0",
                  returning([](ClassifyInterface *c) { return c->getDocuments({}); }),
                  { "CFDOCSINFO", "0", {} });
    addRequestRow("newClassify with -5 sends the minus sign and two entries",
                  returning([](ClassifyInterface *c) { return c->newClassify(-5, "a", "b"); }),
                  { "CFDOCNEWCLASSIFY", "-5", { "a", "b" } });
    addRequestRow("newClassify with folder sends three entries",
                  returning([](ClassifyInterface *c) { return c->newClassify(-5, "a", "b", "c"); }),
                  { "CFDOCNEWCLASSIFYWITHFOLDER", "-5", { "a", "b", "c" } });
    addRequestRow("newClassify with the smallest qint64 keeps every digit",
                  returning([](ClassifyInterface *c) {
                      return c->newClassify(std::numeric_limits<qint64>::min(), "", "");
                  }),
                  { "CFDOCNEWCLASSIFY", "-9223372036854775808", { "", "" } });
    addRequestRow("newClassify beyond 32 bits is not narrowed", returning([](ClassifyInterface *c) {
                      return c->newClassify(Q_INT64_C(1) << 40, "a", "b");
                  }),
                  { "CFDOCNEWCLASSIFY", "1099511627776", { "a", "b" } });
    addRequestRow("classify sends an empty identifier and an empty list as they are",
                  withIdentifier(&ClassifyInterface::classify, "", {}),
                  { "CFDOCCLASSIFY", "", {} });
    addRequestRow("getNextOid sends the identifier it was given",
                  withIdentifier(nextOid, "oid-9", {}), { "CFGETNEXTOID", "oid-9", {} });
    addRequestRow("getDocumentData with an empty selector still sends one entry",
                  returning([](ClassifyInterface *c) { return c->getDocumentData("doc", ""); }),
                  { "CFDOCINFO", "doc", { "" } });
    addRequestRow("getBemerkungen sends an empty docId and an empty list",
                  returning([](ClassifyInterface *c) { return c->getBemerkungen(); }),
                  { "CFBEMERK", "", {} });
    addRequestRow("getRevisionen sends the document as given", revisions("doc 1"),
                  { "CFDOCREV", "doc 1", {} });
    addRequestRow("addLinkedDocuments with an empty list is not refused",
                  returning([](ClassifyInterface *c) { return c->addLinkedDocuments("doc", {}); }),
                  { "CFADDLINKEDDOC", "doc", {} });
    addRequestRow("removeLinkedDocuments keeps the order of the documents",
                  returning([](ClassifyInterface *c) {
                      return c->removeLinkedDocuments("doc", { "z", "a" });
                  }),
                  { "CFREMOVELINKEDDOC", "doc", { "z", "a" } });

    struct Count
    {
        const char *name;
        bool withDeleted;
        bool ignoreArchive;
        QStringList dataList;
    };
    const Count counts[] = {
        { "getDocumentCount(q, false, false) excludes deleted",
          false,
          false,
          { "q", "NODELETED" } },
        { "getDocumentCount(q, true, true) ignores the archive",
          true,
          true,
          { "q", "IGNOREARCHIVE" } },
        { "getDocumentCount(q, false, true) sends both words in order",
          false,
          true,
          { "q", "NODELETED", "IGNOREARCHIVE" } },
        { "getDocumentCount(q, true, false) sends q alone", true, false, { "q" } },
    };
    for (const Count &count : counts)
        addRequestRow(count.name, documentCount("q", count.withDeleted, count.ignoreArchive),
                      { "CFDOCGETCOUNT", "", count.dataList });
    addRequestRow("getClassifyCount(q, false) sends q alone", classifyCount("q", false),
                  { "CFCLASSCOUNT", "", { "q" } });
    addRequestRow("getClassifyCount(q, true) adds WITHOUTHISTORY", classifyCount("q", true),
                  { "CFCLASSCOUNT", "", { "q", "WITHOUTHISTORY" } });
    addRequestRow("getDocumentCount passes an empty query through", documentCount("", true, false),
                  { "CFDOCGETCOUNT", "", { "" } });
    addRequestRow("moveDocToArchive(57, 2) crosses the fields",
                  returning([](ClassifyInterface *c) { return c->moveDocToArchive(57, 2); }),
                  { "CFDOCSTOARCHIVE", "2", { "57" } });
    addRequestRow("moveDocToArchive with negative numbers",
                  returning([](ClassifyInterface *c) { return c->moveDocToArchive(-1, -2); }),
                  { "CFDOCSTOARCHIVE", "-2", { "-1" } });
    addRequestRow("moveDocumentsToTrash with an empty list still sends",
                  returning([](ClassifyInterface *c) { return c->moveDocumentsToTrash({}); }),
                  { "CFDOCSTOTRASH", "", {} });
    addRequestRow("removeDocumentsFromTrash with an empty list still sends",
                  returning([](ClassifyInterface *c) { return c->removeDocumentsFromTrash({}); }),
                  { "CFDOCSFROMTRASH", "", {} });
    addRequestRow("getDeadLineForDocId with an empty document sends one empty entry",
                  returning([](ClassifyInterface *c) { return c->getDeadLineForDocId(""); }),
                  { "CFSENDDEADLINEFORDOCID", "", { "" } });
    addRequestRow("getDeadLines with an empty selection",
                  returning([](ClassifyInterface *c) { return c->getDeadLines({}); }),
                  { "CFSENDDEADLINES", "", {} });
    addRequestRow("saveDeadLines with an empty list still sends",
                  returning([](ClassifyInterface *c) { return c->saveDeadLines({}); }),
                  { "CFSAVEDEADLINES", "", {} });
}

void DocumentCommandsTest::outcomes_data()
{
    addOutcomeColumns();
    addCatalogueOutcomeRows(catalogue());

    addOutcomeRow("classify with an empty reply docId empties the identifier",
                  withIdentifier(&ClassifyInterface::classify, "in", {}), Reply("OK"), { true, "" },
                  earlierError);
    addOutcomeRow("multipleClassify takes the reply docId over",
                  withIdentifier(&ClassifyInterface::multipleClassify, "in", {}),
                  Reply("").docId("99"), { true, "99" }, earlierError);
    addOutcomeRow("ERROR without an error text leaves an empty last error",
                  withIdentifier(&ClassifyInterface::classify, "in", {}),
                  Reply("ERROR").docId("99"), { false, "in" }, "");
    addOutcomeRow("getDocHistory replaces a filled list", history("doc", { "old1", "old2" }),
                  Reply("OK").dataList({ "h1" }), { true, QStringList { "h1" } }, earlierError);
    addOutcomeRow("getDocHistory replaces a filled list by an empty one", history("doc", { "old" }),
                  Reply("OK"), { true, noList }, earlierError);
    addOutcomeRow("getRevisionen on ERROR returns an empty list and stores the text",
                  revisions("doc"), Reply("ERROR").error("no revisions"), { true, noList },
                  "no revisions");

    const qint64 twoToThe33 = Q_INT64_C(8589934592);
    addOutcomeRow("getDocumentCount beyond 32 bits is not shortened",
                  documentCount("q", true, false), Reply("OK").docId("8589934592"), { twoToThe33 },
                  earlierError);
    addOutcomeRow("getClassifyCount beyond 32 bits is not shortened", classifyCount("q", true),
                  Reply("OK").docId("8589934592"), { twoToThe33 }, earlierError);
    addOutcomeRow("getDocumentCount on ERROR is -1", documentCount("q", true, false),
                  Reply("ERROR").docId("5").error("no count"), { qint64(-1) }, "no count");
    addOutcomeRow("getClassifyCount on ERROR is -1", classifyCount("q", true),
                  Reply("ERROR").docId("5").error("no count"), { qint64(-1) }, "no count");
    addOutcomeRow("count with an empty docId reads as 0", documentCount("q", true, false),
                  Reply("OK"), { qint64(0) }, earlierError);
    addOutcomeRow("count that is not a number reads as 0", classifyCount("q", false),
                  Reply("OK").docId("many"), { qint64(0) }, earlierError);
    addOutcomeRow("count may be negative", documentCount("q", false, false),
                  Reply("OK").docId("-5"), { qint64(-5) }, earlierError);
    addOutcomeRow("count at the qint64 maximum", classifyCount("q", false),
                  Reply("OK").docId("9223372036854775807"), { std::numeric_limits<qint64>::max() },
                  earlierError);
    addOutcomeRow("count beyond the qint64 range reads as 0", documentCount("q", true, true),
                  Reply("OK").docId("9223372036854775808"), { qint64(0) }, earlierError);
    addOutcomeRow("getDeadLineForDocId with an empty status fails",
                  returning([](ClassifyInterface *c) { return c->getDeadLineForDocId("doc"); }),
                  Reply("").dataList({ "dl" }).error("not ok"), { noList }, "not ok");
    addOutcomeRow("getDeadLines with an OK reply and no rows is empty",
                  returning([](ClassifyInterface *c) { return c->getDeadLines({ "s" }); }),
                  Reply("OK"), { noList }, earlierError);
    addOutcomeRow("saveDeadLines with an empty status fails",
                  returning([](ClassifyInterface *c) { return c->saveDeadLines({ "d" }); }),
                  Reply("").error("not ok"), { false }, "not ok");
}

QTEST_GUILESS_MAIN(DocumentCommandsTest)
#include "tst_documentcommands.moc"
