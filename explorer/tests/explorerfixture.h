// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_EXPLORERFIXTURE_H
#define NUVEXPLORER_EXPLORERFIXTURE_H

#include "classifyinterface.h"
#include "connectionsettings.h"
#include "pluginpaths.h"
#include "records.h"

#include <QObject>
#include <QPluginLoader>
#include <QTemporaryDir>

#include <functional>
#include <memory>

class QAbstractItemModel;

namespace nuvexplorer {
class AdminView;
class DocumentsView;
class MainWindow;
class View;
} // namespace nuvexplorer

// Every call runs on the embedded engine in milliseconds; a chain of reads
// after a click is a few dozen calls. Twenty seconds leaves room for a
// machine busy with other builds without hiding a hang.
constexpr int answerTimeoutMs = 20000;

inline const QString adminUser = QStringLiteral("admin");
inline const QString adminPassword = QStringLiteral("admin-secret-1");
inline const QString clerkUser = QStringLiteral("clerk");
inline const QString clerkPassword = QStringLiteral("clerk-secret-1");

inline QString record(const QStringList &parts)
{
    return nuvexplorer::joinFields(parts);
}

/*
 * What every explorer test starts from: a database made for the run with an
 * administrator, a clerk without administration, three folders, a role and
 * two documents; a second host on it; and windows that log in to it,
 * offscreen, through the real plugin and the embedded transport.
 */
class ExplorerFixture : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();

protected:
    using MainWindow = nuvexplorer::MainWindow;
    using View = nuvexplorer::View;

    // A second host on the same database, to prepare data and to check
    // what the explorer wrote.
    ClassifyInterface *other() { return otherClient.get(); }
    // A window that has logged in and read its views, or null.
    std::unique_ptr<MainWindow> openWindow(const QString &user, const QString &password);
    // A window that has done nothing yet, and where it would log in.
    std::unique_ptr<MainWindow> newWindow() const;
    nuvexplorer::ConnectionSettings settingsFor(const QString &user) const;
    // Opens a page of the Documents or the Administration tab as the
    // administrator.
    std::unique_ptr<MainWindow>
    openDocumentPage(const std::function<View *(nuvexplorer::DocumentsView *)> &page);
    std::unique_ptr<MainWindow>
    openAdminPage(const std::function<View *(nuvexplorer::AdminView *)> &page);
    static bool waitIdle(MainWindow &window);
    static QStringList column(const QAbstractItemModel *model, const QString &header);

private:
    QTemporaryDir dir;
    QString database;
    nuvexplorer::PluginPaths paths;
    QPluginLoader loader;
    std::unique_ptr<ClassifyInterface> otherClient;
};

#endif // NUVEXPLORER_EXPLORERFIXTURE_H
