// SPDX-License-Identifier: Apache-2.0
#ifndef NUVCLI_APP_H
#define NUVCLI_APP_H

#include "console.h"

#include <QStringList>

namespace nuvcli {

// The whole tool: `arguments` as the process got them (the first is the
// program). Returns the exit status (see ExitStatus).
int run(const QStringList &arguments, Console &console);

} // namespace nuvcli

#endif // NUVCLI_APP_H
