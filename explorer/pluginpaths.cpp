// SPDX-License-Identifier: Apache-2.0
#include "pluginpaths.h"

#include "installlayout.h"

namespace nuvexplorer {

PluginPaths locatePlugins()
{
    return { nuvlayout::classifyPluginFile(), nuvlayout::stompTransportDirectory(),
             nuvlayout::embeddedTransportDirectory() };
}

} // namespace nuvexplorer
