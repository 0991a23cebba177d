// SPDX-License-Identifier: Apache-2.0
#ifndef NUVSERVER_REQUESTCOUNTERS_H
#define NUVSERVER_REQUESTCOUNTERS_H

#include <QtGlobal>

namespace nuvserver {

// What the statements of one request did.
struct RequestCounters
{
    qint64 changedRows = 0; // rows inserted, updated or deleted
    // Statements sent to the database, transaction control included: on
    // PostgreSQL each is a round trip, the cost of a request on a database
    // on another host.
    int roundTrips = 0;
    // Runs of the request again after it lost to a concurrent write
    // (PostgreSQL: a serialization failure or a deadlock).
    int retries = 0;
};

} // namespace nuvserver

#endif // NUVSERVER_REQUESTCOUNTERS_H
