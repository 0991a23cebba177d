// Apart from the rest of BrokerEnv so that the measurement tools, which
// never start or stop the broker, carry no path of the source tree.

#include "brokerenv.h"

#include <QProcess>

namespace stomp {

bool BrokerEnv::script(const QString &action, QString *output, int timeoutMs)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral(NUV_BROKER_SCRIPT), { action });
    const bool finished = process.waitForFinished(timeoutMs);
    *output = QString::fromUtf8(process.readAll());
    return finished && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

} // namespace stomp
