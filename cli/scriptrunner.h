// SPDX-License-Identifier: Apache-2.0
#ifndef NUVCLI_SCRIPTRUNNER_H
#define NUVCLI_SCRIPTRUNNER_H

#include "console.h"
#include "options.h"

namespace nuvcli {

// `--script FILE`: checks every line, then runs them in one session, in
// order, stopping at the first failure unless --keep-going. Returns the
// exit status of the first failure, or 0.
int runScript(const Options &options, Console &console);

} // namespace nuvcli

#endif // NUVCLI_SCRIPTRUNNER_H
