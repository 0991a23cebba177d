// SPDX-License-Identifier: Apache-2.0
// Writes the seed inputs of the reply fuzzer into the folder given as the
// only argument (the checked-in fuzz/corpus). Each seed is a well-formed
// reply to one operation, so the fuzzer starts from replies that get past
// the status test and into each operation's reading of the fields.

#include "protocolwords.h"
#include "replycase.h"

#include <QDir>
#include <QFile>

#include <cstdio>

namespace {

namespace status = nuvprotocol::status;

QString record(const QStringList &fields)
{
    return fields.join(nuvprotocol::recordSeparator);
}

int indexOf(const char *operationName)
{
    const QVector<alloperations::Operation> &operations = alloperations::operations();
    for (int i = 0; i < operations.size(); ++i) {
        if (qstrcmp(operations.at(i).name, operationName) == 0)
            return i;
    }
    qFatal("no operation %s", operationName);
}

nuvMQClassifyMessage reply(const char *statusWord)
{
    nuvMQClassifyMessage m;
    m.command = QLatin1String(statusWord);
    return m;
}

struct Seed
{
    const char *file;
    QByteArray input;
};

QList<Seed> seeds()
{
    const QString folderRecord = record({ "name", "parent", "kind", "7", "flags", "K1" });
    QList<Seed> list;
    const auto add
        = [&list](const char *file, const char *operation, const nuvMQClassifyMessage &m) {
              list.append({ file, replycase::inputFor(indexOf(operation), m) });
          };

    nuvMQClassifyMessage decoded = reply(status::ok);
    decoded.setDocId("d1");
    decoded.setDataList({ "a", "b" });
    decoded.setData({ "x", QByteArray() });
    QString wire;
    decoded.convertToBase64(wire);
    list.append({ "decode-wire-text", replycase::decoderInput(wire) });

    nuvMQClassifyMessage login = reply(status::ok);
    login.setDocId("Full Name");
    login.setDataList({ "role1", "role2" });
    login.setData({ nuvprotocol::clientVersion });
    login.setAvailablePlugins({ "head", "plugin1" });
    add("login", "connectToNuvKESP(QString,int,QString,QString)", login);
    login.setData({ "17.01-1" });
    add("login-other-version", "connectToNuvKESP(QString,int,QString,QString,QString)", login);
    nuvMQClassifyMessage expired = reply(status::error);
    expired.hasErrorText = true;
    expired.errorText = QLatin1String(nuvprotocol::expiredPassword);
    add("login-expired", "connectToNuvKESP(QString,int,QString,QString)", expired);

    nuvMQClassifyMessage clipboards = reply(status::ok);
    clipboards.setDataList({ "c1", "c2", "c3" });
    clipboards.setData({ QByteArray("ab\0cd", 5), QByteArray(), "" });
    add("clipboards", "readClipboards(QList<QPair<QString,QString>>&)", clipboards);
    add("clipboard-cards", "readClipboardCards(QString,QList<QString>&,QList<QString>&)",
        clipboards);

    nuvMQClassifyMessage tenants = reply(status::ok);
    tenants.setDocId(record({ "7", "", "8" }));
    tenants.setDataList({ folderRecord, record({ "t", "u", "v", "8" }) });
    tenants.setData({ "p7", "p8" });
    add("tenants", "getMandanten(QStringList&,QList<QByteArray>&)", tenants);
    add("folders", "getFolderStructure(QString,QStringList&,QList<QByteArray>&)", tenants);
    add("system-folders", "getSystemFolders(QStringList&,QList<QByteArray>&,bool)", tenants);

    nuvMQClassifyMessage temporary = reply(status::ok);
    temporary.setDocId("4294967296");
    temporary.setDataList({ "v1", "v2" });
    temporary.setAvailablePlugins({ "42", "t1" });
    add("classify-temp", "getClassifyTemp(qint64&,QStringList&,QStringList&)", temporary);

    nuvMQClassifyMessage userData = reply(status::ok);
    userData.setDataList({ "n1", "n2" });
    userData.setData({ "s1", "f1", "s2" });
    add("user-data-list",
        "loadUserData(QString,QList<QString>&,QList<QByteArray>&,QList<QByteArray>&)", userData);
    add("user-data-one", "loadUserData(QString,QString,QByteArray&,QByteArray&)", userData);

    nuvMQClassifyMessage updates = reply(status::ok);
    // The last entry empty but not null: the wire tells the two apart.
    updates.setDataList({ QLatin1String(nuvprotocol::notice::reloadAll),
                          QLatin1String(nuvprotocol::notice::systemUpdate), "" });
    updates.setUpdateRequested(true);
    updates.setUpdateString("marker");
    add("updates", "checkUpdate()", updates);

    nuvMQClassifyMessage web = reply(status::error);
    web.hasErrorText = true;
    web.errorText = "inner failure";
    web.setDataList({ "s" });
    web.setData({ "b" });
    add("web-command",
        "doWebCommand(QString,QList<QByteArray>,QList<QByteArray>&,QList<QString>&,QString&)", web);

    nuvMQClassifyMessage count = reply(status::ok);
    count.setDocId("9223372036854775807");
    add("document-count", "getDocumentCount(QString,bool,bool)", count);

    nuvMQClassifyMessage role = reply(status::ok);
    role.setDataList({ "private" });
    add("user-role", "getUserRole(QString&)", role);

    nuvMQClassifyMessage share = reply(status::ok);
    share.setDocId("s1");
    add("share", "addShare(QString,QStringList,QString,QDateTime,int)", share);
    return list;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    const QDir folder(QString::fromLocal8Bit(argv[1]));
    for (const Seed &seed : seeds()) {
        QFile file(folder.filePath(QLatin1String(seed.file)));
        if (!file.open(QIODevice::WriteOnly) || file.write(seed.input) != seed.input.size()) {
            std::fprintf(stderr, "cannot write %s\n", qPrintable(file.fileName()));
            return 1;
        }
    }
    return 0;
}
