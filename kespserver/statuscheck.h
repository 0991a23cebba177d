#ifndef KESPSERVER_STATUSCHECK_H
#define KESPSERVER_STATUSCHECK_H

#include "serverconfig.h"

namespace kesp {

// "nuvkesp-server status": asks the instance configured like this one at
// its metrics address whether it serves, prints its answer and returns 0
// when it does (1 when it does not or cannot be reached, 2 without a
// metrics address).
int queryStatus(const ServerConfig &config);

} // namespace kesp

#endif // KESPSERVER_STATUSCHECK_H
