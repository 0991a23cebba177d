// SPDX-License-Identifier: Apache-2.0
#ifndef NUVEXPLORER_COMMANDWORDS_H
#define NUVEXPLORER_COMMANDWORDS_H

#include <QString>

namespace nuvexplorer {

// The server command an operation of the classify plugin sends, for the
// call log ("CFDOCCLASSIFY" for classify); empty for the plugin's local
// accessors.
QString commandWord(const QString &operation);

} // namespace nuvexplorer

#endif // NUVEXPLORER_COMMANDWORDS_H
