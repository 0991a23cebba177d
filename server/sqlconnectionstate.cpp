// SPDX-License-Identifier: Apache-2.0
#include "sqlconnectionstate.h"

#include <QSqlDriver>

namespace nuvserver {

namespace {
// The object name it is found by (the class has no meta-object of its own).
QString stateName()
{
    return QStringLiteral("nuvserver-connection-state");
}
} // namespace

SqlConnectionState *SqlConnectionState::attach(const QSqlDatabase &db)
{
    if (SqlConnectionState *existing = of(db))
        return existing;
    auto *state = new SqlConnectionState(db.driver());
    state->setObjectName(stateName());
    return state;
}

SqlConnectionState *SqlConnectionState::of(const QSqlDatabase &db)
{
    QSqlDriver *driver = db.driver();
    if (!driver)
        return nullptr;
    return static_cast<SqlConnectionState *>(
        driver->findChild<QObject *>(stateName(), Qt::FindDirectChildrenOnly));
}

} // namespace nuvserver
