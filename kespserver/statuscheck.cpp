// SPDX-License-Identifier: Apache-2.0
#include "statuscheck.h"

#include "exitstatus.h"
#include "operatorcommands.h"

#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QUrl>

#include <cstdio>

namespace kesp {

int fetchLocal(const QUrl &url, QByteArray *body, QString *error)
{
    QNetworkAccessManager network;
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    // A loopback answer comes at once; a hung instance is as good as none.
    request.setTransferTimeout(5000);
    QNetworkReply *reply = network.get(request);
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();
    const int code = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    *body = reply->readAll();
    *error = reply->errorString();
    delete reply;
    return code;
}

int queryStatus(const ServerConfig &config)
{
    if (config.metricsHost.isEmpty()) {
        complain(QStringLiteral("status: the instance is asked at its metrics address; set "
                                "NUV_KESP_METRICS (or give --metrics, or the --config of the "
                                "instance)"));
        return ExitConfiguration;
    }
    QUrl url;
    url.setScheme(QStringLiteral("http"));
    url.setHost(config.metricsHost);
    url.setPort(config.metricsPort);
    url.setPath(QStringLiteral("/status"));

    QByteArray body;
    QString error;
    const int code = fetchLocal(url, &body, &error);
    if (code == 0) {
        complain(
            QStringLiteral("status: no instance answers at %1: %2").arg(url.toString(), error));
        return ExitFailed;
    }
    std::fwrite(body.constData(), 1, size_t(body.size()), stdout);
    std::fflush(stdout);
    return code == 200 ? ExitOk : ExitFailed;
}

} // namespace kesp
