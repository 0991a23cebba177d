#ifndef NUVEXPLORER_PLUGINPATHS_H
#define NUVEXPLORER_PLUGINPATHS_H

#include <QString>

namespace nuvexplorer {

// Where the classify plugin and its two transports are: beside an installed
// program (lib/nuvclassify/...) when that exists, else in the build tree
// this program was built in.
struct PluginPaths
{
    QString classifyPlugin;
    QString stompTransportDir;
    QString embeddedTransportDir;
};

PluginPaths locatePlugins();

} // namespace nuvexplorer

#endif // NUVEXPLORER_PLUGINPATHS_H
