// SPDX-License-Identifier: Apache-2.0
#ifndef KESPSERVER_METRICS_H
#define KESPSERVER_METRICS_H

#include <QByteArray>
#include <QString>

#include <functional>

struct MHD_Daemon;

namespace kesp {

/*
 * The instance's HTTP endpoint for monitoring: libmicrohttpd answers GET
 * requests on a thread of its own, so a scrape is answered while a long
 * request runs. What a path answers is the handler's business.
 */
class MetricsServer
{
public:
    // Returns the body for `path` and sets `status` (200, 404, 503 ...).
    using Handler = std::function<QByteArray(const QByteArray &path, int *status)>;

    explicit MetricsServer(Handler handler);
    ~MetricsServer();
    MetricsServer(const MetricsServer &) = delete;
    MetricsServer &operator=(const MetricsServer &) = delete;

    // Listens on `address` (an IP address) and `port`; false with `error`.
    bool start(const QString &address, quint16 port, QString *error);
    void stop();
    // The port it listens on (the one chosen when 0 was given).
    quint16 port() const;

    // Called by libmicrohttpd.
    QByteArray answer(const QByteArray &path, int *status) const { return handler(path, status); }

private:
    Handler handler;
    MHD_Daemon *daemon = nullptr;
};

} // namespace kesp

#endif // KESPSERVER_METRICS_H
