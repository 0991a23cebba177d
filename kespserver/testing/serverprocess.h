// SPDX-License-Identifier: Apache-2.0
#ifndef KESPSERVER_SERVERPROCESS_H
#define KESPSERVER_SERVERPROCESS_H

#include <QMap>
#include <QProcess>
#include <QString>

#include <csignal>

namespace kesp {

/*
 * One nuvkesp-server for a test or a measurement: started as a real process
 * with the caller's environment (broker account, request queue), its log
 * in a file that the caller can wait on.
 */
class ServerProcess
{
public:
    ServerProcess(const QString &name, const QString &database, const QString &broker,
                  const QString &logFile, const QStringList &extraArguments = {});
    ~ServerProcess();

    // Overrides one variable of its environment (set before start()).
    void setVariable(const QString &name, const QString &value) { variables.insert(name, value); }
    // Starts it with the servers' broker account and waits until it serves
    // the queue; false with the log.
    bool start(int timeoutMs = 20000);
    // Waits until the log has `text` at least `count` times.
    bool waitForLog(const QString &text, int count, int timeoutMs);
    int countInLog(const QString &text) const;
    QString log() const;
    // SIGTERM (or `signal`) and wait; false when it does not end in time
    // or fails.
    bool stop(int timeoutMs = 15000, int signal = SIGTERM);
    // Sends `signal` and returns at once.
    void sendSignal(int signal);
    // Waits for the end; true when it ended cleanly (exit status 0).
    bool waitForExit(int timeoutMs = 15000);
    // SIGKILL: no goodbye, no acknowledgements.
    void kill();
    // A counter of its status line at exit ("requests", "errors",
    // "expired", "replayed"); -1 when there is none.
    qint64 reported(const QString &counter) const;
    qint64 pid() const { return process.processId(); }

    // The built daemon.
    static QString executable();

private:
    QProcess process;
    const QString name;
    const QString database;
    const QString broker;
    const QString logFile;
    const QStringList extraArguments;
    QMap<QString, QString> variables;
};

} // namespace kesp

#endif // KESPSERVER_SERVERPROCESS_H
