// SPDX-License-Identifier: Apache-2.0
// Temporary classifications, through the real plugin and the scripted
// transport. Reading one back is the odd one out: a second string list rides
// in `availablePlugins` both ways, the identifier is read with 32 bits, and a
// failure leaves the last error alone.

#include "lockprobe.h"

#include <QtTest>

using namespace commandkit;

namespace {
// Every operation of this area once; defined below its helpers.
QList<Operation> catalogue();
} // namespace

class TemporaryClassificationsTest : public QObject
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

// getClassifyTemp with its three in-and-out arguments; the outcome is the
// result followed by all three as they are afterwards.
Call readTemporary(qint64 id, const QStringList &values, const QStringList &texts)
{
    return [=](ClassifyInterface *c) {
        qint64 idInOut = id;
        QStringList valuesInOut = values;
        QStringList textsInOut = texts;
        const int r = c->getClassifyTemp(idInOut, valuesInOut, textsInOut);
        return QVariantList { r, idInOut, valuesInOut, textsInOut };
    };
}

Call classifyTemporarily(const QString &id, const QStringList &values)
{
    return [=](ClassifyInterface *c) {
        QString inOut = id;
        const bool ok = c->classifyTemporary(inOut, values);
        return QVariantList { ok, inOut };
    };
}

Call newWithTemporary(qint64 document, const QString &first, const QString &second, int number)
{
    return returning(
        [=](ClassifyInterface *c) { return c->newClassifyTemp(document, first, second, number); });
}

Call deleteTemporary(qint64 id)
{
    return returning([=](ClassifyInterface *c) { return c->deleteClassifyTemp(id); });
}

QList<Operation> catalogue()
{
    const Form form = Form::ErrorEquals;
    return {
        operation("classifyTemporary", classifyTemporarily("in", { "v1", "v2" }),
                  { "CFDOCCLASSIFYTEMP", "in", { "v1", "v2" } }, form, LastError::Recorded,
                  { true, "41" }, { false, "in" }),
        operation("newClassifyTemp", newWithTemporary(5, "x", "y", 6),
                  { "CFDOCCLASSIFYWITHTEMP", "5", { "x", "y", "6" } }, form, LastError::Recorded,
                  { true }, { false }),
        // Never records its failure: the last error keeps the earlier text.
        operation("getClassifyTemp", readTemporary(9, { "v1" }, { "t0" }),
                  { "CFDOCGETCLASSIFYTEMP", "9", {}, {}, { "v1" } }, form, LastError::Kept,
                  { 1, qint64(41), richList(), QStringList { "t0", "b1", "b2" } },
                  { 0, qint64(9), QStringList { "v1" }, QStringList { "t0" } }),
        operation("deleteClassifyTemp", deleteTemporary(9), { "CFDOCDELETECLASSIFYTEMP", "9" },
                  form, LastError::Recorded, { true }, { false }),
    };
}

} // namespace

void TemporaryClassificationsTest::requests_data()
{
    addRequestColumns();
    addCatalogueRequestRows(catalogue());

    addRequestRow("newClassifyTemp(12, a, b, 3) puts the number last",
                  newWithTemporary(12, "a", "b", 3),
                  { "CFDOCCLASSIFYWITHTEMP", "12", { "a", "b", "3" } });
    addRequestRow("newClassifyTemp with negative numbers", newWithTemporary(-12, "", "", -3),
                  { "CFDOCCLASSIFYWITHTEMP", "-12", { "", "", "-3" } });
    addRequestRow("deleteClassifyTemp(0) sends 0", deleteTemporary(0),
                  { "CFDOCDELETECLASSIFYTEMP", "0" });
    addRequestRow("deleteClassifyTemp beyond 32 bits keeps every digit",
                  deleteTemporary(Q_INT64_C(4294967296)),
                  { "CFDOCDELETECLASSIFYTEMP", "4294967296" });
    addRequestRow("getClassifyTemp sends a 64-bit identifier whole",
                  readTemporary(Q_INT64_C(1099511627776), {}, {}),
                  { "CFDOCGETCLASSIFYTEMP", "1099511627776" });
    addRequestRow("getClassifyTemp sends every value in availablePlugins, in order",
                  readTemporary(-1, { "b", "", "a" }, { "ignored" }),
                  { "CFDOCGETCLASSIFYTEMP", "-1", {}, {}, { "b", "", "a" } });
    addRequestRow("classifyTemporary sends an empty list as it is", classifyTemporarily("", {}),
                  { "CFDOCCLASSIFYTEMP", "", {} });
}

void TemporaryClassificationsTest::outcomes_data()
{
    addOutcomeColumns();
    addCatalogueOutcomeRows(catalogue());

    const auto read = readTemporary(9, { "v1" }, {});
    const QStringList none;

    // The identifier: 32 bits, widened.
    addOutcomeRow("identifier beyond 32 bits reads as 0", read, Reply("OK").docId("4294967296"),
                  { 1, qint64(0), none, none }, earlierError);
    addOutcomeRow("identifier -7 reads as -7", read, Reply("OK").docId("-7"),
                  { 1, qint64(-7), none, none }, earlierError);
    addOutcomeRow("identifier at the 32-bit maximum", read, Reply("OK").docId("2147483647"),
                  { 1, qint64(2147483647), none, none }, earlierError);
    addOutcomeRow("identifier at the 32-bit minimum", read, Reply("OK").docId("-2147483648"),
                  { 1, qint64(-2147483647) - 1, none, none }, earlierError);
    addOutcomeRow("identifier one past the 32-bit maximum reads as 0", read,
                  Reply("OK").docId("2147483648"), { 1, qint64(0), none, none }, earlierError);
    addOutcomeRow("identifier that is not a number reads as 0", read, Reply("OK").docId("12ab"),
                  { 1, qint64(0), none, none }, earlierError);
    addOutcomeRow("empty identifier reads as 0", read, Reply("OK"), { 1, qint64(0), none, none },
                  earlierError);

    // The result, from the reply's availablePlugins.
    addOutcomeRow("empty availablePlugins returns 1", read, Reply("OK").docId("3"),
                  { 1, qint64(3), none, none }, earlierError);
    addOutcomeRow("availablePlugins starting with 42 returns 42", read,
                  Reply("OK").docId("3").availablePlugins({ "42", "7" }),
                  { 42, qint64(3), none, none }, earlierError);
    addOutcomeRow("availablePlugins starting with text returns 0 although it succeeded", read,
                  Reply("OK").docId("3").availablePlugins({ "x" }), { 0, qint64(3), none, none },
                  earlierError);
    addOutcomeRow("availablePlugins starting with 0 returns 0", read,
                  Reply("OK").availablePlugins({ "0" }), { 0, qint64(0), none, none },
                  earlierError);
    addOutcomeRow("availablePlugins starting with a negative number returns it", read,
                  Reply("OK").availablePlugins({ "-3", "9" }), { -3, qint64(0), none, none },
                  earlierError);
    addOutcomeRow("availablePlugins starting with an empty entry returns 0", read,
                  Reply("OK").availablePlugins({ "", "9" }), { 0, qint64(0), none, none },
                  earlierError);

    // The lists.
    addOutcomeRow("ERROR returns 0, keeps every argument and the earlier last error",
                  readTemporary(9, { "v1" }, { "t0" }),
                  Reply("ERROR").docId("3").dataList({ "new" }).data({ "x" }).error("temp failed"),
                  { 0, qint64(9), QStringList { "v1" }, QStringList { "t0" } }, earlierError);
    addOutcomeRow("texts are appended to entries already there",
                  readTemporary(9, {}, { "t0", "t1" }), Reply("OK").data({ "a", "b" }),
                  { 1, qint64(0), none, QStringList { "t0", "t1", "a", "b" } }, earlierError);
    addOutcomeRow("values are replaced even by an empty list",
                  readTemporary(9, { "v1", "v2" }, { "t0" }), Reply("OK").docId("9"),
                  { 1, qint64(9), none, QStringList { "t0" } }, earlierError);
    addOutcomeRow("values are replaced by the reply's list", readTemporary(9, { "v1" }, {}),
                  Reply("OK").docId("9").dataList({ "n1", "n2" }),
                  { 1, qint64(9), QStringList { "n1", "n2" }, none }, earlierError);
    addOutcomeRow("text ends at the first zero byte", read,
                  Reply("OK").data({ QByteArray("ab\0cd", 5), QByteArray("\0x", 2) }),
                  { 1, qint64(0), none, QStringList { "ab", "" } }, earlierError);
    addOutcomeRow(
        "text is decoded as UTF-8", read,
        Reply("OK").data({ QByteArray("\xc3\x84rger \xe2\x82\xac") }),
        { 1, qint64(0), none, QStringList { QString::fromUtf8("\xc3\x84rger \xe2\x82\xac") } },
        earlierError);
    addOutcomeRow("an empty byte array appends an empty text", read,
                  Reply("OK").data({ QByteArray() }), { 1, qint64(0), none, QStringList { "" } },
                  earlierError);
    addOutcomeRow("classifyTemporary takes an empty reply docId over",
                  classifyTemporarily("in", {}), Reply("OK"), { true, "" }, earlierError);
}

QTEST_GUILESS_MAIN(TemporaryClassificationsTest)
#include "tst_temporaryclassifications.moc"
