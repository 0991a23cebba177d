// SPDX-License-Identifier: Apache-2.0
// The transport's settings (INI file and environment) and the broker
// address a caller passes.

#include "brokerconfig.h"
#include "brokerlist.h"

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
    void brokerList_data();
    void brokerList();
    void brokerTurns_data();
    void brokerTurns();

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

void BrokerConfigTest::brokerList_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<qint64>("port");
    QTest::addColumn<bool>("tlsByDefault");
    QTest::addColumn<QStringList>("labels"); // empty: an error containing `error`
    QTest::addColumn<QString>("error");

    QTest::newRow("one broker") << "tcp://h" << qint64(61613) << false << QStringList { "h:61613" }
                                << QString();
    QTest::newRow("two brokers") << "failover:(tcp://a:61613,tcp://b:61623)" << qint64(1) << false
                                 << QStringList { "a:61613", "b:61623" } << QString();
    QTest::newRow("TLS on one, spaces, options")
        << "failover:( ssl://a:61614 , tcp://b:61613 )?randomize=false" << qint64(1) << false
        << QStringList { "a:61614 over TLS", "b:61613" } << QString();
    QTest::newRow("bare hosts follow the TLS setting")
        << "failover:(a:1,b:2)" << qint64(0) << true
        << QStringList { "a:1 over TLS", "b:2 over TLS" } << QString();
    QTest::newRow("without parentheses") << "failover:tcp://a:1,tcp://b:2?timeout=5" << qint64(0)
                                         << false << QStringList { "a:1", "b:2" } << QString();
    QTest::newRow("a missing port takes the given one")
        << "failover:(tcp://a,tcp://b:2)" << qint64(7) << false << QStringList { "a:7", "b:2" }
        << QString();
    QTest::newRow("IPv6 literals") << "failover:(tcp://[::1]:1,tcp://[::1]:2)" << qint64(0) << false
                                   << QStringList { "[::1]:1", "[::1]:2" } << QString();
    QTest::newRow("no port anywhere") << "failover:(tcp://a,tcp://b)" << qint64(0) << false
                                      << QStringList() << "port 0 is not a TCP port";
    QTest::newRow("port not a number")
        << "failover:(tcp://a:x)" << qint64(0) << false << QStringList() << "\"x\" is not a port";
    QTest::newRow("empty entry") << "failover:(tcp://a:1,,tcp://b:2)" << qint64(0) << false
                                 << QStringList() << "empty entry";
    QTest::newRow("unclosed list")
        << "failover:(tcp://a:1" << qint64(0) << false << QStringList() << "no closing parenthesis";
    QTest::newRow("unknown scheme inside")
        << "failover:(http://a:1)" << qint64(0) << false << QStringList() << "unknown scheme";
}

void BrokerConfigTest::brokerList()
{
    QFETCH(QString, text);
    QFETCH(qint64, port);
    QFETCH(bool, tlsByDefault);
    QFETCH(QStringList, labels);
    QFETCH(QString, error);
    stomp::BrokerList list;
    QString problem;
    const bool parsed = list.parse(text, port, tlsByDefault, &problem);
    QCOMPARE(parsed, !labels.isEmpty());
    if (!parsed) {
        QVERIFY2(problem.contains(error), qPrintable(problem));
        return;
    }
    QStringList got;
    for (const BrokerAddress &address : list.addresses())
        got << address.label();
    QCOMPARE(got, labels);
    if (labels.size() == 1)
        QCOMPARE(list.label(), labels.first());
    else
        QVERIFY2(list.label().startsWith(QLatin1String("failover:(")), qPrintable(list.label()));
}

void BrokerConfigTest::brokerTurns_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("lastUsed"); // -1: none yet
    QTest::addColumn<QList<int>>("order");

    QTest::newRow("first connection") << 3 << -1 << QList<int> { 0, 1, 2 };
    QTest::newRow("after the first broker") << 3 << 0 << QList<int> { 1, 2, 0 };
    QTest::newRow("after the last broker") << 3 << 2 << QList<int> { 0, 1, 2 };
    QTest::newRow("a single broker") << 1 << 0 << QList<int> { 0 };
}

void BrokerConfigTest::brokerTurns()
{
    QFETCH(int, count);
    QFETCH(int, lastUsed);
    QFETCH(QList<int>, order);
    QStringList entries;
    for (int i = 0; i < count; ++i)
        entries << QStringLiteral("tcp://h%1:1").arg(i);
    stomp::BrokerList list;
    QString problem;
    QVERIFY2(list.parse(QStringLiteral("failover:(%1)").arg(entries.join(QLatin1Char(','))), 0,
                        false, &problem),
             qPrintable(problem));
    if (lastUsed >= 0)
        list.used(lastUsed);
    QCOMPARE(list.attemptOrder(), order);
}

QTEST_GUILESS_MAIN(BrokerConfigTest)
#include "tst_brokerconfig.moc"
