#include "screenshots.h"

namespace nuvexplorer {

ScreenshotTaker::ScreenshotTaker(MainWindow *, const QString &, QObject *parent)
    : QObject(parent)
{ }

} // namespace nuvexplorer
