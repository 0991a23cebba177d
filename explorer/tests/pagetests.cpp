// SPDX-License-Identifier: Apache-2.0
// The pages of the Documents and Administration tabs, each driven through
// its fields and buttons and checked against what the server then holds.

#include "adminview.h"
#include "attributespage.h"
#include "browseview.h"
#include "clipboardspage.h"
#include "connection.h"
#include "documentsview.h"
#include "explorerfixture.h"
#include "folderrightspage.h"
#include "foldertree.h"
#include "mainwindow.h"
#include "searchespage.h"
#include "serverpage.h"
#include "sharespage.h"
#include "temporarypage.h"
#include "tenantspage.h"
#include "trashpage.h"
#include "typespage.h"
#include "userspage.h"

#include <QComboBox>
#include <QDateTimeEdit>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QTableView>
#include <QTableWidget>
#include <QTest>
#include <QTreeWidget>

using namespace nuvexplorer;

class PagesTest : public ExplorerFixture
{
    Q_OBJECT

private Q_SLOTS:
    void trashMovesAndRestores_data();
    void trashMovesAndRestores();
    void deleteKeyInTheListTrashesTheDocument();
    void clipboardHoldsCards();
    void shareIsCreatedListedAndDeleted();
    void savedSearchIsCreatedRunAndDeleted();
    void temporaryClassificationsAreStoredAndDeleted();
    void administratorManagesUsers();
    void newTenantBringsItsArchive();
    void typesAreAddedAndRemoved_data();
    void typesAreAddedAndRemoved();
    void attributeWithValueList();
    void folderIsRestrictedToARole();
    void serverPageShowsVersionAndRefusals();
};

void PagesTest::trashMovesAndRestores_data()
{
    QTest::addColumn<bool>("restore");
    QTest::addColumn<QString>("inTrash");
    QTest::addColumn<int>("listed");
    QTest::newRow("moved") << false << "yes" << 0;
    QTest::newRow("moved and restored") << true << "no" << 1;
    // `listed`: how many of the new document the folder lists afterwards.
}

void PagesTest::trashMovesAndRestores()
{
    QFETCH(bool, restore);
    QFETCH(QString, inTrash);
    QFETCH(int, listed);
    const int before = other()->getDocuments({ QStringLiteral("folder=F3") }).size();
    QString id;
    QVERIFY2(other()->classify(
                 id, { record({ "title", "To be thrown away" }), record({ "folder", "F3" }) }),
             qPrintable(other()->errorString()));
    auto window = openDocumentPage([](DocumentsView *view) { return view->trashPage(); });
    QVERIFY2(window, "the login did not finish");
    TrashPage *trash = window->documentsView()->trashPage();
    trash->numbersEdit()->setText(id);
    trash->moveToTrash();
    QVERIFY(waitIdle(*window));
    if (restore) {
        trash->restore();
        QVERIFY(waitIdle(*window));
    }
    QCOMPARE(trash->table()->rowCount(), 1);
    QCOMPARE(trash->table()->item(0, 0)->text(), id);
    QCOMPARE(trash->table()->item(0, 3)->text(), inTrash);
    QVERIFY2(trash->countLabel()->text().contains(QStringLiteral(" in the trash")),
             qPrintable(trash->countLabel()->text()));
    QCOMPARE(other()->getDocuments({ QStringLiteral("folder=F3") }).size(), before + listed);
    if (!restore)
        QVERIFY(other()->removeDocumentsFromTrash({ id }));
}

void PagesTest::deleteKeyInTheListTrashesTheDocument()
{
    QString id;
    QVERIFY2(other()->classify(
                 id, { record({ "title", "Thrown away by key" }), record({ "folder", "F2" }) }),
             qPrintable(other()->errorString()));
    auto window = openWindow(adminUser, adminPassword);
    QVERIFY2(window, "the login did not finish");
    BrowseView *browse = window->browseView();
    QVERIFY(browse->folders()->selectKey(QStringLiteral("F2")));
    QVERIFY(waitIdle(*window));
    QVERIFY(browse->selectDocument(id));
    QVERIFY(waitIdle(*window));
    // The shortcut belongs to the list: it must have the focus.
    window->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(window.get()));
    browse->documents()->setFocus();
    QTest::keyClick(browse->documents(), Qt::Key_Delete);
    QVERIFY(waitIdle(*window));
    QVERIFY(!column(browse->documents()->model(), QStringLiteral("Title"))
                 .contains(QStringLiteral("Thrown away by key")));
    // The trash page lists it.
    DocumentsView *documents = window->documentsView();
    window->tabs()->setCurrentWidget(documents);
    documents->tabs()->setCurrentWidget(documents->trashPage());
    QVERIFY(waitIdle(*window));
    QTableWidget *trash = documents->trashPage()->table();
    QCOMPARE(trash->rowCount(), 1);
    QCOMPARE(trash->item(0, 0)->text(), id);
    QCOMPARE(trash->item(0, 3)->text(), QStringLiteral("yes"));
    QVERIFY(other()->removeDocumentsFromTrash({ id }));
}

void PagesTest::clipboardHoldsCards()
{
    auto window = openDocumentPage([](DocumentsView *view) { return view->clipboardsPage(); });
    QVERIFY2(window, "the login did not finish");
    ClipboardsPage *page = window->documentsView()->clipboardsPage();
    page->nameEdit()->setText(QStringLiteral("To check"));
    page->addClipboard();
    QVERIFY(waitIdle(*window));
    QVERIFY(page->selectClipboard(QStringLiteral("To check")));
    QVERIFY(waitIdle(*window));
    page->cardEdit()->setText(QStringLiteral("1"));
    page->cardTextEdit()->setText(QStringLiteral("check the amount"));
    page->addCard();
    QVERIFY(waitIdle(*window));
    QVERIFY2(window->lastFailure().isEmpty(), qPrintable(window->lastFailure()));
    QCOMPARE(page->cardTable()->rowCount(), 1);
    QCOMPARE(page->cardTable()->item(0, 1)->text(), QStringLiteral("check the amount"));
    QList<QPair<QString, QString>> clipboards;
    QVERIFY(other()->readClipboards(clipboards));
    QCOMPARE(clipboards.size(), 1);
    QCOMPARE(clipboards.first().second, QStringLiteral("To check"));
}

void PagesTest::shareIsCreatedListedAndDeleted()
{
    auto window = openDocumentPage([](DocumentsView *view) { return view->sharesPage(); });
    QVERIFY2(window, "the login did not finish");
    SharesPage *page = window->documentsView()->sharesPage();
    const int before = page->table()->rowCount();
    page->titleEdit()->setText(QStringLiteral("For the audit"));
    page->documentsEdit()->setText(QStringLiteral("1, 2"));
    page->recipientEdit()->setText(QStringLiteral("auditor@example.org"));
    page->expiryEdit()->setDateTime(QDateTime::currentDateTime().addDays(7));
    page->createShare();
    QVERIFY(waitIdle(*window));
    QCOMPARE(page->table()->rowCount(), before + 1);
    QCOMPARE(page->table()->item(before, 2)->text(), QStringLiteral("auditor@example.org"));
    QCOMPARE(other()->getShares().size(), before + 1);
    page->table()->setCurrentCell(before, 0);
    page->deleteShare();
    QVERIFY(waitIdle(*window));
    QCOMPARE(page->table()->rowCount(), before);
    QCOMPARE(other()->getShares().size(), before);
}

void PagesTest::savedSearchIsCreatedRunAndDeleted()
{
    auto window = openDocumentPage([](DocumentsView *view) { return view->searchesPage(); });
    QVERIFY2(window, "the login did not finish");
    SearchesPage *page = window->documentsView()->searchesPage();
    page->nameEdit()->setText(QStringLiteral("Invoice 4712"));
    page->conditionsEdit()->setText(QStringLiteral("title~4712; folder=F1"));
    page->createSearch();
    QVERIFY(waitIdle(*window));
    QCOMPARE(page->table()->rowCount(), 1);
    QCOMPARE(page->table()->item(0, 3)->text(), QStringLiteral("title~4712; folder=F1"));
    page->table()->setCurrentCell(0, 0);
    page->runSearch();
    QVERIFY(waitIdle(*window));
    QCOMPARE(page->resultTable()->rowCount(), 1);
    QCOMPARE(page->resultTable()->item(0, 5)->text(), QStringLiteral("Invoice 4712"));
    page->deleteSearch();
    QVERIFY(waitIdle(*window));
    QCOMPARE(page->table()->rowCount(), 0);
}

void PagesTest::temporaryClassificationsAreStoredAndDeleted()
{
    auto window = openDocumentPage([](DocumentsView *view) { return view->temporaryPage(); });
    QVERIFY2(window, "the login did not finish");
    TemporaryPage *page = window->documentsView()->temporaryPage();
    QCOMPARE(page->table()->rowCount(), 0);
    for (const char *values : { "title=Draft one", "title=Draft two; remark=later" }) {
        page->valuesEdit()->setText(QLatin1String(values));
        page->createDraft();
        QVERIFY(waitIdle(*window));
    }
    QCOMPARE(page->table()->rowCount(), 2);
    QCOMPARE(page->table()->item(1, 1)->text(), QStringLiteral("title=Draft two; remark=later"));
    QCOMPARE(page->table()->item(1, 3)->text(), adminUser);
    page->table()->setCurrentCell(0, 0);
    page->deleteDraft();
    QVERIFY(waitIdle(*window));
    QCOMPARE(page->table()->rowCount(), 1);
    QCOMPARE(page->table()->item(0, 1)->text(), QStringLiteral("title=Draft two; remark=later"));
}

void PagesTest::administratorManagesUsers()
{
    auto window = openAdminPage([](AdminView *view) { return view->usersPage(); });
    QVERIFY2(window, "the login did not finish");
    UsersPage *page = window->adminView()->usersPage();
    page->createUser(QStringLiteral("newbie"), QStringLiteral("Nina Newbie"),
                     QStringLiteral("nina@example.org"), QStringLiteral("first-pass-1"));
    QVERIFY(waitIdle(*window));
    QVERIFY(page->selectUser(QStringLiteral("newbie")));
    QVERIFY(waitIdle(*window));
    const int row = page->table()->currentRow();
    QCOMPARE(page->table()->item(row, 1)->text(), QStringLiteral("Nina Newbie"));
    QCOMPARE(page->table()->item(row, 4)->text(), QStringLiteral("1"));

    page->rolesEdit()->setText(QStringLiteral("Accounting"));
    page->saveRoles();
    QVERIFY(waitIdle(*window));
    QCOMPARE(other()->getUserRoles(QStringLiteral("newbie")), QStringList { "Accounting" });

    page->toggleActive();
    QVERIFY(waitIdle(*window));
    QVERIFY(page->selectUser(QStringLiteral("newbie")));
    QCOMPARE(page->table()->item(page->table()->currentRow(), 4)->text(), QStringLiteral("0"));

    page->resetPassword(QStringLiteral("newbie"), QStringLiteral("x"));
    QVERIFY(waitIdle(*window));
    // The server's refusal, as it wrote it.
    QVERIFY2(window->lastFailure().contains(QStringLiteral("at least")),
             qPrintable(window->lastFailure()));
}

void PagesTest::newTenantBringsItsArchive()
{
    auto window = openAdminPage([](AdminView *view) { return view->tenantsPage(); });
    QVERIFY2(window, "the login did not finish");
    TenantsPage *page = window->adminView()->tenantsPage();
    const int before = page->table()->rowCount();
    page->nameEdit()->setText(QStringLiteral("Branch"));
    page->addTenant();
    QVERIFY(waitIdle(*window));
    QCOMPARE(page->table()->rowCount(), before + 1);
    // The client announces the new archive with "SYSUPDATE"; the window
    // reads the archives again.
    QVERIFY(window->archiveSelector()->findText(QStringLiteral("Branch")) >= 0);
    QCOMPARE(window->archiveSelector()->currentText(), QStringLiteral("Default"));
}

void PagesTest::typesAreAddedAndRemoved_data()
{
    QTest::addColumn<int>("kind");
    QTest::newRow("document types") << int(TypesPage::DocumentTypes);
    QTest::newRow("status types") << int(TypesPage::StatusTypes);
}

void PagesTest::typesAreAddedAndRemoved()
{
    QFETCH(int, kind);
    const bool documentTypes = kind == TypesPage::DocumentTypes;
    auto window = openAdminPage([documentTypes](AdminView *view) -> View * {
        return documentTypes ? view->documentTypesPage() : view->statusTypesPage();
    });
    QVERIFY2(window, "the login did not finish");
    TypesPage *page = documentTypes ? window->adminView()->documentTypesPage()
                                    : window->adminView()->statusTypesPage();
    auto serverNames = [&] {
        QStringList records;
        QList<QByteArray> payloads;
        const bool ok = documentTypes ? other()->getDocTypes(records, payloads)
                                      : other()->getStatusTypes(records, payloads);
        QStringList names;
        for (const QString &entry : records)
            names << fields(entry).value(0);
        return ok ? names : QStringList { QStringLiteral("(failed)") };
    };
    for (const char *name : { "Invoice", "Letter" }) {
        page->nameEdit()->setText(QLatin1String(name));
        page->addType();
        QVERIFY(waitIdle(*window));
    }
    QCOMPARE(serverNames(), (QStringList { "Invoice", "Letter" }));
    QCOMPARE(page->table()->rowCount(), 2);
    page->table()->setCurrentCell(0, 0);
    page->removeType();
    QVERIFY(waitIdle(*window));
    QCOMPARE(serverNames(), QStringList { "Letter" });
    QCOMPARE(page->table()->item(0, 0)->text(), QStringLiteral("Letter"));
}

void PagesTest::attributeWithValueList()
{
    auto window = openAdminPage([](AdminView *view) { return view->attributesPage(); });
    QVERIFY2(window, "the login did not finish");
    AttributesPage *page = window->adminView()->attributesPage();
    page->nameEdit()->setText(QStringLiteral("priority"));
    page->labelEdit()->setText(QStringLiteral("Priority"));
    page->addAttribute();
    QVERIFY(waitIdle(*window));
    QCOMPARE(page->table()->rowCount(), 1);
    page->table()->setCurrentCell(0, 0);
    QVERIFY(waitIdle(*window));
    page->valuesEdit()->setText(QStringLiteral("high, low"));
    page->saveValues();
    QVERIFY(waitIdle(*window));
    const int number = page->table()->item(0, 0)->text().toInt();
    QCOMPARE(other()->getWerteListe(number), (QStringList { "high", "low" }));
    QCOMPARE(page->table()->item(0, 4)->text(), QStringLiteral("2"));
    QCOMPARE(page->valuesEdit()->text(), QStringLiteral("high, low"));
}

void PagesTest::folderIsRestrictedToARole()
{
    auto window = openAdminPage([](AdminView *view) { return view->folderRightsPage(); });
    QVERIFY2(window, "the login did not finish");
    FolderRightsPage *page = window->adminView()->folderRightsPage();
    QVERIFY(page->folders()->selectKey(QStringLiteral("F3")));
    page->rolesEdit()->setText(QStringLiteral("Accounting"));
    page->saveRoles();
    QVERIFY(waitIdle(*window));
    QCOMPARE(other()->getFolderRoles(QStringLiteral("F3")), QStringList { "Accounting" });
    QVERIFY(page->folders()->selectKey(QStringLiteral("F3")));
    QCOMPARE(page->folders()->currentItem()->text(FolderTree::RolesColumn),
             QStringLiteral("Accounting"));
    page->rolesEdit()->clear();
    page->saveRoles();
    QVERIFY(waitIdle(*window));
    QCOMPARE(other()->getFolderRoles(QStringLiteral("F3")), QStringList());
}

void PagesTest::serverPageShowsVersionAndRefusals()
{
    auto window = openAdminPage([](AdminView *view) { return view->serverPage(); });
    QVERIFY2(window, "the login did not finish");
    ServerPage *page = window->adminView()->serverPage();
    const QString shown = page->output()->toPlainText();
    QVERIFY2(shown.contains(QStringLiteral("Server version: 18.09-5")), qPrintable(shown));
    QVERIFY2(shown.contains(QStringLiteral("Index: documents=")), qPrintable(shown));
    // This test database has no backup directory: the server says so.
    page->backup();
    QVERIFY(waitIdle(*window));
    QVERIFY2(window->lastFailure().contains(QStringLiteral("no backup directory")),
             qPrintable(window->lastFailure()));
}

int runPageTests(int argc, char **argv)
{
    PagesTest pages;
    return QTest::qExec(&pages, argc, argv);
}

#include "pagetests.moc"
