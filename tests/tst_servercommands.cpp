// SPDX-License-Identifier: Apache-2.0
// Server information, session and maintenance, and the pass-through
// commands: the cases at the edges of what each operation sends and gives
// back. The request and outcome of every operation in the ordinary cases are
// checked from the catalogue (tst_admincatalogue).

#include "admincatalogue.h"

using namespace commandkit;

class ServerCommandsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void serverInformation_data();
    void serverInformation();
    void session_data();
    void session();
    void passThrough_data();
    void passThrough();
    void passThroughRequest_data();
    void passThroughRequest();
};

namespace {

const QString serverText = QStringLiteral("server says no");

} // namespace

void ServerCommandsTest::serverInformation_data()
{
    addOutcomeColumns();

    QTest::newRow("getServerVersion failing gives an empty version and records the error")
        << catalogueCall("getServerVersion")
        << Answers { Reply("ERROR").docId("9.1").error(serverText) } << Outcome { QString("") }
        << serverText;
    QTest::newRow("getServerVersion with an empty docId gives an empty version, error kept")
        << catalogueCall("getServerVersion") << Answers { Reply("OK") } << Outcome { QString("") }
        << earlierError;
    QTest::newRow("getServerVersion passes the docId through as it stands")
        << catalogueCall("getServerVersion") << Answers { Reply("").docId(" 18.09-5 ") }
        << Outcome { QString(" 18.09-5 ") } << earlierError;
    QTest::newRow("getIndexerInfos failing leaves the caller's list as passed, not cleared")
        << catalogueCall("getIndexerInfos")
        << Answers { Reply("ERROR").dataList({}).error(serverText) }
        << Outcome { false, QStringList { "caller" } } << serverText;
    QTest::newRow("getIndexerInfos with an empty list replaces the caller's with it")
        << catalogueCall("getIndexerInfos") << Answers { Reply("OK") }
        << Outcome { true, QStringList() } << earlierError;
    QTest::newRow("getScanInputProcessImage without byte arrays gives an empty list, error kept")
        << catalogueCall("getScanInputProcessImage") << Answers { Reply("OK").dataList({ "x" }) }
        << Outcome { bytes({}) } << earlierError;
    QTest::newRow("getScanInputProcessImage keeps empty and null byte arrays in order")
        << catalogueCall("getScanInputProcessImage")
        << Answers { Reply("OK").data({ QByteArray(), "", "img" }) }
        << Outcome { bytes({ QByteArray(), "", "img" }) } << earlierError;
    QTest::newRow("getMinMaxDate passes the list through unsorted")
        << catalogueCall("getMinMaxDate")
        << Answers { Reply("OK").dataList({ "2020", "1999", "2020" }) }
        << Outcome { QStringList { "2020", "1999", "2020" } } << earlierError;
    QTest::newRow("getChatUsers failing gives an empty list although the reply has one")
        << catalogueCall("getChatUsers")
        << Answers { Reply("ERROR").dataList({ "u1" }).error(serverText) }
        << Outcome { QStringList() } << serverText;
}

void ServerCommandsTest::serverInformation()
{
    checkOutcomeRow();
}

void ServerCommandsTest::session_data()
{
    addOutcomeColumns();

    const Outcome closed { true }, notClosed { false };
    QTest::newRow("closeSession answered \"ERROR\" fails and records the error")
        << catalogueCall("closeSession") << Answers { Reply("ERROR").error(serverText) }
        << notClosed << serverText;
    QTest::newRow("closeSession answered with an empty status word fails")
        << catalogueCall("closeSession") << Answers { Reply("").error(serverText) } << notClosed
        << serverText;
    QTest::newRow("closeSession answered \"DONE\" fails")
        << catalogueCall("closeSession") << Answers { Reply("DONE").error(serverText) } << notClosed
        << serverText;
    QTest::newRow("closeSession answered \"OK\" without an error text succeeds")
        << catalogueCall("closeSession") << Answers { Reply("OK") } << closed << earlierError;
    QTest::newRow("closeSession answered \"ERROR\" without an error text records an empty one")
        << catalogueCall("closeSession") << Answers { Reply("ERROR") } << notClosed << QString();

    QTest::newRow("checkUpdate with an empty list emits nothing")
        << catalogueCall("checkUpdate") << Answers { Reply("OK") } << Outcome { QStringList() }
        << earlierError;
    QTest::newRow("checkUpdate with three entries emits three signals in list order")
        << catalogueCall("checkUpdate")
        << Answers { Reply("OK").dataList({ "SYSUPDATE", "A", "" }) }
        << Outcome { QStringList { "SYSUPDATE", "A", "" } } << earlierError;
    QTest::newRow("checkUpdate answered \"ERROR\" emits nothing")
        << catalogueCall("checkUpdate")
        << Answers { Reply("ERROR").dataList({ "A", "B" }).error(serverText) }
        << Outcome { QStringList() } << serverText;

    const Call listTwice = [](ClassifyInterface *c) {
        QStringList entries;
        const bool first = c->loadRemoteFS("/a", entries);
        const bool second = c->loadRemoteFS("/b", entries);
        return Outcome { first, second, entries };
    };
    QTest::newRow("loadRemoteFS twice with one list keeps both listings, first before second")
        << listTwice
        << Answers { Reply("OK").dataList({ "a1", "a2" }), Reply("OK").dataList({ "b1" }) }
        << Outcome { true, true, QStringList { "a1", "a2", "b1" } } << earlierError;
    QTest::newRow("loadRemoteFS failing between two listings leaves the first alone")
        << listTwice
        << Answers { Reply("OK").dataList({ "a1" }),
                     Reply("ERROR").dataList({ "b1" }).error(serverText) }
        << Outcome { true, false, QStringList { "a1" } } << serverText;

    for (const char *notice : { "updateLastModified", "setLastModified" }) {
        QTest::addRow("%s answered \"ERROR\" keeps the last error", notice)
            << catalogueCall(notice) << Answers { Reply("ERROR").error(serverText) } << Outcome {}
            << earlierError;
        QTest::addRow("%s without a reply keeps the last error", notice)
            << catalogueCall(notice) << Answers { transportFailure(transportErrorText) }
            << Outcome {} << earlierError;
    }
}

void ServerCommandsTest::session()
{
    checkOutcomeRow();
}

void ServerCommandsTest::passThrough_data()
{
    addOutcomeColumns();

    for (const char *name : { "doLdapCommand", "doWebCommand" }) {
        const Call passThrough = catalogueCall(name);
        QTest::addRow("%s succeeding empties the caller's error text", name)
            << passThrough << Answers { Reply("OK").error("ignored") }
            << Outcome { true, bytes({}), QStringList(), QString("") } << earlierError;
        QTest::addRow("%s failing hands over the reply's empty lists, not the caller's", name)
            << passThrough << Answers { Reply("ERROR").error("inner failed") }
            << Outcome { false, bytes({}), QStringList(), QString("inner failed") } << earlierError;
        QTest::addRow("%s failing hands over what the reply carried", name)
            << passThrough
            << Answers { Reply("ERROR")
                             .data({ "", "x" })
                             .dataList({ "why" })
                             .error("inner failed") }
            << Outcome { false, bytes({ "", "x" }), QStringList { "why" }, QString("inner failed") }
            << earlierError;
        QTest::addRow("%s answered \"error\" in lower case succeeds", name)
            << passThrough << Answers { Reply("error").dataList({ "r" }).error("inner failed") }
            << Outcome { true, bytes({}), QStringList { "r" }, QString("") } << earlierError;
    }
}

void ServerCommandsTest::passThrough()
{
    checkOutcomeRow();
}

void ServerCommandsTest::passThroughRequest_data()
{
    addRequestColumns();

    QTest::newRow("doLdapCommand with no arguments sends an empty data field")
        << passingThrough(&ClassifyInterface::doLdapCommand, {}) << sent("CFLDAPCOMMAND", "inner");
    QTest::newRow("doWebCommand with no arguments sends an empty data field")
        << passingThrough(&ClassifyInterface::doWebCommand, {})
        << sent("CFWEBCOMMAND", "inner", {}, {}, 180);
    QTest::newRow("doWebCommand keeps empty byte arrays and their order")
        << passingThrough(&ClassifyInterface::doWebCommand, { "", "z", "" })
        << sent("CFWEBCOMMAND", "inner", {}, { "", "z", "" }, 180);
}

void ServerCommandsTest::passThroughRequest()
{
    checkRequestRow();
}

QTEST_GUILESS_MAIN(ServerCommandsTest)
#include "tst_servercommands.moc"
