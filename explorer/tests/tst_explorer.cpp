// SPDX-License-Identifier: Apache-2.0
// The explorer as a person uses it, driven through its widgets: logging in,
// browsing, editing a document, reloading on others' changes, administering
// roles, the call log and a lost connection. The windows run offscreen
// against the real plugin and the embedded transport.

#include "adminview.h"
#include "browseview.h"
#include "calllog.h"
#include "connection.h"
#include "detailspane.h"
#include "explorerfixture.h"
#include "foldertree.h"
#include "mainwindow.h"
#include "passworddialog.h"
#include "rolespage.h"

#include <QApplication>
#include <QComboBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QScopeGuard>
#include <QSemaphore>
#include <QSettings>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTableView>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>

using namespace nuvexplorer;

class SessionTest : public ExplorerFixture
{
    Q_OBJECT

private Q_SLOTS:
    void loginAddresses_data();
    void loginAddresses();
    void callsRunOffTheWindowThread();
    void editingAFieldClassifiesAndGrowsTheHistory_data();
    void editingAFieldClassifiesAndGrowsTheHistory();
    void listIsFilteredAndSorted_data();
    void listIsFilteredAndSorted();
    void anotherSessionsWriteReloadsTheOpenViews();
    void administratorEditsARole();
    void administrationOnlyForAdministrators_data();
    void administrationOnlyForAdministrators();
    void callLogShowsCommandsAndServerErrors();
    void lostConnectionShowsBannerAndReconnects();
    void slowCallShowsBusyIndicator();
    void quickReloadsShowEachEntryOnce();
    void settingsKeepConnectionAndGeometryButNoPassword();
    void expiredPasswordIsChangedBeforeLogin();
};

void SessionTest::loginAddresses_data()
{
    QTest::addColumn<bool>("broker");
    QTest::addColumn<QString>("where");
    QTest::addColumn<bool>("tls");
    QTest::addColumn<QStringList>("addresses");
    QTest::addColumn<QString>("error");
    QTest::newRow("database") << false << "/srv/office.db" << false
                              << QStringList { "/srv/office.db:0" } << "";
    QTest::newRow("no database") << false << " " << false << QStringList()
                                 << "Choose the database file.";
    QTest::newRow("one broker") << true << "broker:61614" << false << QStringList { "broker:61614" }
                                << "";
    QTest::newRow("default port") << true << "broker" << false << QStringList { "broker:61613" }
                                  << "";
    QTest::newRow("list") << true << "a:1, b:2 ,," << false << QStringList { "a:1", "b:2" } << "";
    QTest::newRow("tls") << true << "a:1,b:2" << true << QStringList { "ssl://a:1", "ssl://b:2" }
                         << "";
    QTest::newRow("ipv6") << true << "[::1]:61614" << false << QStringList { "[::1]:61614" } << "";
    QTest::newRow("bad port") << true << "a:99999" << false << QStringList()
                              << "'a:99999' does not end in a port number (1-65535).";
    QTest::newRow("no broker") << true << " , " << false << QStringList()
                               << "Name at least one broker as host:port.";
}

void SessionTest::loginAddresses()
{
    QFETCH(bool, broker);
    QFETCH(QString, where);
    QFETCH(bool, tls);
    QFETCH(QStringList, addresses);
    QFETCH(QString, error);
    ConnectionSettings settings;
    settings.kind = broker ? ConnectionSettings::Broker : ConnectionSettings::Embedded;
    (broker ? settings.brokers : settings.database) = where;
    settings.tls = tls;
    QVector<QPair<QString, int>> list;
    QString problem;
    QCOMPARE(settings.addresses(&list, &problem), error.isEmpty());
    QCOMPARE(problem, error);
    QStringList shown;
    for (const auto &address : qAsConst(list))
        shown << QStringLiteral("%1:%2").arg(address.first).arg(address.second);
    QCOMPARE(shown, addresses);
}

void SessionTest::callsRunOffTheWindowThread()
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

void SessionTest::editingAFieldClassifiesAndGrowsTheHistory_data()
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

void SessionTest::editingAFieldClassifiesAndGrowsTheHistory()
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
    // Folders show by name.
    QVERIFY(column(browse->documents()->model(), QStringLiteral("Folder"))
                .contains(QStringLiteral("Invoices")));

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

void SessionTest::listIsFilteredAndSorted_data()
{
    QTest::addColumn<QString>("filter");
    QTest::addColumn<Qt::SortOrder>("order");
    QTest::addColumn<QStringList>("ids");
    QTest::newRow("all, ascending") << "" << Qt::AscendingOrder << QStringList { "1", "2" };
    QTest::newRow("all, descending") << "" << Qt::DescendingOrder << QStringList { "2", "1" };
    QTest::newRow("by title") << "4712" << Qt::AscendingOrder << QStringList { "2" };
    QTest::newRow("any case, any column")
        << "INVOICES" << Qt::DescendingOrder << QStringList { "2", "1" };
    QTest::newRow("nothing") << "no such text" << Qt::AscendingOrder << QStringList();
}

void SessionTest::listIsFilteredAndSorted()
{
    QFETCH(QString, filter);
    QFETCH(Qt::SortOrder, order);
    QFETCH(QStringList, ids);
    auto window = openWindow(clerkUser, clerkPassword);
    QVERIFY2(window, "the login did not finish");
    BrowseView *browse = window->browseView();
    QVERIFY(browse->folders()->selectKey(QStringLiteral("F1")));
    QVERIFY(waitIdle(*window));
    // Only the documents made for every test, whatever others added.
    const QStringList base { QStringLiteral("1"), QStringLiteral("2") };
    QTest::keyClicks(browse->filter(), filter);
    browse->documents()->sortByColumn(0, order);
    QStringList shown;
    for (const QString &id : column(browse->documents()->model(), QStringLiteral("Id")))
        if (base.contains(id))
            shown << id;
    QCOMPARE(shown, ids);
}

void SessionTest::anotherSessionsWriteReloadsTheOpenViews()
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

void SessionTest::administratorEditsARole()
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

void SessionTest::administrationOnlyForAdministrators_data()
{
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");
    QTest::addColumn<bool>("administrator");
    QTest::newRow("administrator") << adminUser << adminPassword << true;
    QTest::newRow("clerk") << clerkUser << clerkPassword << false;
}

void SessionTest::administrationOnlyForAdministrators()
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

void SessionTest::callLogShowsCommandsAndServerErrors()
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

void SessionTest::lostConnectionShowsBannerAndReconnects()
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

void SessionTest::quickReloadsShowEachEntryOnce()
{
    QVERIFY2(other()->addExtentedSearch(QStringLiteral("Invoices"), QString(),
                                        { QStringLiteral("title~Invoice") }),
             qPrintable(other()->errorString()));
    auto removeSearch
        = qScopeGuard([this] { other()->deleteExtentedSearch(QStringLiteral("Invoices")); });
    auto window = openWindow(adminUser, adminPassword);
    QVERIFY2(window, "the login did not finish");
    // Two reloads whose answers interleave on the worker's queue.
    BrowseView *browse = window->browseView();
    browse->reload();
    browse->reload();
    QVERIFY(waitIdle(*window));
    QMap<int, int> kinds;
    for (QTreeWidgetItemIterator it(browse->folders()); *it; ++it)
        ++kinds[(*it)->data(0, FolderTree::KindRole).toInt()];
    QCOMPARE(kinds.value(FolderTree::AllDocuments), 1);
    QCOMPARE(kinds.value(FolderTree::Folder), 3);
    QCOMPARE(kinds.value(FolderTree::Search), 1);
    QCOMPARE(browse->folders()->topLevelItemCount(), 3);
}

void SessionTest::settingsKeepConnectionAndGeometryButNoPassword()
{
    {
        auto window = openWindow(clerkUser, clerkPassword);
        QVERIFY2(window, "the login did not finish");
        window->resize(910, 610);
        QVERIFY(window->close());
    }
    QSettings settings;
    settings.sync();
    QCOMPARE(settings.value(QStringLiteral("connection/user")).toString(), clerkUser);
    QCOMPARE(settings.value(QStringLiteral("connection/kind")).toString(),
             QStringLiteral("embedded"));
    for (const QString &key : settings.allKeys())
        QVERIFY2(!settings.value(key).toString().contains(clerkPassword), qPrintable(key));
    QFile file(settings.fileName());
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(settings.fileName()));
    QVERIFY(!file.readAll().contains(clerkPassword.toUtf8()));

    // The next window opens where the last one was closed, at its size.
    auto next = newWindow();
    QCOMPARE(next->size(), QSize(910, 610));
}

void SessionTest::slowCallShowsBusyIndicator()
{
    auto window = openWindow(adminUser, adminPassword);
    QVERIFY2(window, "the login did not finish");
    QVERIFY(!window->busyIndicator()->isVisible());
    // The call holds the worker thread until the test lets it go; the
    // window's thread goes on meanwhile and shows what it waits for.
    QSemaphore hold;
    auto release = qScopeGuard([&hold] { hold.release(); });
    bool answered = false;
    window->connection()->call(
        QStringLiteral("getUsername"), QString(),
        [&hold](ClassifyInterface &client) {
            hold.acquire();
            CallResult result;
            result.ok = true;
            result.value = client.getUsername();
            return result;
        },
        window.get(), [&answered](const CallResult &) { answered = true; });
    QTRY_VERIFY_WITH_TIMEOUT(window->busyIndicator()->isVisible(), answerTimeoutMs);
    const QString shown = static_cast<QLabel *>(window->busyIndicator())->text();
    QVERIFY2(shown.startsWith(QStringLiteral("getUsername ... ")), qPrintable(shown));
    QVERIFY(!answered);
    release.dismiss();
    hold.release();
    QTRY_VERIFY_WITH_TIMEOUT(answered, answerTimeoutMs);
    QTRY_VERIFY_WITH_TIMEOUT(!window->busyIndicator()->isVisible(), answerTimeoutMs);
}

void SessionTest::expiredPasswordIsChangedBeforeLogin()
{
    // A first password set by an administrator must be changed at the
    // first login.
    const QString oldPassword = QStringLiteral("temp-first-11");
    const QString newPassword = QStringLiteral("temp-chosen-22");
    QVERIFY2(other()->setUsers({ record({ "temp", oldPassword, "Tim Temp", "", "1" }) }),
             qPrintable(other()->errorString()));

    auto window = newWindow();
    window->show();
    // The dialogs run their own event loop: answer them from a timer.
    QString unexpected;
    int asked = 0;
    QTimer answer;
    answer.setInterval(20);
    connect(&answer, &QTimer::timeout, this, [&] {
        QWidget *modal = QApplication::activeModalWidget();
        if (auto *dialog = qobject_cast<PasswordDialog *>(modal)) {
            ++asked;
            dialog->findChild<QLineEdit *>(QStringLiteral("newPassword"))->setText(newPassword);
            dialog->findChild<QLineEdit *>(QStringLiteral("repeatPassword"))->setText(newPassword);
            dialog->accept();
        } else if (auto *other = qobject_cast<QDialog *>(modal)) {
            unexpected = other->windowTitle();
            other->reject();
        }
    });
    answer.start();
    QSignalSpy loggedIn(window.get(), &MainWindow::archivesLoaded);
    window->connectTo(settingsFor(QStringLiteral("temp")), oldPassword);
    QVERIFY(loggedIn.wait(answerTimeoutMs));
    answer.stop();
    QVERIFY2(unexpected.isEmpty(), qPrintable(unexpected));
    QCOMPARE(asked, 1);
    QVERIFY(window->isLoggedIn());
    QVERIFY(!window->isAdministrator());
    QVERIFY(waitIdle(*window));

    // The new password is the one that counts now.
    auto again = openWindow(QStringLiteral("temp"), newPassword);
    QVERIFY2(again, "the login with the new password did not finish");
}

// The pages of the Documents and Administration tabs (pagetests.cpp).
int runPageTests(int argc, char **argv);

int main(int argc, char **argv)
{
    // The window remembers its connection and geometry in QSettings, whose
    // place Qt reads once per process: keep it in a directory of the run.
    QTemporaryDir config;
    if (!config.isValid())
        return 1;
    qputenv("XDG_CONFIG_HOME", config.path().toLocal8Bit());
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("nuvclassify"));
    QApplication::setApplicationName(QStringLiteral("nuvexplorer-test"));
    SessionTest session;
    const int sessionStatus = QTest::qExec(&session, argc, argv);
    const int pageStatus = runPageTests(argc, argv);
    return sessionStatus != 0 ? sessionStatus : pageStatus;
}

#include "tst_explorer.moc"
