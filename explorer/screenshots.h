// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_SCREENSHOTS_H
#define NUVEXPLORER_SCREENSHOTS_H

#include <QObject>
#include <QString>
#include <QVector>

#include <functional>

namespace nuvexplorer {

class MainWindow;

/*
 * Walks the window through its main views once it has logged in and saves
 * a picture of each into a directory, for the documentation. Every picture
 * is taken when no call is waiting any more, so it shows the answers.
 */
class ScreenshotTaker : public QObject
{
    Q_OBJECT

public:
    ScreenshotTaker(MainWindow *window, const QString &directory, QObject *parent = nullptr);

Q_SIGNALS:
    // 0 when every picture was saved.
    void finished(int status);

private:
    struct Shot
    {
        QString file;
        std::function<void()> prepare;
    };

    void next();
    void shootWhenIdle();

    MainWindow *window;
    QString directory;
    QVector<Shot> shots;
    int index = 0;
    int settled = 0;
};

} // namespace nuvexplorer

#endif // NUVEXPLORER_SCREENSHOTS_H
