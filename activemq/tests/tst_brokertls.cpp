// SPDX-License-Identifier: Apache-2.0
// STOMP over TLS to the broker's STOMP+SSL port: the broker's certificate
// is verified by default, accepted when the configured CA signed it and
// refused otherwise.

#include "brokerenv.h"
#include "exchangehelpers.h"

#include <QtTest>

using stomp::BrokerEnv;
using stomp::Responder;

namespace {

const QByteArray requestQueue = QByteArrayLiteral("/queue/nuv.test.tls");

enum class Ca { Test, Other, System };
enum class Port { Tls, Plain };

} // namespace

Q_DECLARE_METATYPE(Ca)
Q_DECLARE_METATYPE(Port)

class BrokerTlsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void tls_data();
    void tls();

private:
    BrokerEnv broker;
    std::unique_ptr<Responder> responder;
};

void BrokerTlsTest::initTestCase()
{
    QVERIFY2(broker.ok(), qPrintable(broker.problem()));
    responder = std::make_unique<Responder>(broker.peerOptions(), requestQueue, echo);
    QVERIFY2(responder->begin(), qPrintable(responder->errorText()));
}

void BrokerTlsTest::cleanupTestCase()
{
    responder.reset();
}

void BrokerTlsTest::tls_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<Port>("port");
    QTest::addColumn<Ca>("ca");
    QTest::addColumn<QByteArray>("tlsSetting"); // NUV_STOMP_TLS, empty: unset
    QTest::addColumn<QByteArray>("verifySetting"); // NUV_STOMP_VERIFY_PEER, empty: unset
    QTest::addColumn<QString>("error"); // empty: connects and exchanges

    QTest::newRow("ssl:// with the test CA, verified")
        << "ssl://127.0.0.1" << Port::Tls << Ca::Test << QByteArray() << QByteArray() << QString();
    QTest::newRow("host name localhost matches the certificate")
        << "ssl://localhost" << Port::Tls << Ca::Test << QByteArray() << QByteArray() << QString();
    QTest::newRow("TLS switched on by the setting, plain host")
        << "127.0.0.1" << Port::Tls << Ca::Test << QByteArray("1") << QByteArray() << QString();
    QTest::newRow("system CAs only refuse the self-signed certificate")
        << "ssl://127.0.0.1" << Port::Tls << Ca::System << QByteArray() << QByteArray()
        << "its TLS certificate was rejected";
    QTest::newRow("a CA that did not sign the broker's certificate")
        << "ssl://127.0.0.1" << Port::Tls << Ca::Other << QByteArray() << QByteArray()
        << "its TLS certificate was rejected";
    QTest::newRow("verification switched off accepts any certificate")
        << "ssl://127.0.0.1" << Port::Tls << Ca::System << QByteArray() << QByteArray("0")
        << QString();
    QTest::newRow("TLS to the plain STOMP port")
        << "ssl://127.0.0.1" << Port::Plain << Ca::Test << QByteArray() << QByteArray()
        << "Cannot connect to the message broker at 127.0.0.1:";
    QTest::newRow("plain STOMP to the TLS port")
        << "tcp://127.0.0.1" << Port::Tls << Ca::Test << QByteArray("1") << QByteArray()
        << "Cannot connect to the message broker at 127.0.0.1:";
}

void BrokerTlsTest::tls()
{
    QFETCH(QString, host);
    QFETCH(Port, port);
    QFETCH(Ca, ca);
    QFETCH(QByteArray, tlsSetting);
    QFETCH(QByteArray, verifySetting);
    QFETCH(QString, error);

    broker.exportCredentials();
    qputenv("NUV_STOMP_REQUEST_QUEUE", requestQueue);
    qputenv("NUV_STOMP_CONNECT_TIMEOUT_MS", "5000");
    qputenv("NUV_STOMP_CA_FILE",
            ca == Ca::Test        ? broker.caFile().toUtf8()
                : ca == Ca::Other ? broker.otherCaFile().toUtf8()
                                  : QByteArray());
    if (tlsSetting.isEmpty())
        qunsetenv("NUV_STOMP_TLS");
    else
        qputenv("NUV_STOMP_TLS", tlsSetting);
    if (verifySetting.isEmpty())
        qunsetenv("NUV_STOMP_VERIFY_PEER");
    else
        qputenv("NUV_STOMP_VERIFY_PEER", verifySetting);

    auto transport = stomp::newTransport();
    const quint16 number = port == Port::Tls ? broker.sslPort() : broker.stompPort();
    const bool connected = transport->connectToBroker(host, number);
    if (!error.isEmpty()) {
        QVERIFY(!connected);
        QVERIFY2(transport->lastErrorText.contains(error), qPrintable(transport->lastErrorText));
        QVERIFY2(transport->lastErrorText.contains(QString::number(number)),
                 qPrintable(transport->lastErrorText));
        return;
    }
    QVERIFY2(connected, qPrintable(transport->lastErrorText));
    const CallResult result = call(transport.get(), command(QStringLiteral("CFSECURE")));
    QVERIFY2(result.ok, qPrintable(result.error));
    QCOMPARE(result.reply.command, QStringLiteral("ECHO CFSECURE"));
    transport->disconnectFromBroker();
}

QTEST_GUILESS_MAIN(BrokerTlsTest)
#include "tst_brokertls.moc"
