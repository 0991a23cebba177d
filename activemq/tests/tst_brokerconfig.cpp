// SPDX-License-Identifier: Apache-2.0
// The transport's settings (INI file and environment) and the broker
// address a caller passes.

#include "brokerconfig.h"

#include <QTemporaryDir>
#include <QtTest>

using stomp::BrokerAddress;
using stomp::BrokerSettings;
using stomp::Environment;

Q_DECLARE_METATYPE(Environment)

class BrokerConfigTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void settings_data();
    void settings();
    void namedFileMissing();
    void address_data();
    void address();
    void destinations_data();
    void destinations();

private:
    QTemporaryDir dir;
};

void BrokerConfigTest::initTestCase()
{
    QVERIFY(dir.isValid());
}

void BrokerConfigTest::settings_data()
{
    QTest::addColumn<QString>("file"); // INI text of the default file; empty: no file
    QTest::addColumn<Environment>("environment");
    QTest::addColumn<QString>("error"); // part of the error text, empty when it loads
    QTest::addColumn<QString>("login");
    QTest::addColumn<bool>("tls");
    QTest::addColumn<bool>("verifyPeer");
    QTest::addColumn<QString>("requestQueue");
    QTest::addColumn<int>("heartBeatMs");
    QTest::addColumn<int>("connectTimeoutMs");

    const QString queue = QStringLiteral("/queue/nuv.kesp.classify");
    QTest::newRow("defaults without file or variables")
        << QString() << Environment() << QString() << QString() << false << true << queue << 10000
        << 10000;
    QTest::newRow("login from the environment")
        << QString() << Environment { { "NUV_STOMP_LOGIN", "nuv" }, { "NUV_STOMP_PASSCODE", "pw" } }
        << QString() << "nuv" << false << true << queue << 10000 << 10000;
    QTest::newRow("everything from the file")
        << "[stomp]\nlogin=fileuser\npasscode=filepw\ntls=yes\nverifyPeer=off\n"
           "requestQueue=nuv.other\nheartBeatMs=2500\nconnectTimeoutMs=700\n"
        << Environment() << QString() << "fileuser" << true << false << "/queue/nuv.other" << 2500
        << 700;
    QTest::newRow("the environment wins over the file")
        << "[stomp]\nlogin=fileuser\nheartBeatMs=2500\n"
        << Environment { { "NUV_STOMP_LOGIN", "envuser" }, { "NUV_STOMP_HEARTBEAT_MS", "0" } }
        << QString() << "envuser" << false << true << queue << 0 << 10000;
    QTest::newRow("topic as request destination stays a topic")
        << QString() << Environment { { "NUV_STOMP_REQUEST_QUEUE", "/topic/nuv.t" } } << QString()
        << QString() << false << true << "/topic/nuv.t" << 10000 << 10000;
    QTest::newRow("TLS switched on with 1")
        << QString() << Environment { { "NUV_STOMP_TLS", "1" } } << QString() << QString() << true
        << true << queue << 10000 << 10000;
    QTest::newRow("a word that is no boolean")
        << QString() << Environment { { "NUV_STOMP_TLS", "maybe" } } << "NUV_STOMP_TLS is \"maybe\""
        << QString() << false << true << queue << 0 << 0;
    QTest::newRow("heart-beat below the minimum")
        << QString() << Environment { { "NUV_STOMP_HEARTBEAT_MS", "50" } }
        << "NUV_STOMP_HEARTBEAT_MS is \"50\"" << QString() << false << true << queue << 0 << 0;
    QTest::newRow("heart-beat that is not a number")
        << "[stomp]\nheartBeatMs=soon\n"
        << Environment() << "setting heartBeatMs in" << QString() << false << true << queue << 0
        << 0;
    QTest::newRow("connect time-out of zero")
        << QString() << Environment { { "NUV_STOMP_CONNECT_TIMEOUT_MS", "0" } }
        << "NUV_STOMP_CONNECT_TIMEOUT_MS" << QString() << false << true << queue << 0 << 0;
    QTest::newRow("empty request queue")
        << QString() << Environment { { "NUV_STOMP_REQUEST_QUEUE", " " } } << "names no queue"
        << QString() << false << true << queue << 0 << 0;
    QTest::newRow("line break in the login")
        << QString() << Environment { { "NUV_STOMP_LOGIN", "a\nb" } } << "contains a line break"
        << QString() << false << true << queue << 0 << 0;
    QTest::newRow("CA file that does not exist")
        << QString() << Environment { { "NUV_STOMP_CA_FILE", "/nonexistent/ca.pem" } }
        << "/nonexistent/ca.pem" << QString() << false << true << queue << 0 << 0;
}

void BrokerConfigTest::settings()
{
    QFETCH(QString, file);
    QFETCH(Environment, environment);
    QFETCH(QString, error);

    QString defaultFile;
    if (!file.isEmpty()) {
        defaultFile = dir.filePath(QString::fromLatin1(QTest::currentDataTag()).replace(' ', '_')
                                   + QStringLiteral(".conf"));
        QFile out(defaultFile);
        QVERIFY(out.open(QIODevice::WriteOnly));
        out.write(file.toUtf8());
    }
    BrokerSettings loaded;
    QString text;
    const bool ok = stomp::loadSettings(environment, defaultFile, &loaded, &text);
    QCOMPARE(ok, error.isEmpty());
    if (!ok) {
        QVERIFY2(text.contains(error), qPrintable(text));
        QVERIFY2(text.startsWith(QLatin1String("Invalid transport configuration")),
                 qPrintable(text));
        return;
    }
    QTEST(loaded.login, "login");
    QTEST(loaded.tls, "tls");
    QTEST(loaded.verifyPeer, "verifyPeer");
    QTEST(loaded.requestQueue, "requestQueue");
    QTEST(loaded.heartBeatMs, "heartBeatMs");
    QTEST(loaded.connectTimeoutMs, "connectTimeoutMs");
}

void BrokerConfigTest::namedFileMissing()
{
    BrokerSettings loaded;
    QString text;
    QVERIFY(!stomp::loadSettings({ { "NUV_STOMP_CONFIG", "/nonexistent/x.conf" } }, QString(),
                                 &loaded, &text));
    QVERIFY2(text.contains(QLatin1String("/nonexistent/x.conf")), qPrintable(text));

    // A passcode with a line break is refused without showing it.
    QVERIFY(
        !stomp::loadSettings({ { "NUV_STOMP_PASSCODE", "sec\nret" } }, QString(), &loaded, &text));
    QVERIFY2(!text.contains(QLatin1String("sec")), qPrintable(text));
    QVERIFY2(text.contains(QLatin1String("NUV_STOMP_PASSCODE")), qPrintable(text));
}

void BrokerConfigTest::address_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<qint64>("port");
    QTest::addColumn<bool>("tlsByDefault");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("expectedHost");
    QTest::addColumn<bool>("expectedTls");
    QTest::addColumn<QString>("label");

    QTest::newRow("plain host name") << "broker.example" << qint64(61613) << false << QString()
                                     << "broker.example" << false << "broker.example:61613";
    QTest::newRow("ssl scheme") << "ssl://127.0.0.1" << qint64(61614) << false << QString()
                                << "127.0.0.1" << true << "127.0.0.1:61614 over TLS";
    QTest::newRow("stomp+ssl scheme")
        << "stomp+ssl://h" << qint64(1) << false << QString() << "h" << true << "h:1 over TLS";
    QTest::newRow("tcp scheme is plain even when TLS is configured")
        << "tcp://h" << qint64(2) << true << QString() << "h" << false << "h:2";
    QTest::newRow("bare host follows the TLS setting")
        << "h" << qint64(3) << true << QString() << "h" << true << "h:3 over TLS";
    QTest::newRow("IPv6 literal in brackets")
        << "[::1]" << qint64(61613) << false << QString() << "::1" << false << "[::1]:61613";
    QTest::newRow("trailing slash of a URL")
        << "ssl://h/" << qint64(4) << false << QString() << "h" << true << "h:4 over TLS";
    QTest::newRow("empty host") << "" << qint64(61613) << false << "no host name" << QString()
                                << false << QString();
    QTest::newRow("scheme without host")
        << "ssl://" << qint64(61613) << false << "no host name" << QString() << false << QString();
    QTest::newRow("unknown scheme")
        << "http://h" << qint64(80) << false << "unknown scheme" << QString() << false << QString();
    QTest::newRow("port zero") << "h" << qint64(0) << false << "port 0 is not a TCP port"
                               << QString() << false << QString();
    QTest::newRow("port above 65535")
        << "h" << qint64(70000) << false << "port 70000 is not a TCP port" << QString() << false
        << QString();
    QTest::newRow("path instead of a host")
        << "h/x" << qint64(1) << false << "not a host name" << QString() << false << QString();
}

void BrokerConfigTest::address()
{
    QFETCH(QString, host);
    QFETCH(qint64, port);
    QFETCH(bool, tlsByDefault);
    QFETCH(QString, error);

    BrokerAddress parsed;
    QString text;
    const bool ok = stomp::parseAddress(host, port, tlsByDefault, &parsed, &text);
    QCOMPARE(ok, error.isEmpty());
    if (!ok) {
        QVERIFY2(text.contains(error), qPrintable(text));
        return;
    }
    QTEST(parsed.host, "expectedHost");
    QTEST(parsed.tls, "expectedTls");
    QCOMPARE(parsed.port, quint16(port));
    QTEST(parsed.label(), "label");
}

void BrokerConfigTest::destinations_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("destination");
    QTest::newRow("bare queue name") << "nuv.a"
                                     << "queue"
                                     << "/queue/nuv.a";
    QTest::newRow("bare topic name") << "nuv.t"
                                     << "topic"
                                     << "/topic/nuv.t";
    QTest::newRow("full destination kept") << "/topic/x"
                                           << "queue"
                                           << "/topic/x";
    QTest::newRow("temporary queue kept") << "/temp-queue/r"
                                          << "topic"
                                          << "/temp-queue/r";
}

void BrokerConfigTest::destinations()
{
    QFETCH(QString, name);
    QFETCH(QString, kind);
    QTEST(stomp::destinationFor(name, kind), "destination");
}

QTEST_GUILESS_MAIN(BrokerConfigTest)
#include "tst_brokerconfig.moc"
