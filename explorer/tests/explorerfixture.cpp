// SPDX-License-Identifier: Apache-2.0
#include "explorerfixture.h"

#include "adminview.h"
#include "connection.h"
#include "documentsview.h"
#include "mainwindow.h"

#include <QSignalSpy>
#include <QTabWidget>
#include <QTest>

using namespace nuvexplorer;

void ExplorerFixture::initTestCase()
{
    QVERIFY(dir.isValid());
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

void ExplorerFixture::cleanupTestCase()
{
    otherClient.reset();
}

std::unique_ptr<MainWindow> ExplorerFixture::openWindow(const QString &user,
                                                        const QString &password)
{
    auto window = newWindow();
    window->setInteractive(false);
    window->show();
    QSignalSpy loggedIn(window.get(), &MainWindow::archivesLoaded);
    window->connectTo(settingsFor(user), password);
    if (!loggedIn.wait(answerTimeoutMs) || !waitIdle(*window))
        return nullptr;
    return window;
}

std::unique_ptr<MainWindow> ExplorerFixture::newWindow() const
{
    return std::make_unique<MainWindow>(paths);
}

ConnectionSettings ExplorerFixture::settingsFor(const QString &user) const
{
    ConnectionSettings settings;
    settings.kind = ConnectionSettings::Embedded;
    settings.database = database;
    settings.user = user;
    return settings;
}

bool ExplorerFixture::waitIdle(MainWindow &window)
{
    // A chain of calls queues its next call inside the answer of the one
    // before, so no pending call means the chain has ended.
    return QTest::qWaitFor([&] { return window.connection()->pendingCalls() == 0; },
                           answerTimeoutMs);
}

QStringList ExplorerFixture::column(const QAbstractItemModel *model, const QString &header)
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

std::unique_ptr<MainWindow>
ExplorerFixture::openDocumentPage(const std::function<View *(DocumentsView *)> &page)
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

std::unique_ptr<MainWindow>
ExplorerFixture::openAdminPage(const std::function<View *(AdminView *)> &page)
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
