// SPDX-License-Identifier: Apache-2.0
// The client and the engine speak one vocabulary: every command word in it
// is sent by some client operation (through the scripted transport) and
// served by the engine, and neither side uses a word outside it. A word only
// one side knows on purpose would be listed here with the reason; there is
// none today.

#include "protocolwords.h"
#include "servertestsupport.h"
#include "testsupport.h"

#include <QSet>
#include <QtTest>

#include <iterator>

class ServerCommandSetTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void vocabularyWord_data();
    void vocabularyWord();
    void noWordOutsideTheVocabulary_data();
    void noWordOutsideTheVocabulary();
    void everyWordHasAHandler();

private:
    QSet<QString> vocabulary;
    QSet<QString> sentWords; // by the client, calling every operation
    QSet<QString> servedWords; // by the engine's command table
};

namespace {
// Calls every operation of ClassifyInterface that talks to the server, and
// the two the client offers through its meta-object.
void callEveryOperation(ClassifyInterface *c)
{
    QStringList list;
    QString text;
    QList<QByteArray> bytes;
    QByteArray first;
    QByteArray second;
    QList<QString> names;
    QList<QByteArray> firsts;
    QList<QByteArray> seconds;
    QList<QPair<QString, QString>> pairs;
    QList<QString> cards;
    QList<QString> texts;
    qint64 id = 0;

    c->setUsers({});
    c->getUsers(list);
    c->delUsers({}, {});
    c->changeUserPassAdmin({}, {});
    c->changeUserPass({}, {});
    c->changeExpiredPass({}, {}, {}, {}, 0);
    c->updateUsers({});
    c->getDocuments({});
    c->getSystemFolders(list, bytes, true);
    c->setSystemFolders({}, {});
    c->getRoles();
    c->getRoleList();
    c->getRoles(QString());
    c->setRoles({});
    c->deleteRoles({});
    c->getUserRoles(QString());
    c->setUserRoles({}, {});
    c->getRoleUsers({});
    c->setRoleUsers({}, {});
    c->classify(text, {});
    c->classifyTemporary(text, {});
    c->newClassify(1, {}, {});
    c->newClassifyTemp(1, {}, {}, 0);
    c->getClassifyTemp(id, list, list);
    c->deleteClassifyTemp(1);
    c->getArchives(list);
    c->getDocumentData({}, {});
    c->getMandanten(list, bytes);
    c->getDocumentCount({}, false, false);
    c->getStatusTypes(list, bytes);
    c->getDocTypes(list, bytes);
    c->saveStatusTypes({}, {});
    c->saveDocTypes({}, {});
    c->getClassifyCount({}, false);
    c->getBemerkungen();
    c->setDocUsersAndRoles({}, {}, {});
    c->getDocUsersAndRoles({}, list);
    c->saveFolderStructure({}, {}, {});
    c->getFolderStructure({}, list, bytes);
    c->getClassificationFields(false);
    c->getDocHistory({}, list);
    c->checkUpdate();
    c->insertMandant({}, {}, {});
    c->setCurrentArchive({});
    c->closeSession();
    c->getNextOid(text);
    c->addExtentedSearch({}, {}, {});
    c->deleteExtentedSearch({});
    c->getExtentedSearch({});
    c->updateExtentedSearch(0, {}, {}, {});
    c->getFolderRoles({});
    c->setFolderRoles({}, {});
    c->saveTempDocRollen({}, {});
    c->getMainFolder({});
    c->deleteDynAttribute(0);
    c->addDynAttribute({}, {}, false);
    c->listDynAttributes();
    c->modifyWerteListe(0, {});
    c->getWerteListe(0);
    c->modifyDynattribute({});
    c->multipleClassify(text, {});
    c->newClassify(1, {}, {}, {});
    c->moveDocumentsToTrash({});
    c->removeDocumentsFromTrash({});
    c->getUserRole(text);
    c->updateLastModified();
    c->setLastModified();
    c->newFolder({}, {}, {}, {});
    c->saveUserData({}, {}, {}, {}, false);
    c->deleteUserData({}, {});
    c->loadUserData({}, names, firsts, seconds);
    c->loadUserData({}, {}, first, second);
    c->moveDocToArchive(1, 1);
    c->getIndexerInfos(list);
    c->recreateIndex();
    c->getMinMaxDate();
    c->getScanInputProcessList();
    c->getScanInputProcessImage({});
    c->doLdapCommand({}, {}, bytes, names, text);
    c->doWebCommand({}, {}, bytes, names, text);
    c->getServerVersion();
    c->addLinkedDocuments({}, {});
    c->removeLinkedDocuments({}, {});
    c->readLinkedDocuments({});
    c->addClipboard({});
    c->removeClipboard({});
    c->renameClipboard({}, {});
    c->readClipboards(pairs);
    c->readClipboardCards({}, cards, texts);
    c->addClipboardCard({}, {}, {});
    c->removeClipboardCard({}, {});
    c->clearClipboardCards({});
    c->updateClibpoardCard({}, {}, {});
    c->readClipboardRoles({});
    c->writeClipboardRoles({}, {});
    c->testMail({});
    c->loadRemoteFS({}, list);
    c->checkFS({});
    c->doBackup();
    c->updateBackupConfig();
    c->getDeadLines({});
    c->getDeadLineForDocId({});
    c->saveDeadLines({});
    c->addShare({}, {}, {}, {}, 0);
    c->getShares();
    c->deleteShare({});
    c->getChatUsers();
    c->getRoleRoles({});
    servertest::setRoleRoles(c, {}, {});
    servertest::getRevisionen(c, {});
}
} // namespace

void ServerCommandSetTest::initTestCase()
{
    for (const char *word : nuvprotocol::commandWords)
        vocabulary.insert(QLatin1String(word));
    QCOMPARE(vocabulary.size(), int(std::size(nuvprotocol::commandWords))); // each word once

    testsupport::scripted()->reset();
    testsupport::ClientPtr client = testsupport::newClient();
    testsupport::scripted()->setResponder([](const nuvMQClassifyMessage &) {
        return nuvMQClassifyMessage(testsupport::Reply("OK"));
    });
    QVERIFY(client->connectToNuvKESP("localhost", 1, "user", "password"));
    callEveryOperation(client.get());
    for (const ScriptedExchange &exchange : testsupport::scripted()->exchanges())
        sentWords.insert(exchange.request.command);

    const QStringList served = nuvserver::ServerEngine::commandWords();
    servedWords = QSet<QString>(served.begin(), served.end());
}

void ServerCommandSetTest::vocabularyWord_data()
{
    QTest::addColumn<QString>("word");
    for (const char *word : nuvprotocol::commandWords)
        QTest::newRow(word) << QString::fromLatin1(word);
}

void ServerCommandSetTest::vocabularyWord()
{
    QFETCH(QString, word);
    QVERIFY2(sentWords.contains(word), "no client operation sends it");
    QVERIFY2(servedWords.contains(word), "the engine has no handler for it");
}

void ServerCommandSetTest::noWordOutsideTheVocabulary_data()
{
    QTest::addColumn<QSet<QString>>("words");
    QTest::newRow("sent by the client") << sentWords;
    QTest::newRow("served by the engine") << servedWords;
}

void ServerCommandSetTest::noWordOutsideTheVocabulary()
{
    QFETCH(QSet<QString>, words);
    QVERIFY(!words.isEmpty());
    QStringList strays = (words - vocabulary).values();
    strays.sort();
    QCOMPARE(strays, QStringList());
}

void ServerCommandSetTest::everyWordHasAHandler()
{
    // Each word reaches its own handler: none answers "unknown command".
    servertest::TestServer server;
    auto engine = server.engine();
    servertest::engineLogin(*engine, "token", servertest::adminUser, servertest::adminPassword);
    for (const QString &word : nuvserver::ServerEngine::commandWords()) {
        if (word == QLatin1String("CFCLOSESESSION"))
            continue;
        const nuvMQClassifyMessage reply = engine->handle(servertest::request(word), "token");
        QVERIFY2(!reply.errorText.contains("unknown command"), qPrintable(word));
        QVERIFY2(reply.command == "OK" || reply.errorText.startsWith(word + ": "),
                 qPrintable(word + " -> " + reply.errorText));
    }
}

QTEST_GUILESS_MAIN(ServerCommandSetTest)
#include "tst_servercommandset.moc"
