#ifndef KESPSERVER_SERVERPROCESS_H
#define KESPSERVER_SERVERPROCESS_H

#include <QProcess>
#include <QString>

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

    // Starts it and waits until it serves the queue; false with the log.
    bool start(int timeoutMs = 20000);
    // Waits until the log has `text` at least `count` times.
    bool waitForLog(const QString &text, int count, int timeoutMs);
    int countInLog(const QString &text) const;
    QString log() const;
    // SIGTERM and wait; false when it does not end in time or fails.
    bool stop(int timeoutMs = 15000);
    // SIGKILL: no goodbye, no acknowledgements.
    void kill();
    // The requests it reported in its last status line (at exit).
    qint64 reportedRequests() const;
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
};

} // namespace kesp

#endif // KESPSERVER_SERVERPROCESS_H
