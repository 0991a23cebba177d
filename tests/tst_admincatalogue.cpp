// SPDX-License-Identifier: Apache-2.0
// Every server, session, administration, user, role and rights operation,
// driven from one table through the real plugin and the scripted transport:
// the request it sends, and what it gives back for each status word.

#include "admincatalogue.h"

using namespace commandkit;

namespace {

// How each reply test judges a status word; the time-stamp notices, which
// judge nothing, pass on every word.
const StatusWord errorWord { "\"ERROR\"", "ERROR", false, false, false };

const StatusWord otherWords[] = {
    { "\"OK\"", "OK", true, true, true },
    { "\"error\" in lower case", "error", true, false, true },
    { "\"ERROR\" followed by a blank", "ERROR ", true, false, false },
    { "\"ERROR\" inside another word", "LOGIN-ERROR:", true, false, false },
    { "an empty status word", "", true, false, true },
    { "\"ok\" in lower case", "ok", true, false, true },
    { "\"OK\" followed by a blank", "OK ", true, false, true },
};

} // namespace

class AdminCatalogueTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void request_data();
    void request();
    void errorReply_data();
    void errorReply();
    void statusWord_data();
    void statusWord();
    void transportFailure_data();
    void transportFailure();

private:
    static void addStatusRows(const StatusWord &status);
};

void AdminCatalogueTest::request_data()
{
    addRequestColumns();
    for (const Operation &op : adminOperations())
        QTest::addRow("%s sends %s", qPrintable(op.name), qPrintable(op.request.command))
            << op.call << op.request;
}

void AdminCatalogueTest::request()
{
    checkRequestRow();
}

void AdminCatalogueTest::addStatusRows(const StatusWord &status)
{
    for (const Operation &op : adminOperations()) {
        const bool passes = status.passes(op.form);
        const bool recordsError = !passes && op.recordsError;
        addStatusRow(
            QString::asprintf("%s answered %s %s%s", qPrintable(op.name), status.label,
                              passes ? "succeeds" : "fails",
                              recordsError ? " and records the error" : ", keeping the last error"),
            op, status);
    }
}

// Nothing crashes, every operation gives its failure value, and only the
// operations that record errors change the last error.
void AdminCatalogueTest::errorReply_data()
{
    addOutcomeColumns();
    addStatusRows(errorWord);
}

void AdminCatalogueTest::errorReply()
{
    checkOutcomeRow();
}

void AdminCatalogueTest::statusWord_data()
{
    addOutcomeColumns();
    for (const StatusWord &status : otherWords)
        addStatusRows(status);
}

void AdminCatalogueTest::statusWord()
{
    checkOutcomeRow();
}

// A transport that gets no reply reaches every operation as "ERROR" with the
// transport's text and nothing else.
void AdminCatalogueTest::transportFailure_data()
{
    addOutcomeColumns();
    for (const Operation &op : adminOperations())
        addTransportFailureRow(op.name + QStringLiteral(" without a reply"), op);
}

void AdminCatalogueTest::transportFailure()
{
    checkOutcomeRow();
}

QTEST_GUILESS_MAIN(AdminCatalogueTest)
#include "tst_admincatalogue.moc"
