// SPDX-License-Identifier: Apache-2.0
#include "connectionstate.h"

#include <QSqlDriver>

namespace nuvserver {

namespace {
// The object name it is found by (the class has no meta-object of its own).
QString stateName()
{
    return QStringLiteral("nuvserver-connection-state");
}
} // namespace

ConnectionState *ConnectionState::attach(const QSqlDatabase &db)
{
    if (ConnectionState *existing = of(db))
        return existing;
    auto *state = new ConnectionState(db.driver());
    state->setObjectName(stateName());
    return state;
}

ConnectionState *ConnectionState::of(const QSqlDatabase &db)
{
    QSqlDriver *driver = db.driver();
    if (!driver)
        return nullptr;
    return static_cast<ConnectionState *>(
        driver->findChild<QObject *>(stateName(), Qt::FindDirectChildrenOnly));
}

} // namespace nuvserver
