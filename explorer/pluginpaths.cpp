#include "pluginpaths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

namespace nuvexplorer {

PluginPaths locatePlugins()
{
    // An installed program lives in PREFIX/bin, the plugin in
    // PREFIX/LIBDIR/nuvclassify with the transports below it.
    const QDir installed(QCoreApplication::applicationDirPath()
                         + QStringLiteral("/../" NUV_EXPLORER_INSTALL_LIBDIR "/nuvclassify"));
    const QString installedPlugin = installed.filePath(QStringLiteral("libnuvclassifyclient.so"));
    if (QFileInfo::exists(installedPlugin))
        return { QDir::cleanPath(installedPlugin),
                 QDir::cleanPath(installed.filePath(QStringLiteral("stomp"))),
                 QDir::cleanPath(installed.filePath(QStringLiteral("embedded"))) };
    return { QStringLiteral(NUV_EXPLORER_BUILD_PLUGIN_FILE),
             QStringLiteral(NUV_EXPLORER_BUILD_STOMP_DIR),
             QStringLiteral(NUV_EXPLORER_BUILD_EMBEDDED_DIR) };
}

} // namespace nuvexplorer
