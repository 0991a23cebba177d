// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_MAINWINDOW_H
#define NUVEXPLORER_MAINWINDOW_H

#include "connectionsettings.h"
#include "pluginpaths.h"

#include <QMainWindow>

class QComboBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QTabWidget;
class QTimer;

namespace nuvexplorer {

class AdminView;
class BrowseView;
class CallLogDock;
class CallLogModel;
class Connection;
class DocumentsView;
class View;

class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(const PluginPaths &paths, QWidget *parent = nullptr);
    ~MainWindow() override;

    // Logs in; loggedIn() or loginFailed() tells the outcome. A refused
    // login for an expired password asks for a new one first.
    void connectTo(const ConnectionSettings &settings, const QString &password);

    bool isLoggedIn() const { return loggedInFlag; }
    bool isAdministrator() const { return administrator; }
    Connection *connection() const { return link; }
    CallLogModel *callLog() const;
    BrowseView *browseView() const { return browse; }
    DocumentsView *documentsView() const { return documents; }
    AdminView *adminView() const { return admin; }
    QTabWidget *tabs() const { return pages; }
    QComboBox *archiveSelector() const { return archives; }
    // Without it, failures go to the status bar only and no modal dialog
    // opens (for tests and unattended runs).
    void setInteractive(bool on) { interactive = on; }
    QString lastFailure() const { return failure; }
    // The status bar's note of a call that takes long.
    QWidget *busyIndicator() const;
    // The "connection lost" banner.
    QWidget *banner() const { return lostBanner; }

public Q_SLOTS:
    // Opens the connect dialog (with the remembered connection).
    void showConnectDialog();
    // Asks the server for requests left for this session ("CFUPDATES"); a
    // change by somebody else answers with a reload request.
    void pollNow();
    void reconnect();
    void reloadVisible();

Q_SIGNALS:
    void loggedIn();
    void loginFailed(const QString &error);
    void archivesLoaded();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void buildActions();
    void login(const ConnectionSettings &settings, const QString &password);
    void onLoginAnswer(bool ok, const QString &error, const ConnectionSettings &settings,
                       const QString &password);
    void changeExpiredPassword(const ConnectionSettings &settings, const QString &password,
                               const QString &reason);
    void afterLogin();
    void loadArchives();
    void selectArchive(const QString &archive);
    void onServerRequest(const QString &request);
    void onDisconnected();
    void showFailure(const QString &operation, const QString &error);
    void updateBusy();
    View *currentView() const;

    PluginPaths paths;
    Connection *link;
    CallLogDock *log;
    QTabWidget *pages;
    BrowseView *browse;
    DocumentsView *documents;
    AdminView *admin = nullptr;
    QWidget *lostBanner;
    QComboBox *archives;
    QLabel *who;
    QLabel *busyText;
    QProgressBar *busyBar;
    QTimer *busyTimer;
    QTimer *pollTimer;
    ConnectionSettings current;
    QString currentPassword; // kept in memory only, for a reconnect
    bool loggedInFlag = false;
    bool administrator = false;
    bool interactive = true;
    bool caFileSet = false;
    QString failure;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_MAINWINDOW_H
