// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_PLUGINPATHS_H
#define NUVEXPLORER_PLUGINPATHS_H

#include <QString>

namespace nuvexplorer {

// Where the classify plugin and its two transports are, for an installed
// program and for one that runs from the build tree.
struct PluginPaths
{
    QString classifyPlugin;
    QString stompTransportDir;
    QString embeddedTransportDir;
};

PluginPaths locatePlugins();

} // namespace nuvexplorer

#endif // NUVEXPLORER_PLUGINPATHS_H
