#include "installlayout.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

namespace nuvlayout {

namespace {

// The file CMake writes at the top of every build tree; it tells a program
// run from the build tree where that tree's root is.
const QString buildTreeMarker = QStringLiteral(NUV_LAYOUT_BUILD_MARKER);
// Executables sit at most this many directories below the build root.
constexpr int maximumBuildDepth = 8;

enum class Place { Plugin, Stomp, Embedded, Server };

const QString pluginFileName = QStringLiteral("libnuvclassifyclient.so");

// The plugin directory of an installed prefix, seen from its bin/.
QString installedPluginDirectory()
{
    return QCoreApplication::applicationDirPath() + QLatin1Char('/')
        + QStringLiteral(NUV_LAYOUT_INSTALLED_PLUGIN_DIR);
}

QString installedPath(Place place)
{
    const QString plugins = installedPluginDirectory() + QLatin1Char('/');
    switch (place) {
    case Place::Plugin:
        return plugins + pluginFileName;
    case Place::Stomp:
        return plugins + QStringLiteral("stomp");
    case Place::Embedded:
        return plugins + QStringLiteral("embedded");
    case Place::Server:
        return QCoreApplication::applicationDirPath() + QStringLiteral("/nuvkesp-server");
    }
    return QString();
}

QString buildTreePath(const QString &root, Place place)
{
    const QString base = root + QLatin1Char('/');
    switch (place) {
    case Place::Plugin:
        return base + QStringLiteral(NUV_LAYOUT_BUILD_PLUGIN_DIR "/") + pluginFileName;
    case Place::Stomp:
        return base + QStringLiteral(NUV_LAYOUT_BUILD_PLUGIN_DIR);
    case Place::Embedded:
        return base + QStringLiteral(NUV_LAYOUT_BUILD_EMBEDDED_DIR);
    case Place::Server:
        return base + QStringLiteral(NUV_LAYOUT_BUILD_SERVER_FILE);
    }
    return QString();
}

// The build tree the program runs from, or an empty string.
QString buildTreeRoot()
{
    QDir dir(QCoreApplication::applicationDirPath());
    for (int depth = 0; depth <= maximumBuildDepth; ++depth) {
        if (dir.exists(buildTreeMarker))
            return dir.absolutePath();
        if (!dir.cdUp())
            break;
    }
    return QString();
}

// An installed prefix wins as soon as its plugin directory is there, so a
// prefix inside a build tree still uses its own files. When neither layout
// fits, the installed location is named (in an error, say).
QString locate(Place place)
{
    if (!QFileInfo(installedPluginDirectory()).isDir()) {
        const QString root = buildTreeRoot();
        if (!root.isEmpty())
            return QDir::cleanPath(buildTreePath(root, place));
    }
    return QDir::cleanPath(installedPath(place));
}

} // namespace

QString version()
{
    return QStringLiteral(NUV_LAYOUT_VERSION);
}

QString classifyPluginFile()
{
    return locate(Place::Plugin);
}

QString stompTransportDirectory()
{
    return locate(Place::Stomp);
}

QString embeddedTransportDirectory()
{
    return locate(Place::Embedded);
}

QString serverProgram()
{
    return locate(Place::Server);
}

} // namespace nuvlayout
