// SPDX-License-Identifier: Apache-2.0
// Server information, index, session, maintenance, pass-through and user
// data store commands.

#include "commandblocks.h"
#include "nuvclassifyclient.h"

using nuv::Command;
using nuv::fields;
using nuv::listFields;
namespace words = nuvprotocol::words;

// Server information and index

QString NuvClassifyClient::getServerVersion()
{
    return perform(Command(words::getServerVersion).unlocked(), {}, QString(), nuv::replyDocId);
}

bool NuvClassifyClient::getIndexerInfos(QStringList &infos)
{
    return perform(Command(words::getIndexerInfos), {}, false, nuv::assignDataList(infos));
}

QList<QByteArray> NuvClassifyClient::getScanInputProcessImage(const QString &process)
{
    return perform(Command(words::getScanInputProcessImage).unlocked(), fields(process),
                   QList<QByteArray>(),
                   [](const NuvKespClassifyBlock &reply) { return reply.data; });
}

QStringList NuvClassifyClient::getScanInputProcessList()
{
    return performForList(Command(words::getScanInputProcessList).unlocked());
}

QStringList NuvClassifyClient::getMinMaxDate()
{
    return performForList(Command(words::getMinMaxDate));
}

bool NuvClassifyClient::recreateIndex()
{
    return perform(Command(words::recreateIndex));
}

QStringList NuvClassifyClient::getChatUsers()
{
    return performForList(Command(words::getChatUsers));
}

// Session and maintenance

void NuvClassifyClient::updateLastModified()
{
    // A notice: whatever comes back, the caller learns nothing.
    perform(Command(words::updateLastModified).unlocked().testedBy(nuv::ReplyTest::None));
}

void NuvClassifyClient::setLastModified()
{
    perform(Command(words::setLastModified).unlocked().testedBy(nuv::ReplyTest::None));
}

bool NuvClassifyClient::closeSession()
{
    // Unlocked: the login calls it while it holds the operation lock.
    return perform(Command(words::closeSession).unlocked().expectingOk());
}

bool NuvClassifyClient::testMail(const QString &address)
{
    return perform(Command(words::testMail), fields(address));
}

bool NuvClassifyClient::doBackup()
{
    return perform(Command(words::doBackup));
}

bool NuvClassifyClient::updateBackupConfig()
{
    return perform(Command(words::updateBackupConfig));
}

bool NuvClassifyClient::checkFS(const QString &location)
{
    return perform(Command(words::checkFS), fields(location));
}

bool NuvClassifyClient::loadRemoteFS(const QString &location, QStringList &entries)
{
    // Appends: a caller that wants only the new listing passes an empty list.
    return perform(Command(words::loadRemoteFS), fields(location), false,
                   [&entries](const NuvKespClassifyBlock &reply) {
                       entries += reply.dataList;
                       return true;
                   });
}

void NuvClassifyClient::checkUpdate()
{
    // The signals go out under the operation lock: a slot connected directly
    // may only call operations that do not take it.
    perform(Command(words::checkUpdate), {}, false, [this](const NuvKespClassifyBlock &reply) {
        const QStringList requests = reply.dataList;
        for (const QString &request : requests)
            emit serverRequest(request);
        return true;
    });
}

// Pass-through commands

bool NuvClassifyClient::passThrough(const nuv::Command &command, const QString &innerCommand,
                                    const QList<QByteArray> &arguments,
                                    QList<QByteArray> &answerData, QList<QString> &answerStrings,
                                    QString &errorText)
{
    // The answer's lists reach the caller in both outcomes, so the reply is
    // judged here rather than by perform(). The error belongs to the inner
    // command: it goes to `errorText` only, never to the last error.
    return perform(command.testedBy(nuv::ReplyTest::None), fields(innerCommand, {}, arguments),
                   false, [&, test = command.test](const NuvKespClassifyBlock &reply) {
                       answerData = reply.data;
                       answerStrings = reply.dataList;
                       const bool passed = nuv::passes(test, reply.command);
                       errorText = passed ? QString() : reply.errorText;
                       return passed;
                   });
}

bool NuvClassifyClient::doLdapCommand(const QString &command, const QList<QByteArray> &arguments,
                                      QList<QByteArray> &answerData, QList<QString> &answerStrings,
                                      QString &errorText)
{
    return passThrough(Command(words::doLdapCommand).unlocked(), command, arguments, answerData,
                       answerStrings, errorText);
}

bool NuvClassifyClient::doWebCommand(const QString &command, const QList<QByteArray> &arguments,
                                     QList<QByteArray> &answerData, QList<QString> &answerStrings,
                                     QString &errorText)
{
    return passThrough(Command(words::doWebCommand).withTimeout(180), command, arguments,
                       answerData, answerStrings, errorText);
}

// User data store. An item's byte arrays travel as [second, first] in both
// directions, so what is saved and what is loaded line up.

namespace {
const Command loadUserDataCommand(words::loadUserData);
} // namespace

bool NuvClassifyClient::saveUserData(const QString &key1, const QString &key2,
                                     const QByteArray &first, QByteArray second, bool flag)
{
    return perform(Command(words::saveUserData),
                   fields(nuv::flagText(flag), { key1, key2 }, { second, first }));
}

bool NuvClassifyClient::deleteUserData(const QString &key1, const QString &key2)
{
    return perform(Command(words::deleteUserData), listFields({ key1, key2 }));
}

bool NuvClassifyClient::loadUserData(const QString &key1, const QString &key2, QByteArray &first,
                                     QByteArray &second)
{
    return perform(loadUserDataCommand, listFields({ key1, key2 }, { second }), false,
                   [&](const NuvKespClassifyBlock &reply) {
                       // The server owes two byte arrays; with fewer the
                       // caller's values stay as they were.
                       if (reply.data.size() < 2) {
                           setLastError(nuv::malformedReplyText(loadUserDataCommand.word));
                           return false;
                       }
                       second = reply.data.at(0);
                       first = reply.data.at(1);
                       return true;
                   });
}

bool NuvClassifyClient::loadUserData(const QString &key, QList<QString> &names,
                                     QList<QByteArray> &firsts, QList<QByteArray> &seconds)
{
    return perform(loadUserDataCommand, listFields({ key }, seconds), false,
                   [&](const NuvKespClassifyBlock &reply) {
                       // Names are appended to what the caller left in the
                       // list; the byte-array lists start afresh.
                       seconds.clear();
                       firsts.clear();
                       // An unpaired last byte array is ignored, and a
                       // name list shorter than the pairs gives empty names.
                       for (int i = 0; i + 1 < reply.data.size(); i += 2) {
                           names.append(reply.dataList.value(i / 2));
                           seconds.append(reply.data.at(i));
                           firsts.append(reply.data.at(i + 1));
                       }
                       return true;
                   });
}
