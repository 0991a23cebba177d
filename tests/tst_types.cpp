// SPDX-License-Identifier: Apache-2.0
// Document types, status types, dynamic attributes and value lists, through
// the real plugin and the scripted transport. The types pass only on a reply
// that is not "ERROR"; the attributes and value lists only on "OK", and of
// those only the value-list commands and modifyDynattribute keep the error.

#include "lockprobe.h"

#include <QtTest>

using namespace commandkit;

namespace {
// Every operation of this area once; defined below its helpers.
QList<Operation> catalogue();
} // namespace

class TypesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requests_data();
    void requests() { checkRequestRow(); }
    void outcomes_data();
    void outcomes() { checkOutcomeRow(); }
    void lockedOperations_data() { addLockingRows(catalogue(), true); }
    void lockedOperations() { checkLockedOperationRow(getBemerkungenHolds()); }
};

namespace {

using TypeReader = bool (ClassifyInterface::*)(QStringList &, QList<QByteArray> &);

Call readTypes(TypeReader reader, const QStringList &before,
               const QList<QByteArray> &payloadsBefore)
{
    return [=](ClassifyInterface *c) {
        QStringList records = before;
        QList<QByteArray> payloads = payloadsBefore;
        const bool ok = (c->*reader)(records, payloads);
        return QVariantList { ok, records, bytes(payloads) };
    };
}

Call addAttribute(const QString &first, const QString &second, bool flag)
{
    return returning([=](ClassifyInterface *c) { return c->addDynAttribute(first, second, flag); });
}

Call deleteAttribute(int attribute)
{
    return returning([=](ClassifyInterface *c) { return c->deleteDynAttribute(attribute); });
}

Call valueList(int list)
{
    return returning([=](ClassifyInterface *c) { return c->getWerteListe(list); });
}

Call modifyValueList(int list, const QStringList &values)
{
    return returning([=](ClassifyInterface *c) { return c->modifyWerteListe(list, values); });
}

Call listAttributes()
{
    return returning([](ClassifyInterface *c) { return c->listDynAttributes(); });
}

QList<Operation> catalogue()
{
    const Form errorForm = Form::ErrorEquals;
    const Form okForm = Form::OkEquals;
    const QStringList oldRecords { "old" };
    const QList<QByteArray> oldPayloads { "oldp" };
    // The type readers take both reply lists over as they stand.
    const QVariantList typesRead { true, richList(), bytes({ "b1", "b2" }) };
    const QVariantList typesKept { false, oldRecords, bytes(oldPayloads) };
    return {
        operation("getStatusTypes",
                  readTypes(&ClassifyInterface::getStatusTypes, oldRecords, oldPayloads),
                  { "CFSTATTYPES" }, errorForm, LastError::Recorded, typesRead, typesKept),
        operation("getDocTypes",
                  readTypes(&ClassifyInterface::getDocTypes, oldRecords, oldPayloads),
                  { "CFGETDOCTYPES" }, errorForm, LastError::Recorded, typesRead, typesKept),
        operation("saveStatusTypes", returning([](ClassifyInterface *c) {
                      return c->saveStatusTypes({ "r1" }, { "p1", "p2" });
                  }),
                  { "CFSAVESTATI", "", { "r1" }, { "p1", "p2" } }, errorForm, LastError::Recorded,
                  passedTrue, failedFalse),
        operation("saveDocTypes", returning([](ClassifyInterface *c) {
                      return c->saveDocTypes({ "r1" }, { "p1", "p2" });
                  }),
                  { "CFSAVEDOCTYPES", "", { "r1" }, { "p1", "p2" } }, errorForm,
                  LastError::Recorded, passedTrue, failedFalse),
        operation("listDynAttributes", listAttributes(), { "CFLSTDYNATT" }, okForm, LastError::Kept,
                  passedList, failedList),
        operation("addDynAttribute", addAttribute("a", "b", true),
                  { "CFADDDYNATT", "", { "a", "b", "true" } }, okForm, LastError::Kept, { true },
                  { false }),
        operation("deleteDynAttribute", deleteAttribute(4), { "CFDELDYNATT", "", { "4" } }, okForm,
                  LastError::Kept, passedTrue, failedFalse),
        operation("modifyDynattribute", returning([](ClassifyInterface *c) {
                      return c->modifyDynattribute({ "m1", "m2" });
                  }),
                  { "CFMODDYNATT", "", { "m1", "m2" } }, okForm, LastError::Recorded, { true },
                  { false }),
        operation("getWerteListe", valueList(4), { "CFLSTWERTE", "", { "4" } }, okForm,
                  LastError::Recorded, passedList, failedList),
        operation("modifyWerteListe", modifyValueList(4, { "x" }),
                  { "CFMODWERTE", "", { "4", "x" } }, okForm, LastError::Recorded, { true },
                  { false }),
    };
}

} // namespace

void TypesTest::requests_data()
{
    addRequestColumns();
    addCatalogueRequestRows(catalogue());
    addRequestRow("deleteDynAttribute(-3) sends the minus sign", deleteAttribute(-3),
                  { "CFDELDYNATT", "", { "-3" } });
    addRequestRow("getWerteListe(0) sends 0", valueList(0), { "CFLSTWERTE", "", { "0" } });
    addRequestRow("getWerteListe at the int minimum", valueList(std::numeric_limits<int>::min()),
                  { "CFLSTWERTE", "", { "-2147483648" } });
    addRequestRow("addDynAttribute(a, b, false) sends the word false",
                  addAttribute("a", "b", false), { "CFADDDYNATT", "", { "a", "b", "false" } });
    addRequestRow("addDynAttribute with empty strings keeps three entries",
                  addAttribute("", "", true), { "CFADDDYNATT", "", { "", "", "true" } });
    addRequestRow("modifyWerteListe(12, {}) sends the number alone", modifyValueList(12, {}),
                  { "CFMODWERTE", "", { "12" } });
    addRequestRow("modifyWerteListe(12, {x, y}) puts the number first",
                  modifyValueList(12, { "x", "y" }), { "CFMODWERTE", "", { "12", "x", "y" } });
    addRequestRow("modifyDynattribute with an empty list still sends",
                  returning([](ClassifyInterface *c) { return c->modifyDynattribute({}); }),
                  { "CFMODDYNATT", "", {} });
    addRequestRow("saveDocTypes sends lists of different lengths unchanged",
                  returning([](ClassifyInterface *c) {
                      return c->saveDocTypes({ "t1", "t2", "t3" }, { QByteArray("\0", 1) });
                  }),
                  { "CFSAVEDOCTYPES", "", { "t1", "t2", "t3" }, { QByteArray("\0", 1) } });
    addRequestRow("saveStatusTypes sends byte arrays without records",
                  returning([](ClassifyInterface *c) { return c->saveStatusTypes({}, { "p" }); }),
                  { "CFSAVESTATI", "", {}, { "p" } });
}

void TypesTest::outcomes_data()
{
    addOutcomeColumns();
    addCatalogueOutcomeRows(catalogue());
    const nuvMQClassifyMessage refused = Reply("ERROR").dataList({ "r" }).error("refused");
    addOutcomeRow("listDynAttributes on ERROR is empty and keeps the last error", listAttributes(),
                  replying(refused), { QStringList() }, earlierError);
    addOutcomeRow("getWerteListe on ERROR is empty and stores the error text", valueList(1),
                  replying(refused), { QStringList() }, "refused");
    addOutcomeRow("getStatusTypes on ERROR leaves both lists exactly as passed in",
                  readTypes(&ClassifyInterface::getStatusTypes, { "s1", "s2" }, { "", "p" }),
                  replying(Reply("ERROR").dataList({ "new" }).data({ "new" }).error("refused")),
                  { false, QStringList { "s1", "s2" }, bytes({ "", "p" }) }, "refused");
    addOutcomeRow("getDocTypes takes lists of different lengths as they come",
                  readTypes(&ClassifyInterface::getDocTypes, { "old" }, {}),
                  replying(Reply("OK").dataList({ "t1", "t2" }).data({ "only" })),
                  { true, QStringList { "t1", "t2" }, bytes({ "only" }) }, earlierError);
    addOutcomeRow("getWerteListe with an OK reply and no values is empty", valueList(1),
                  replying(Reply("OK")), { QStringList() }, earlierError);
}

QTEST_GUILESS_MAIN(TypesTest)
#include "tst_types.moc"
