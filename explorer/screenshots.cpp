// SPDX-License-Identifier: Apache-2.0
#include "screenshots.h"

#include "adminview.h"
#include "browseview.h"
#include "connection.h"
#include "detailspane.h"
#include "documentsview.h"
#include "foldertree.h"
#include "mainwindow.h"
#include "rolespage.h"

#include <QDir>
#include <QImage>
#include <QPixmap>
#include <QTabWidget>
#include <QTimer>

namespace nuvexplorer {

namespace {

// The window waits this long after the last answer before a picture, so
// that the views have painted what came.
constexpr int settleTicks = 4;
constexpr int tickMs = 50;
// A login or a view that does not settle within this many ticks (30 s)
// ends the run with an error instead of hanging a script.
constexpr int maximumTicks = 600;

} // namespace

ScreenshotTaker::ScreenshotTaker(MainWindow *window, const QString &directory, QObject *parent)
    : QObject(parent)
    , window(window)
    , directory(directory)
{
    QDir().mkpath(directory);
    BrowseView *browse = window->browseView();
    shots = {
        { QStringLiteral("browse.png"),
          [window, browse] {
              window->tabs()->setCurrentWidget(browse);
              browse->folders()->selectKey(QStringLiteral("F1"));
          } },
        { QStringLiteral("document.png"),
          [browse] {
              browse->selectDocument(QStringLiteral("1"));
              browse->details()->tabs()->setCurrentIndex(0);
          } },
        { QStringLiteral("history.png"),
          [browse] { browse->details()->tabs()->setCurrentIndex(1); } },
        { QStringLiteral("shares.png"),
          [window] {
              DocumentsView *documents = window->documentsView();
              window->tabs()->setCurrentWidget(documents);
              documents->tabs()->setCurrentIndex(2);
          } },
        { QStringLiteral("roles.png"),
          [window] {
              AdminView *admin = window->adminView();
              if (!admin)
                  return;
              window->tabs()->setCurrentWidget(admin);
              admin->rolesPage()->selectRole(QStringLiteral("Accounting"));
              admin->tabs()->setCurrentWidget(admin->rolesPage());
          } },
    };
    connect(window, &MainWindow::archivesLoaded, this, [this] {
        if (index == 0)
            shootWhenIdle();
    });
    connect(window, &MainWindow::loginFailed, this, [this](const QString &error) {
        qCritical("nuvexplorer: the login failed: %s", qPrintable(error));
        emit finished(1);
    });
}

void ScreenshotTaker::shootWhenIdle()
{
    int ticks = 0;
    settled = 0;
    auto *timer = new QTimer(this);
    timer->setInterval(tickMs);
    connect(timer, &QTimer::timeout, this, [this, timer, ticks]() mutable {
        settled = window->connection()->pendingCalls() == 0 ? settled + 1 : 0;
        if (++ticks > maximumTicks) {
            timer->deleteLater();
            qCritical("nuvexplorer: the window did not settle for %s",
                      qPrintable(index < shots.size() ? shots.at(index).file : QString()));
            emit finished(1);
            return;
        }
        if (settled < settleTicks)
            return;
        timer->deleteLater();
        next();
    });
    timer->start();
}

void ScreenshotTaker::next()
{
    // The view prepared last has settled: take its picture.
    if (index > 0) {
        const QString file = QDir(directory).filePath(shots.at(index - 1).file);
        // A palette of 256 colours keeps the pictures small; the platform
        // style uses far fewer.
        const QImage image = window->grab().toImage().convertToFormat(
            QImage::Format_Indexed8, Qt::ThresholdDither | Qt::AvoidDither);
        if (!image.save(file, "PNG")) {
            qCritical("nuvexplorer: cannot write %s", qPrintable(file));
            emit finished(1);
            return;
        }
    }
    if (index >= shots.size()) {
        emit finished(0);
        return;
    }
    shots.at(index++).prepare();
    shootWhenIdle();
}

} // namespace nuvexplorer
