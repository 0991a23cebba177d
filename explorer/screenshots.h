#ifndef NUVEXPLORER_SCREENSHOTS_H
#define NUVEXPLORER_SCREENSHOTS_H

#include <QObject>

namespace nuvexplorer {

class MainWindow;

class ScreenshotTaker : public QObject
{
    Q_OBJECT
public:
    ScreenshotTaker(MainWindow *window, const QString &directory, QObject *parent = nullptr);
Q_SIGNALS:
    void finished(int status);
};

} // namespace nuvexplorer

#endif
