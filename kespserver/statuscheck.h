// SPDX-License-Identifier: Apache-2.0
#ifndef KESPSERVER_STATUSCHECK_H
#define KESPSERVER_STATUSCHECK_H

#include "serverconfig.h"

#include <QByteArray>
#include <QUrl>

namespace kesp {

// GET `url` on a local instance's metrics address: its HTTP status (0 when
// nothing answered within a few seconds, with `error`) and body.
int fetchLocal(const QUrl &url, QByteArray *body, QString *error);

// "nuvkesp-server status": asks the instance configured like this one at
// its metrics address whether it serves, prints its answer and returns 0
// when it does (1 when it does not or cannot be reached, 2 without a
// metrics address).
int queryStatus(const ServerConfig &config);

} // namespace kesp

#endif // KESPSERVER_STATUSCHECK_H
