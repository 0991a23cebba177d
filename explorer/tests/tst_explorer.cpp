// The explorer as a person uses it, driven through its widgets: logging in,
// browsing, editing a document, reloading on others' changes, administering
// roles, and a lost connection. The windows run offscreen against the real
// plugin and the embedded transport on a database made for this run.

#include "adminview.h"
#include "attributespage.h"
#include "browseview.h"
#include "calllog.h"
#include "classifyinterface.h"
#include "clipboardspage.h"
#include "connection.h"
#include "detailspane.h"
#include "documentsview.h"
#include "folderrightspage.h"
#include "foldertree.h"
#include "mainwindow.h"
#include "pluginpaths.h"
#include "records.h"
#include "rolespage.h"
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
#include <QPluginLoader>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTableView>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeWidget>

#include <memory>

using namespace nuvexplorer;

namespace {

// Every call below runs on the embedded engine in milliseconds; a chain
// of reads after a click is a few dozen calls. Twenty seconds leaves room
// for a machine busy with other builds without hiding a hang.
constexpr int answerTimeoutMs = 20000;

const QString adminUser = QStringLiteral("admin");
const QString adminPassword = QStringLiteral("admin-secret-1");
const QString clerkUser = QStringLiteral("clerk");
const QString clerkPassword = QStringLiteral("clerk-secret-1");

QString record(const QStringList &parts)
{
    return joinFields(parts);
}

} // namespace

class ExplorerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();

    void callsRunOffTheWindowThread();
    void editingAFieldClassifiesAndGrowsTheHistory_data();
    void editingAFieldClassifiesAndGrowsTheHistory();
    void anotherSessionsWriteReloadsTheOpenViews();
    void administratorEditsARole();
    void administrationOnlyForAdministrators_data();
    void administrationOnlyForAdministrators();
    void callLogShowsCommandsAndServerErrors();
    void lostConnectionShowsBannerAndReconnects();
    void trashMovesAndRestores_data();
    void trashMovesAndRestores();
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

private:
    // A second host on the same database, to prepare data and to check
    // what the explorer wrote.
    ClassifyInterface *other() { return otherClient.get(); }
    std::unique_ptr<MainWindow> openWindow(const QString &user, const QString &password);
    static bool waitIdle(MainWindow &window);
    static QStringList column(const QAbstractItemModel *model, const QString &header);
    // Opens a page of the documents view as the administrator.
    std::unique_ptr<MainWindow>
    openDocumentPage(const std::function<View *(DocumentsView *)> &page);
    std::unique_ptr<MainWindow> openAdminPage(const std::function<View *(AdminView *)> &page);

    QTemporaryDir dir;
    QString database;
    PluginPaths paths;
    QPluginLoader loader;
    std::unique_ptr<ClassifyInterface> otherClient;
};

void ExplorerTest::initTestCase()
{
    QVERIFY(dir.isValid());
    // The window remembers its connection in QSettings: keep that in the
    // test's directory.
    qputenv("XDG_CONFIG_HOME", dir.filePath(QStringLiteral("config")).toLocal8Bit());
    qputenv("NUV_SERVER_PBKDF2_ITERATIONS", "1000");
    qputenv("NUV_SERVER_ADMIN_USER", adminUser.toUtf8());
    qputenv("NUV_SERVER_ADMIN_PASSWORD", adminPassword.toUtf8());
    database = dir.filePath(QStringLiteral("archive.db"));
    paths = locatePlugins();

    loader.setFileName(paths.classifyPlugin);
    auto *root = qobject_cast<ClassifyInterface *>(loader.instance());
    QVERIFY2(root, qPrintable(loader.errorString()));
    otherClient.reset(root->createInstance(paths.embeddedTransportDir));
    QVERIFY2(other()->connectToNuvKESP(database, 0, adminUser, adminPassword),
             qPrintable(other()->errorString()));
    QVERIFY2(other()->setCurrentArchive(QStringLiteral("Default")),
             qPrintable(other()->errorString()));

    // A clerk without administration, folders, a role and two documents.
    QVERIFY2(other()->setUsers({ record({ clerkUser, clerkPassword, QStringLiteral("Carl Clerk"),
                                          QString(), QStringLiteral("0") }) }),
             qPrintable(other()->errorString()));
    QVERIFY2(other()->saveFolderStructure(
                 QStringLiteral("1"),
                 { record({ "Invoices", "", "1", "Incoming invoices", "1", "F1" }),
                   record({ "Paid", "F1", "1", "", "1", "F2" }),
                   record({ "Contracts", "", "2", "", "1", "F3" }) },
                 {}),
             qPrintable(other()->errorString()));
    QVERIFY2(other()->setRoles({ record({ "Accounting", "Books the invoices", "0" }) }),
             qPrintable(other()->errorString()));
    QVERIFY2(other()->setRoleUsers(QStringLiteral("Accounting"), { clerkUser }),
             qPrintable(other()->errorString()));
    for (const QString &title :
         { QStringLiteral("Invoice 4711"), QStringLiteral("Invoice 4712") }) {
        QString id;
        QVERIFY2(other()->classify(id, { record({ "title", title }), record({ "folder", "F1" }) }),
                 qPrintable(other()->errorString()));
    }
}

void ExplorerTest::cleanupTestCase()
{
    otherClient.reset();
}

std::unique_ptr<MainWindow> ExplorerTest::openWindow(const QString &user, const QString &password)
{
    auto window = std::make_unique<MainWindow>(paths);
    window->setInteractive(false);
    window->show();
    QSignalSpy loggedIn(window.get(), &MainWindow::archivesLoaded);
    ConnectionSettings settings;
    settings.kind = ConnectionSettings::Embedded;
    settings.database = database;
    settings.user = user;
    window->connectTo(settings, password);
    if (!loggedIn.wait(answerTimeoutMs) || !waitIdle(*window))
        return nullptr;
    return window;
}

bool ExplorerTest::waitIdle(MainWindow &window)
{
    // A chain of calls queues its next call inside the answer of the one
    // before, so no pending call means the chain has ended.
    return QTest::qWaitFor([&] { return window.connection()->pendingCalls() == 0; },
                           answerTimeoutMs);
}

QStringList ExplorerTest::column(const QAbstractItemModel *model, const QString &header)
{
    int column = -1;
    for (int i = 0; i < model->columnCount(); ++i)
        if (model->headerData(i, Qt::Horizontal).toString() == header)
            column = i;
    QStringList values;
    for (int row = 0; column >= 0 && row < model->rowCount(); ++row)
        values << model->index(row, column).data().toString();
    return values;
}

void ExplorerTest::callsRunOffTheWindowThread()
{
    auto window = openWindow(adminUser, adminPassword);
    QVERIFY2(window, "the login did not finish");
    QThread *callThread = nullptr;
    bool answered = false;
    QThread *answerThread = nullptr;
    window->connection()->call(
        QStringLiteral("getUsername"), QString(),
        [&callThread](ClassifyInterface &client) {
            callThread = QThread::currentThread();
            CallResult result;
            result.ok = true;
            result.value = client.getUsername();
            return result;
        },
        window.get(),
        [&](const CallResult &result) {
            answered = result.value.toString() == adminUser;
            answerThread = QThread::currentThread();
        });
    QTRY_VERIFY_WITH_TIMEOUT(answerThread != nullptr, answerTimeoutMs);
    QVERIFY(answered);
    QVERIFY(callThread != nullptr);
    QVERIFY(callThread != QThread::currentThread());
    QCOMPARE(answerThread, QThread::currentThread());
}

void ExplorerTest::editingAFieldClassifiesAndGrowsTheHistory_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("value");
    QTest::newRow("title") << "title"
                           << "Invoice 4711 (checked)";
    QTest::newRow("remark") << "remark"
                            << "paid by transfer";
    QTest::newRow("date") << "date"
                          << "2026-03-05";
}

void ExplorerTest::editingAFieldClassifiesAndGrowsTheHistory()
{
    QFETCH(QString, field);
    QFETCH(QString, value);
    auto window = openWindow(adminUser, adminPassword);
    QVERIFY2(window, "the login did not finish");
    QCOMPARE(window->archiveSelector()->currentText(), QStringLiteral("Default"));

    BrowseView *browse = window->browseView();
    QSignalSpy listed(browse, &BrowseView::documentsLoaded);
    QVERIFY(browse->folders()->selectKey(QStringLiteral("F1")));
    QVERIFY(listed.wait(answerTimeoutMs));
    QVERIFY(waitIdle(*window));
    const QStringList titles = column(browse->documents()->model(), QStringLiteral("Title"));
    QVERIFY2(titles.contains(QStringLiteral("Invoice 4712")), qPrintable(titles.join(", ")));

    // The first document: open it and read its history.
    QVERIFY(browse->selectDocument(QStringLiteral("1")));
    DetailsPane *details = browse->details();
    QVERIFY(waitIdle(*window));
    QCOMPARE(details->document(), QStringLiteral("1"));
    const int historyBefore = details->historyTable()->rowCount();
    QVERIFY(historyBefore > 0);

    QTableWidget *data = details->dataTable();
    int row = -1;
    for (int i = 0; i < data->rowCount(); ++i)
        if (data->item(i, 0)->data(Qt::UserRole).toString() == field)
            row = i;
    QVERIFY2(row >= 0, qPrintable(field));
    QVERIFY(!details->saveButton()->isEnabled());
    data->item(row, 1)->setText(value);
    QVERIFY(details->saveButton()->isEnabled());
    QTest::mouseClick(details->saveButton(), Qt::LeftButton);
    QVERIFY(waitIdle(*window));

    QCOMPARE(details->document(), QStringLiteral("1"));
    QCOMPARE(details->historyTable()->rowCount(), historyBefore + 1);
    QCOMPARE(details->historyTable()->item(historyBefore, 2)->text(), QStringLiteral("classified"));
    QCOMPARE(details->dataTable()->item(row, 1)->text(), value);
    QCOMPARE(other()->getDocumentData(QStringLiteral("1"), field), QStringList { value });
}

void ExplorerTest::anotherSessionsWriteReloadsTheOpenViews()
{
    auto window = openWindow(adminUser, adminPassword);
    QVERIFY2(window, "the login did not finish");
    BrowseView *browse = window->browseView();
    QVERIFY(browse->folders()->selectKey(QStringLiteral("F1")));
    QVERIFY(waitIdle(*window));
    const int rowsBefore = browse->documents()->model()->rowCount();

    QString id;
    QVERIFY2(other()->classify(
                 id, { record({ "title", "Written elsewhere" }), record({ "folder", "F1" }) }),
             qPrintable(other()->errorString()));

    // The next exchange carries the old update marker; the answer asks for
    // a reload, which reaches the window through a queued connection.
    QSignalSpy reloaded(browse, &BrowseView::documentsLoaded);
    window->pollNow();
    QVERIFY(reloaded.wait(answerTimeoutMs));
    QVERIFY(waitIdle(*window));
    QCOMPARE(browse->documents()->model()->rowCount(), rowsBefore + 1);
    QVERIFY(column(browse->documents()->model(), QStringLiteral("Title"))
                .contains(QStringLiteral("Written elsewhere")));
    QCOMPARE(browse->folders()->selectedKey(), QStringLiteral("F1"));
}

void ExplorerTest::administratorEditsARole()
{
    auto window = openWindow(adminUser, adminPassword);
    QVERIFY2(window, "the login did not finish");
    AdminView *admin = window->adminView();
    QVERIFY(admin);
    window->tabs()->setCurrentWidget(admin);
    RolesPage *roles = admin->rolesPage();
    admin->tabs()->setCurrentWidget(roles);
    QVERIFY(waitIdle(*window));

    // The tree holds the role with its user below it.
    QVERIFY(roles->selectRole(QStringLiteral("Accounting")));
    QTreeWidgetItem *item = roles->tree()->currentItem();
    QCOMPARE(item->childCount(), 1);
    QCOMPARE(item->child(0)->text(0), clerkUser);

    roles->descriptionEdit()->setText(QStringLiteral("Books and pays the invoices"));
    roles->saveRole();
    QVERIFY(waitIdle(*window));
    roles->usersEdit()->setText(clerkUser + QStringLiteral(", ") + adminUser);
    roles->saveMembers();
    QVERIFY(waitIdle(*window));

    QVERIFY(other()->getRoleList().contains(
        record({ "Accounting", "Books and pays the invoices", "0", "2" })));
    QCOMPARE(other()->getRoleUsers(QStringLiteral("Accounting")),
             (QStringList { adminUser, clerkUser }));
    QVERIFY(roles->selectRole(QStringLiteral("Accounting")));
    QCOMPARE(roles->tree()->currentItem()->text(1), QStringLiteral("Books and pays the invoices"));
    QCOMPARE(roles->tree()->currentItem()->childCount(), 2);
    QVERIFY(window->lastFailure().isEmpty());
}

void ExplorerTest::administrationOnlyForAdministrators_data()
{
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");
    QTest::addColumn<bool>("administrator");
    QTest::newRow("administrator") << adminUser << adminPassword << true;
    QTest::newRow("clerk") << clerkUser << clerkPassword << false;
}

void ExplorerTest::administrationOnlyForAdministrators()
{
    QFETCH(QString, user);
    QFETCH(QString, password);
    QFETCH(bool, administrator);
    auto window = openWindow(user, password);
    QVERIFY2(window, "the login did not finish");
    QCOMPARE(window->isAdministrator(), administrator);
    QCOMPARE(window->adminView() != nullptr, administrator);
    QStringList tabs;
    for (int i = 0; i < window->tabs()->count(); ++i)
        tabs << window->tabs()->tabText(i);
    QCOMPARE(tabs.contains(QStringLiteral("&Administration")), administrator);
    // Whoever logged in browses the same documents.
    QVERIFY(column(window->browseView()->documents()->model(), QStringLiteral("Title"))
                .contains(QStringLiteral("Invoice 4712")));
}

void ExplorerTest::callLogShowsCommandsAndServerErrors()
{
    auto window = openWindow(adminUser, adminPassword);
    QVERIFY2(window, "the login did not finish");
    CallLogModel *log = window->callLog();
    QStringList commands;
    for (int row = 0; row < log->rowCount(); ++row)
        commands << log->record(row).command;
    for (const char *word : { "CFLOGIN", "CFSENDROLESINFO", "CFDOCGETARCHIVES", "CFSELARCHIVE",
                              "CFGETMANS", "CFDOCSINFO" })
        QVERIFY2(commands.contains(QLatin1String(word)), word);

    // A refused change shows the server's own text.
    AdminView *admin = window->adminView();
    window->tabs()->setCurrentWidget(admin);
    admin->tabs()->setCurrentWidget(admin->rolesPage());
    QVERIFY(waitIdle(*window));
    QVERIFY(admin->rolesPage()->selectRole(QStringLiteral("Accounting")));
    admin->rolesPage()->usersEdit()->setText(QStringLiteral("nobody-here"));
    admin->rolesPage()->saveMembers();
    QVERIFY(waitIdle(*window));
    int failed = -1;
    for (int row = 0; row < log->rowCount(); ++row)
        if (!log->record(row).ok)
            failed = row;
    QVERIFY(failed >= 0);
    const CallRecord refused = log->record(failed);
    QCOMPARE(refused.operation, QStringLiteral("setRoleUsers"));
    QCOMPARE(refused.command, QStringLiteral("CFDOCSETROLEUSERS"));
    QVERIFY2(refused.error.contains(QStringLiteral("nobody-here")), qPrintable(refused.error));
    QVERIFY(window->lastFailure().contains(refused.error));
    const QString copied = log->text({ failed });
    QVERIFY(copied.startsWith(QStringLiteral("Time\tOperation\tCommand")));
    QVERIFY(copied.contains(QStringLiteral("\tsetRoleUsers\tCFDOCSETROLEUSERS\t")));
    // The password never reaches the log.
    for (int row = 0; row < log->rowCount(); ++row)
        QVERIFY(!log->text({ row }).contains(adminPassword));
}

void ExplorerTest::lostConnectionShowsBannerAndReconnects()
{
    auto window = openWindow(clerkUser, clerkPassword);
    QVERIFY2(window, "the login did not finish");
    QVERIFY(!window->banner()->isVisible());
    QObject *client = window->connection()->clientObject();
    QVERIFY(client);
    // What a transport does when its connection breaks: the client's slot
    // marks the session and emits clientDisconnect() on its own thread.
    QVERIFY(QMetaObject::invokeMethod(client, "emitDisconnected", Qt::QueuedConnection));
    QTRY_VERIFY_WITH_TIMEOUT(window->banner()->isVisible(), answerTimeoutMs);

    QSignalSpy loggedIn(window.get(), &MainWindow::archivesLoaded);
    auto *reconnect = window->banner()->findChild<QPushButton *>(QStringLiteral("reconnect"));
    QVERIFY(reconnect);
    QTest::mouseClick(reconnect, Qt::LeftButton);
    QVERIFY(loggedIn.wait(answerTimeoutMs));
    QVERIFY(!window->banner()->isVisible());
    QVERIFY(window->isLoggedIn());
}

std::unique_ptr<MainWindow>
ExplorerTest::openDocumentPage(const std::function<View *(DocumentsView *)> &page)
{
    auto window = openWindow(adminUser, adminPassword);
    if (!window)
        return nullptr;
    DocumentsView *documents = window->documentsView();
    window->tabs()->setCurrentWidget(documents);
    documents->tabs()->setCurrentWidget(page(documents));
    if (!waitIdle(*window))
        return nullptr;
    return window;
}

void ExplorerTest::trashMovesAndRestores_data()
{
    QTest::addColumn<bool>("restore");
    QTest::addColumn<QString>("inTrash");
    QTest::addColumn<int>("listed");
    QTest::newRow("moved") << false << "yes" << 0;
    QTest::newRow("moved and restored") << true << "no" << 1;
    // `listed`: how many of the new document the folder lists afterwards.
}

void ExplorerTest::trashMovesAndRestores()
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

void ExplorerTest::clipboardHoldsCards()
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

void ExplorerTest::shareIsCreatedListedAndDeleted()
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

void ExplorerTest::savedSearchIsCreatedRunAndDeleted()
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

void ExplorerTest::temporaryClassificationsAreStoredAndDeleted()
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

std::unique_ptr<MainWindow>
ExplorerTest::openAdminPage(const std::function<View *(AdminView *)> &page)
{
    auto window = openWindow(adminUser, adminPassword);
    if (!window || !window->adminView())
        return nullptr;
    AdminView *admin = window->adminView();
    window->tabs()->setCurrentWidget(admin);
    admin->tabs()->setCurrentWidget(page(admin));
    if (!waitIdle(*window))
        return nullptr;
    return window;
}

void ExplorerTest::administratorManagesUsers()
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

void ExplorerTest::newTenantBringsItsArchive()
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

void ExplorerTest::typesAreAddedAndRemoved_data()
{
    QTest::addColumn<int>("kind");
    QTest::newRow("document types") << int(TypesPage::DocumentTypes);
    QTest::newRow("status types") << int(TypesPage::StatusTypes);
}

void ExplorerTest::typesAreAddedAndRemoved()
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

void ExplorerTest::attributeWithValueList()
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

void ExplorerTest::folderIsRestrictedToARole()
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

void ExplorerTest::serverPageShowsVersionAndRefusals()
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

QTEST_MAIN(ExplorerTest)
#include "tst_explorer.moc"
