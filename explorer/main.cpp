// SPDX-License-Identifier: Apache-2.0
#include "connectionsettings.h"
#include "installlayout.h"
#include "mainwindow.h"
#include "pluginpaths.h"
#include "screenshots.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QTimer>

using namespace nuvexplorer;

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("nuvclassify"));
    QApplication::setApplicationName(QStringLiteral("nuvexplorer"));
    QApplication::setApplicationVersion(nuvlayout::version());

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QApplication::translate("main", "Looks at and administers a document archive."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption embedded(
        QStringLiteral("embedded"),
        QApplication::translate("main", "Open the database FILE in-process."),
        QStringLiteral("FILE"));
    const QCommandLineOption broker(
        QStringLiteral("broker"),
        QApplication::translate("main", "Connect through the brokers HOST:PORT[,HOST:PORT...]."),
        QStringLiteral("LIST"));
    const QCommandLineOption user(QStringLiteral("user"),
                                  QApplication::translate("main", "Log in as NAME."),
                                  QStringLiteral("NAME"));
    const QCommandLineOption screenshots(
        QStringLiteral("screenshots"),
        QApplication::translate("main", "Log in, save pictures of the main views into DIR, quit."),
        QStringLiteral("DIR"));
    parser.addOptions({ embedded, broker, user, screenshots });
    parser.process(app);

    MainWindow window(locatePlugins());
    window.show();

    ConnectionSettings settings;
    bool given = false;
    if (parser.isSet(embedded)) {
        settings.kind = ConnectionSettings::Embedded;
        settings.database = parser.value(embedded);
        given = true;
    } else if (parser.isSet(broker)) {
        settings.kind = ConnectionSettings::Broker;
        settings.brokers = parser.value(broker);
        given = true;
    }
    settings.user = parser.value(user);
    // A password only from the environment, never from the command line,
    // where every user of the machine could read it.
    const QString password = qEnvironmentVariable("NUV_PASSWORD");
    if (parser.isSet(screenshots)) {
        if (!given || settings.user.isEmpty() || password.isEmpty()) {
            qCritical("nuvexplorer: --screenshots needs --embedded or --broker, --user and "
                      "NUV_PASSWORD");
            return 2;
        }
        window.setInteractive(false);
        auto *camera = new ScreenshotTaker(&window, parser.value(screenshots), &app);
        QObject::connect(camera, &ScreenshotTaker::finished, &app, &QApplication::exit);
        window.connectTo(settings, password);
    } else if (given && !settings.user.isEmpty() && !password.isEmpty()) {
        window.connectTo(settings, password);
    } else {
        QTimer::singleShot(0, &window, &MainWindow::showConnectDialog);
    }
    return app.exec();
}
