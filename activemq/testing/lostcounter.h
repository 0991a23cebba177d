// SPDX-License-Identifier: Apache-2.0
#ifndef LOSTCOUNTER_H
#define LOSTCOUNTER_H

#include <QAtomicInt>
#include <QObject>

namespace stomp {

// Counts a transport's connectionLost() signals on the thread it lives on.
// Connected by name, as the classify client connects: the transport plugin
// carries its own copy of the interface's meta-object.
class LostCounter : public QObject
{
    Q_OBJECT

public:
    explicit LostCounter(QObject *transport)
    {
        connect(transport, SIGNAL(connectionLost()), this, SLOT(onLost()), Qt::QueuedConnection);
    }

    int count() const { return lost.loadAcquire(); }

private slots:
    void onLost() { lost.fetchAndAddOrdered(1); }

private:
    QAtomicInt lost;
};

} // namespace stomp

#endif // LOSTCOUNTER_H
