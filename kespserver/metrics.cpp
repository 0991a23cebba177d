// SPDX-License-Identifier: Apache-2.0
#include "metrics.h"

#include <QHostAddress>

#include <arpa/inet.h>
#include <cstring>
#include <microhttpd.h>
#include <netinet/in.h>

namespace kesp {

namespace {

MHD_Result respond(void *cls, MHD_Connection *connection, const char *url, const char *method,
                   const char * /*version*/, const char * /*uploadData*/, size_t * /*uploadSize*/,
                   void ** /*state*/)
{
    const auto *server = static_cast<const MetricsServer *>(cls);
    int status = MHD_HTTP_METHOD_NOT_ALLOWED;
    QByteArray body = "only GET\n";
    if (std::strcmp(method, MHD_HTTP_METHOD_GET) == 0)
        body = server->answer(QByteArray(url), &status);
    MHD_Response *response = MHD_create_response_from_buffer(
        size_t(body.size()), const_cast<char *>(body.constData()), MHD_RESPMEM_MUST_COPY);
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE,
                            "text/plain; version=0.0.4; charset=utf-8");
    const MHD_Result result = MHD_queue_response(connection, unsigned(status), response);
    MHD_destroy_response(response);
    return result;
}

} // namespace

MetricsServer::MetricsServer(Handler handler)
    : handler(std::move(handler))
{ }

MetricsServer::~MetricsServer()
{
    stop();
}

bool MetricsServer::start(const QString &address, quint16 port, QString *error)
{
    stop();
    const QHostAddress host(address);
    sockaddr_storage storage {};
    unsigned flags = MHD_USE_INTERNAL_POLLING_THREAD;
    if (host.protocol() == QAbstractSocket::IPv6Protocol) {
        auto *in6 = reinterpret_cast<sockaddr_in6 *>(&storage);
        in6->sin6_family = AF_INET6;
        in6->sin6_port = htons(port);
        const Q_IPV6ADDR bytes = host.toIPv6Address();
        std::memcpy(&in6->sin6_addr, &bytes, sizeof bytes);
        flags |= MHD_USE_IPv6;
    } else {
        auto *in4 = reinterpret_cast<sockaddr_in *>(&storage);
        in4->sin_family = AF_INET;
        in4->sin_port = htons(port);
        in4->sin_addr.s_addr = htonl(host.toIPv4Address());
    }
    // A few connections at a time are plenty for a scraper and the status
    // command; the limits keep a flood from costing the server more.
    daemon = MHD_start_daemon(flags, port, nullptr, nullptr, &respond, this, MHD_OPTION_SOCK_ADDR,
                              &storage, MHD_OPTION_CONNECTION_LIMIT, 16U,
                              MHD_OPTION_CONNECTION_TIMEOUT, 10U, MHD_OPTION_END);
    if (!daemon) {
        *error = QStringLiteral("cannot serve metrics on %1:%2 (the port may be in use)")
                     .arg(address)
                     .arg(port);
        return false;
    }
    return true;
}

void MetricsServer::stop()
{
    if (daemon)
        MHD_stop_daemon(daemon);
    daemon = nullptr;
}

quint16 MetricsServer::port() const
{
    if (!daemon)
        return 0;
    const MHD_DaemonInfo *info = MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_BIND_PORT);
    return info ? quint16(info->port) : 0;
}

} // namespace kesp
