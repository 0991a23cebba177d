// SPDX-License-Identifier: Apache-2.0
#include "mainwindow.h"

#include "adminview.h"
#include "browseview.h"
#include "calllog.h"
#include "classifyinterface.h"
#include "connectdialog.h"
#include "connection.h"
#include "documentsview.h"
#include "passworddialog.h"
#include "protocolwords.h"
#include "records.h"
#include "trashpage.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSettings>
#include <QStatusBar>
#include <QTabWidget>
#include <QTimer>
#include <QToolBar>
#include <QVBoxLayout>

namespace nuvexplorer {

namespace {

// Calls shorter than this show no busy indicator: it would only flicker.
constexpr int busyThresholdMs = 200;
// How often the explorer asks for changes made by others while it is idle.
constexpr int pollIntervalMs = 5000;

} // namespace

MainWindow::MainWindow(const PluginPaths &paths, QWidget *parent)
    : QMainWindow(parent)
    , paths(paths)
    , link(new Connection(this))
    , log(new CallLogDock(this))
    , pages(new QTabWidget(this))
    , browse(new BrowseView(link, pages))
    , documents(new DocumentsView(link, pages))
    , lostBanner(new QFrame(this))
    , archives(new QComboBox(this))
    , who(new QLabel(this))
    , busyText(new QLabel(this))
    , busyBar(new QProgressBar(this))
    , busyTimer(new QTimer(this))
    , pollTimer(new QTimer(this))
{
    setWindowTitle(tr("nuvexplorer"));
    archives->setObjectName(QStringLiteral("archives"));
    archives->setToolTip(tr("The archive every call addresses"));
    archives->setMinimumContentsLength(16);

    // The banner: a framed line in the platform's own colours.
    auto *frame = static_cast<QFrame *>(lostBanner);
    frame->setFrameShape(QFrame::StyledPanel);
    frame->setAutoFillBackground(true);
    frame->setBackgroundRole(QPalette::ToolTipBase);
    auto *bannerLayout = new QHBoxLayout(frame);
    auto *bannerText = new QLabel(tr("The connection to the server was lost."), frame);
    bannerText->setForegroundRole(QPalette::ToolTipText);
    auto *reconnectButton = new QPushButton(tr("&Reconnect"), frame);
    reconnectButton->setObjectName(QStringLiteral("reconnect"));
    connect(reconnectButton, &QPushButton::clicked, this, &MainWindow::reconnect);
    bannerLayout->addWidget(bannerText, 1);
    bannerLayout->addWidget(reconnectButton);
    lostBanner->hide();

    pages->addTab(browse, tr("&Browse"));
    pages->addTab(documents, tr("&Documents"));
    auto *central = new QWidget(this);
    auto *layout = new QVBoxLayout(central);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(lostBanner);
    layout->addWidget(pages, 1);
    setCentralWidget(central);

    addDockWidget(Qt::BottomDockWidgetArea, log);
    connect(link, &Connection::callFinished, log->model(), &CallLogModel::append);
    connect(link, &Connection::serverRequest, this, &MainWindow::onServerRequest);
    connect(link, &Connection::clientDisconnect, this, &MainWindow::onDisconnected);
    connect(browse, &BrowseView::documentTrashed, documents->trashPage(), &TrashPage::remember);
    for (View *view : { static_cast<View *>(browse), static_cast<View *>(documents) })
        connect(view, &View::failed, this, &MainWindow::showFailure);
    connect(pages, &QTabWidget::currentChanged, this, [this] {
        if (loggedInFlag)
            reloadVisible();
    });
    connect(archives, QOverload<int>::of(&QComboBox::activated), this,
            [this](int index) { selectArchive(archives->itemText(index)); });

    busyBar->setRange(0, 0);
    busyBar->setMaximumWidth(120);
    busyBar->hide();
    busyText->hide();
    statusBar()->addWidget(who, 1);
    statusBar()->addPermanentWidget(busyText);
    statusBar()->addPermanentWidget(busyBar);
    busyTimer->setInterval(100);
    connect(busyTimer, &QTimer::timeout, this, &MainWindow::updateBusy);
    busyTimer->start();
    pollTimer->setInterval(pollIntervalMs);
    connect(pollTimer, &QTimer::timeout, this, [this] {
        if (link->pendingCalls() == 0)
            pollNow();
    });

    buildActions();
    QSettings settings;
    if (!restoreGeometry(settings.value(QStringLiteral("window/geometry")).toByteArray()))
        resize(1100, 720);
    restoreState(settings.value(QStringLiteral("window/state")).toByteArray());
    current = ConnectionSettings::load(settings);
}

MainWindow::~MainWindow() = default;

CallLogModel *MainWindow::callLog() const
{
    return log->model();
}

QWidget *MainWindow::busyIndicator() const
{
    return busyText;
}

void MainWindow::buildActions()
{
    QMenu *file = menuBar()->addMenu(tr("&File"));
    QAction *connectAction
        = file->addAction(tr("&Connect..."), this, &MainWindow::showConnectDialog);
    connectAction->setShortcut(QKeySequence::Open);
    QAction *reloadAction = file->addAction(tr("&Reload"), this, &MainWindow::reloadVisible);
    reloadAction->setShortcut(QKeySequence::Refresh);
    file->addSeparator();
    QAction *quit = file->addAction(tr("&Quit"), this, &QWidget::close);
    quit->setShortcut(QKeySequence::Quit);
    QMenu *viewMenu = menuBar()->addMenu(tr("&View"));
    viewMenu->addAction(log->toggleViewAction());

    QToolBar *tools = addToolBar(tr("Archive"));
    tools->setObjectName(QStringLiteral("archiveToolBar"));
    tools->addAction(connectAction);
    tools->addAction(reloadAction);
    tools->addSeparator();
    auto *label = new QLabel(tr("&Archive:"), tools);
    label->setBuddy(archives);
    tools->addWidget(label);
    tools->addWidget(archives);
}

void MainWindow::showConnectDialog()
{
    ConnectDialog dialog(current, this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    connectTo(dialog.settings(), dialog.password());
}

void MainWindow::connectTo(const ConnectionSettings &settings, const QString &password)
{
    const QString transportDir = settings.kind == ConnectionSettings::Broker
        ? paths.stompTransportDir
        : paths.embeddedTransportDir;
    QString error;
    if (!link->open(paths.classifyPlugin, transportDir, &error)) {
        showFailure(tr("Connect"), error);
        emit loginFailed(error);
        return;
    }
    // The STOMP transport reads its CA file from the environment at every
    // connect. One set here for an earlier connection goes again; one the
    // user set before starting the program stays.
    if (settings.kind == ConnectionSettings::Broker && settings.tls && !settings.caFile.isEmpty()) {
        qputenv("NUV_STOMP_CA_FILE", settings.caFile.toLocal8Bit());
        caFileSet = true;
    } else if (caFileSet) {
        qunsetenv("NUV_STOMP_CA_FILE");
        caFileSet = false;
    }
    loggedInFlag = false;
    pollTimer->stop();
    login(settings, password);
}

void MainWindow::login(const ConnectionSettings &settings, const QString &password)
{
    QVector<QPair<QString, int>> addresses;
    QString error;
    if (!settings.addresses(&addresses, &error)) {
        showFailure(tr("Connect"), error);
        emit loginFailed(error);
        return;
    }
    QStringList shown;
    for (const auto &address : addresses)
        shown << (address.second ? QStringLiteral("%1:%2").arg(address.first).arg(address.second)
                                 : address.first);
    const QString user = settings.user;
    link->call(
        QStringLiteral("connectToNuvKESP"),
        tr("%1 as %2").arg(shown.join(QStringLiteral(", ")), user),
        [addresses, user, password](ClassifyInterface &client) {
            // Several brokers are tried in order; the first that takes the
            // login wins. An expired password ends the search: that
            // connection stays open for the change.
            QStringList errors;
            for (const auto &address : addresses) {
                if (client.connectToNuvKESP(address.first, address.second, user, password))
                    return Connection::fromBool(client, true);
                const QString error = client.errorString();
                if (nuvprotocol::isExpiredPasswordText(error) || addresses.size() == 1)
                    return Connection::fromBool(client, false);
                errors << QStringLiteral("%1: %2").arg(address.first, error);
            }
            CallResult result;
            result.summary = QStringLiteral("false");
            result.error = errors.join(QLatin1Char('\n'));
            return result;
        },
        this,
        [this, settings, password](const CallResult &result) {
            onLoginAnswer(result.ok, result.error, settings, password);
        });
}

void MainWindow::onLoginAnswer(bool ok, const QString &error, const ConnectionSettings &settings,
                               const QString &password)
{
    if (!ok) {
        if (nuvprotocol::isExpiredPasswordText(error)) {
            changeExpiredPassword(settings, password, error);
            return;
        }
        emit loginFailed(error);
        if (interactive) {
            ConnectDialog dialog(settings, this);
            dialog.setError(error.isEmpty() ? tr("The login failed without a reason.") : error);
            if (dialog.exec() == QDialog::Accepted)
                connectTo(dialog.settings(), dialog.password());
        }
        return;
    }
    current = settings;
    currentPassword = password;
    QSettings store;
    settings.save(store);
    afterLogin();
}

void MainWindow::changeExpiredPassword(const ConnectionSettings &settings, const QString &password,
                                       const QString &reason)
{
    PasswordDialog dialog(tr("Change the expired password"), reason, this);
    if (!interactive || dialog.exec() != QDialog::Accepted) {
        emit loginFailed(reason);
        return;
    }
    const QString newPassword = dialog.password();
    const QString user = settings.user;
    link->call(
        QStringLiteral("changeExpiredPass"), user,
        [user, password, newPassword](ClassifyInterface &client) {
            return Connection::fromBool(
                client, client.changeExpiredPass(user, password, newPassword, QString(), 0));
        },
        this,
        [this, settings, password, newPassword](const CallResult &result) {
            if (!result.ok) {
                showFailure(QStringLiteral("changeExpiredPass"), result.error);
                changeExpiredPassword(settings, password, result.error);
                return;
            }
            login(settings, newPassword);
        });
}

void MainWindow::afterLogin()
{
    loggedInFlag = true;
    lostBanner->hide();
    who->setText(current.describe());
    setWindowTitle(tr("nuvexplorer - %1").arg(current.describe()));
    link->call(
        QStringLiteral("getRoleList"), QString(),
        [](ClassifyInterface &client) {
            // Administrators hold a role marked as administrator role,
            // directly or through the roles their roles belong to; the
            // login reply lists them all.
            CallResult result = Connection::readList(client, [&] { return client.getRoleList(); });
            const QStringList roles = result.value.toStringList();
            const QStringList mine = client.getUserRoles();
            bool admin = false;
            for (const QString &role : roles) {
                const QStringList parts = fields(role);
                if (parts.value(2) == QLatin1String("1") && mine.contains(parts.value(0)))
                    admin = true;
            }
            result.value = admin;
            return result;
        },
        this,
        [this](const CallResult &result) {
            administrator = result.value.toBool();
            if (administrator && !admin) {
                admin = new AdminView(link, pages);
                admin->setArchive(archives->currentText());
                connect(admin, &View::failed, this, &MainWindow::showFailure);
                pages->addTab(admin, tr("&Administration"));
            } else if (!administrator && admin) {
                delete admin;
                admin = nullptr;
            }
            loadArchives();
        });
}

void MainWindow::loadArchives()
{
    link->call(
        QStringLiteral("getArchives"), QString(),
        [](ClassifyInterface &client) {
            QStringList list;
            const bool ok = client.getArchives(list);
            return Connection::fromBool(client, ok, list);
        },
        this,
        [this](const CallResult &result) {
            if (!result.ok) {
                showFailure(QStringLiteral("getArchives"), result.error);
                return;
            }
            const QString previous = archives->currentText();
            archives->clear();
            archives->addItems(result.value.toStringList());
            const int index = archives->findText(previous);
            archives->setCurrentIndex(index >= 0 ? index : 0);
            if (archives->count() > 0)
                selectArchive(archives->currentText());
            emit archivesLoaded();
        });
}

void MainWindow::selectArchive(const QString &archive)
{
    link->call(
        QStringLiteral("setCurrentArchive"), archive,
        [archive](ClassifyInterface &client) {
            return Connection::fromBool(client, client.setCurrentArchive(archive));
        },
        this,
        [this, archive](const CallResult &result) {
            if (!result.ok) {
                showFailure(QStringLiteral("setCurrentArchive"), result.error);
                return;
            }
            browse->setArchive(archive);
            documents->setArchive(archive);
            if (admin)
                admin->setArchive(archive);
            reloadVisible();
            pollTimer->start();
        });
}

View *MainWindow::currentView() const
{
    return qobject_cast<View *>(pages->currentWidget());
}

void MainWindow::reloadVisible()
{
    if (View *view = currentView())
        view->reload();
}

void MainWindow::pollNow()
{
    if (!loggedInFlag)
        return;
    link->call(QStringLiteral("checkUpdate"), QString(), [](ClassifyInterface &client) {
        // checkUpdate reports failure only through the error text.
        return Connection::readList(client, [&] {
            client.checkUpdate();
            return QStringList();
        });
    });
}

void MainWindow::onServerRequest(const QString &request)
{
    // Arrives through a queued connection: the client emitted it while it
    // held its lock, on its own thread.
    if (request == QLatin1String(nuvprotocol::notice::systemUpdate))
        loadArchives();
    else
        reloadVisible();
}

void MainWindow::onDisconnected()
{
    pollTimer->stop();
    lostBanner->show();
}

void MainWindow::reconnect()
{
    if (current.user.isEmpty()) {
        showConnectDialog();
        return;
    }
    connectTo(current, currentPassword);
}

void MainWindow::showFailure(const QString &operation, const QString &error)
{
    failure = tr("%1 failed: %2").arg(operation, error);
    statusBar()->showMessage(failure, 10000);
    if (interactive && !error.isEmpty())
        QMessageBox::warning(this, tr("%1 failed").arg(operation), error);
}

void MainWindow::updateBusy()
{
    const qint64 waited = link->busyMilliseconds();
    const bool busy = waited > busyThresholdMs;
    if (busy)
        busyText->setText(
            tr("%1 ... %2 s").arg(link->busyOperation()).arg(waited / 1000.0, 0, 'f', 1));
    busyText->setVisible(busy);
    busyBar->setVisible(busy);
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    QSettings settings;
    settings.setValue(QStringLiteral("window/geometry"), saveGeometry());
    settings.setValue(QStringLiteral("window/state"), saveState());
    event->accept();
}

} // namespace nuvexplorer
