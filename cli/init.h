// SPDX-License-Identifier: Apache-2.0
#ifndef NUVCLI_INIT_H
#define NUVCLI_INIT_H

#include "console.h"
#include "options.h"

namespace nuvcli {

// `nuvclassify init`: creates an embedded database with its first
// administrator. The password comes from --password, NUV_PASSWORD or a
// prompt (asked twice); there is no built-in one. Returns the exit status.
int runInit(const Options &options, Console &console);

// Whether this build carries the server engine that init needs.
bool haveServerEngine();

} // namespace nuvcli

#endif // NUVCLI_INIT_H
