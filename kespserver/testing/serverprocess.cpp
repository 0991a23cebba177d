// SPDX-License-Identifier: Apache-2.0
#include "serverprocess.h"

#include "brokerenv.h"
#include "installlayout.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QRegularExpression>
#include <QThread>

#include <csignal>

namespace kesp {

ServerProcess::ServerProcess(const QString &name, const QString &database, const QString &broker,
                             const QString &logFile, const QStringList &extraArguments)
    : name(name)
    , database(database)
    , broker(broker)
    , logFile(logFile)
    , extraArguments(extraArguments)
{ }

ServerProcess::~ServerProcess()
{
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(5000);
    }
}

QString ServerProcess::executable()
{
    return nuvlayout::serverProgram();
}

bool ServerProcess::start(int timeoutMs)
{
    QFile::remove(logFile);
    process.setStandardErrorFile(logFile);
    process.setStandardOutputFile(QProcess::nullDevice());
    // The instance ends with this test process, even when it is killed.
    QProcessEnvironment environment = process.processEnvironment().isEmpty()
        ? QProcessEnvironment::systemEnvironment()
        : process.processEnvironment();
    environment.insert(QStringLiteral("NUV_KESP_EXIT_WITH_PARENT"),
                       QString::number(QCoreApplication::applicationPid()));
    // Not on the command line, where a PostgreSQL URL's password would show.
    environment.insert(QStringLiteral("NUV_KESP_DATABASE"), database);
    const stomp::BrokerEnv brokerFiles;
    if (brokerFiles.ok())
        brokerFiles.addServerAccount(&environment);
    for (auto variable = variables.cbegin(); variable != variables.cend(); ++variable)
        environment.insert(variable.key(), variable.value());
    process.setProcessEnvironment(environment);
    process.start(executable(),
                  QStringList { QStringLiteral("--name"), name, QStringLiteral("--broker"), broker }
                      + extraArguments);
    if (!process.waitForStarted(timeoutMs))
        return false;
    return waitForLog(QStringLiteral(": serving "), 1, timeoutMs);
}

QString ServerProcess::log() const
{
    QFile file(logFile);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(file.readAll());
}

int ServerProcess::countInLog(const QString &text) const
{
    return log().count(text);
}

bool ServerProcess::waitForLog(const QString &text, int count, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        if (countInLog(text) >= count)
            return true;
        if (deadline.hasExpired() || process.state() == QProcess::NotRunning)
            return countInLog(text) >= count;
        QThread::msleep(20);
    }
}

bool ServerProcess::stop(int timeoutMs, int signal)
{
    if (process.state() == QProcess::NotRunning)
        return false;
    sendSignal(signal);
    return waitForExit(timeoutMs);
}

void ServerProcess::sendSignal(int signal)
{
    ::kill(pid_t(process.processId()), signal);
}

bool ServerProcess::waitForExit(int timeoutMs)
{
    if (process.state() != QProcess::NotRunning)
        process.waitForFinished(timeoutMs);
    return process.state() == QProcess::NotRunning && process.exitStatus() == QProcess::NormalExit
        && process.exitCode() == 0;
}

void ServerProcess::kill()
{
    process.kill(); // SIGKILL
    process.waitForFinished(5000);
}

qint64 ServerProcess::reported(const QString &counter) const
{
    const QRegularExpression pattern(QStringLiteral("stopped; .* %1 (\\d+)[,;]").arg(counter));
    const QRegularExpressionMatch match = pattern.match(log());
    return match.hasMatch() ? match.captured(1).toLongLong() : -1;
}

} // namespace kesp
