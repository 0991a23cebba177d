// SPDX-License-Identifier: Apache-2.0
// Which server, session, administration, user, role and rights operations
// take the client's operation lock. checkUpdate emits serverRequest while it
// holds that lock, so a slot connected directly sees the lock taken.

#include "admincatalogue.h"
#include "lockprobe.h"

using namespace commandkit;

class AdminLockingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A locking operation here would wait on the lock its own thread holds,
    // and the test would never end.
    void unlockedOperationFromServerRequestSlot_data() { addLockingRows(adminOperations(), false); }
    void unlockedOperationFromServerRequestSlot() { checkUnlockedOperationRow(checkUpdateHolds()); }
    void lockedOperationWaitsForCheckUpdate_data() { addLockingRows(adminOperations(), true); }
    void lockedOperationWaitsForCheckUpdate() { checkLockedOperationRow(checkUpdateHolds()); }
};

QTEST_GUILESS_MAIN(AdminLockingTest)
#include "tst_adminlocking.moc"
