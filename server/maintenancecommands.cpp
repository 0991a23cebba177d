// SPDX-License-Identifier: Apache-2.0
// Server information, the search index, scan input, backups, the server's
// file system, test mail and the LDAP and web pass-through commands.

#include "context.h"
#include "dialect.h"
#include "fileaccess.h"
#include "schema.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QSqlQuery>
#include <QStorageInfo>

namespace nuvserver {

namespace {

// CFSERVERVERSION: docId the protocol version, dataList details
void serverVersion(Context &ctx)
{
    ctx.setDocId(QLatin1String(nuvprotocol::clientVersion));
    ctx.setList({ QStringLiteral("nuvclassify reference server"),
                  QStringLiteral(NUV_SERVER_VERSION), databaseProduct(ctx.db),
                  QStringLiteral("schema %1").arg(schemaVersion) });
}

// CFGETINDEXINFOS: ["documents=N", "words=N", "entries=N", "rebuilt=TIME"]
void indexInfos(Context &ctx)
{
    ctx.setList({
        QStringLiteral("documents=")
            + scalar(ctx.db, QStringLiteral("SELECT count(DISTINCT doc_id) FROM search_index"))
                  .toString(),
        QStringLiteral("words=")
            + scalar(ctx.db, QStringLiteral("SELECT count(DISTINCT word) FROM search_index"))
                  .toString(),
        QStringLiteral("entries=")
            + scalar(ctx.db, QStringLiteral("SELECT count(*) FROM search_index")).toString(),
        QStringLiteral("rebuilt=")
            + scalar(ctx.db, QStringLiteral("SELECT value FROM meta WHERE key = 'index_rebuilt'"))
                  .toString(),
    });
}

// CFRECREATEINDEX: rebuilds the index of every document
void recreateIndex(Context &ctx)
{
    run(ctx.db, QStringLiteral("DELETE FROM search_index"));
    for (const QString &id : column(ctx.db, QStringLiteral("SELECT id FROM documents")))
        indexDocument(ctx.db, id.toLongLong());
    run(ctx.db, QStringLiteral("UPDATE meta SET value = ? WHERE key = 'index_rebuilt'"),
        { nowText() });
}

QString requireScanDirectory(Context &ctx)
{
    if (ctx.options.scanInputDirectory.isEmpty())
        fail(QStringLiteral("scan input is not configured on this server"));
    return ctx.options.scanInputDirectory;
}

// CFGETSCANINPUTLIST: the scan-input processes (subdirectories)
void scanInputList(Context &ctx)
{
    const QString root
        = resolveInside(requireScanDirectory(ctx), QString(), QStringLiteral("scan input"));
    QStringList names;
    for (const QFileInfo &entry :
         QDir(root).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
        if (liesInside(root, entry.absoluteFilePath()))
            names.append(entry.fileName());
    }
    ctx.setList(names);
}

// CFGETSCANINPUTIMAGE: docId process -> dataList file names, data contents
void scanInputImage(Context &ctx)
{
    const QString process = ctx.requireDocId(QStringLiteral("the process"));
    if (process.contains(QLatin1Char('/')))
        fail(QStringLiteral("the process '%1' must be a plain name").arg(process));
    const QString directory
        = resolveInside(requireScanDirectory(ctx), process, QStringLiteral("the process"));
    if (!QFileInfo(directory).isDir())
        fail(QStringLiteral("the process '%1' is no directory").arg(process));
    QStringList names;
    QList<QByteArray> contents;
    qint64 total = 0;
    for (const QFileInfo &entry : QDir(directory).entryInfoList(QDir::Files, QDir::Name)) {
        if (!liesInside(directory, entry.absoluteFilePath()))
            continue;
        total += entry.size();
        if (total > 256 * 1024 * 1024)
            fail(QStringLiteral("the images of '%1' exceed 256 MiB").arg(process));
        QFile file(entry.absoluteFilePath());
        if (!file.open(QIODevice::ReadOnly))
            fail(QStringLiteral("cannot read %1").arg(entry.fileName()));
        names.append(entry.fileName());
        contents.append(file.readAll());
    }
    ctx.setList(names);
    ctx.setData(contents);
}

QString requireBackupDirectory(Context &ctx)
{
    if (ctx.options.backupDirectory.isEmpty())
        fail(QStringLiteral("no backup directory is configured on this server"));
    if (!QDir().mkpath(ctx.options.backupDirectory))
        fail(QStringLiteral("the backup directory cannot be created"));
    return QDir(ctx.options.backupDirectory).absolutePath();
}

// CFDOBACKUP: a consistent copy of the database -> docId file name,
// dataList [path, size]
void backup(Context &ctx)
{
    const QDir directory(requireBackupDirectory(ctx));
    const QString stamp
        = QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-hhmmss-zzz"));
    const QString suffix = backupSuffix(ctx.db);
    QString name = QStringLiteral("nuvclassify-%1%2").arg(stamp, suffix);
    for (int i = 2; directory.exists(name); ++i)
        name = QStringLiteral("nuvclassify-%1-%2%3").arg(stamp).arg(i).arg(suffix);
    const QString path = directory.filePath(name);
    writeBackup(ctx.db, DatabaseLocation::parse(ctx.options.database, nullptr), path);
    ctx.setDocId(name);
    ctx.setList({ path, QString::number(QFileInfo(path).size()) });
}

// CFBACKUPUPDATE: checks the backup directory -> dataList its backups
void backupStatus(Context &ctx)
{
    const QDir directory(requireBackupDirectory(ctx));
    if (!QFileInfo(directory.absolutePath()).isWritable())
        fail(QStringLiteral("the backup directory is not writable"));
    ctx.setList(directory.entryList({ QStringLiteral("nuvclassify-*") + backupSuffix(ctx.db) },
                                    QDir::Files, QDir::Name));
}

// Locations of the file-system commands: "ROOT/relative/path", ROOT the
// last name of a configured root; "" names the roots themselves.
QString resolveLocation(Context &ctx, const QString &location, QString *root)
{
    if (ctx.options.fileSystemRoots.isEmpty())
        fail(QStringLiteral("no file-system roots are configured on this server"));
    if (QDir::isAbsolutePath(location))
        fail(QStringLiteral("the location '%1' must be a relative path").arg(location));
    const QString rootName = location.section(QLatin1Char('/'), 0, 0);
    for (const QString &candidate : ctx.options.fileSystemRoots) {
        if (QFileInfo(QDir::cleanPath(candidate)).fileName() == rootName) {
            *root = candidate;
            return resolveInside(candidate, location.section(QLatin1Char('/'), 1),
                                 QStringLiteral("the location"), location);
        }
    }
    fail(QStringLiteral("the location '%1' lies in no configured root").arg(location));
}

// CFFSLIST: docId location -> name␟d|f␟size␟modified entries
void listFileSystem(Context &ctx)
{
    const QString location = ctx.docId();
    QStringList entries;
    if (location.isEmpty() || location == QLatin1String("/")) {
        for (const QString &root : ctx.options.fileSystemRoots)
            entries.append(joinFields({ QFileInfo(QDir::cleanPath(root)).fileName(),
                                        QStringLiteral("d"), QString(), QString() }));
        if (entries.isEmpty())
            fail(QStringLiteral("no file-system roots are configured on this server"));
        ctx.setList(entries);
        return;
    }
    QString root;
    const QString path = resolveLocation(ctx, location, &root);
    if (!QFileInfo(path).isDir())
        fail(QStringLiteral("the location '%1' is no directory").arg(location));
    const auto infos = QDir(path).entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot,
                                                QDir::DirsFirst | QDir::Name);
    for (const QFileInfo &entry : infos) {
        if (!liesInside(root, entry.absoluteFilePath()))
            continue; // a link that leads outside is not shown
        entries.append(joinFields({ entry.fileName(),
                                    entry.isDir() ? QStringLiteral("d") : QStringLiteral("f"),
                                    entry.isDir() ? QString() : QString::number(entry.size()),
                                    timeText(entry.lastModified()) }));
    }
    ctx.setList(entries);
}

// CFFSCHECK: docId location -> ["d", bytes free, writable 1/0]
void checkFileSystem(Context &ctx)
{
    QString root;
    const QString path
        = resolveLocation(ctx, ctx.requireDocId(QStringLiteral("the location")), &root);
    const QFileInfo info(path);
    if (!info.isDir())
        fail(QStringLiteral("the location '%1' is no directory").arg(ctx.docId()));
    ctx.setList({ QStringLiteral("d"), QString::number(QStorageInfo(path).bytesAvailable()),
                  info.isWritable() ? QStringLiteral("1") : QStringLiteral("0") });
}

// CFTESTMAIL: docId address; the configured command gets the mail on its
// standard input
void testMail(Context &ctx)
{
    const QString address = ctx.requireDocId(QStringLiteral("the address"));
    if (!address.contains(QLatin1Char('@')) || address.size() > 254
        || std::any_of(address.begin(), address.end(),
                       [](QChar c) { return c.isSpace() || c.category() == QChar::Other_Control; }))
        fail(QStringLiteral("'%1' is no mail address").arg(address));
    if (ctx.options.mailCommand.isEmpty())
        fail(QStringLiteral("mail is not configured on this server"));
    QStringList arguments = QProcess::splitCommand(ctx.options.mailCommand);
    if (arguments.isEmpty())
        fail(QStringLiteral("the mail command names no program"));
    const QString program = arguments.takeFirst();
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForStarted(10000))
        fail(QStringLiteral("the mail command could not be started: ") + process.errorString());
    const QString mail = QStringLiteral("To: %1\nSubject: nuvclassify test mail\n"
                                        "Content-Type: text/plain; charset=UTF-8\n\n"
                                        "This test mail was sent by the nuvclassify server"
                                        " at the request of %2.\n")
                             .arg(address, ctx.login());
    process.write(mail.toUtf8());
    process.closeWriteChannel();
    if (!process.waitForFinished(ctx.options.mailTimeoutSeconds * 1000)) {
        process.kill();
        process.waitForFinished(1000);
        fail(QStringLiteral("the mail command did not finish in time"));
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        fail(QStringLiteral("the mail command failed (exit code %1): %2")
                 .arg(process.exitCode())
                 .arg(QString::fromLocal8Bit(process.readAllStandardError()).trimmed()));
    ctx.setList({ address });
}

// CFLDAPCOMMAND: docId inner command, data arguments
void ldapCommand(Context &ctx)
{
    const QString inner = ctx.requireDocId(QStringLiteral("the LDAP command"));
    if (ctx.options.ldapUrl.isEmpty())
        fail(QStringLiteral("LDAP is not configured on this server"));
    if (inner == QLatin1String("PING"))
        ctx.setList({ QStringLiteral("PONG") });
    else if (inner == QLatin1String("URL"))
        ctx.setList({ ctx.options.ldapUrl });
    else
        fail(QStringLiteral("unknown LDAP command '%1'").arg(inner));
}

// CFWEBCOMMAND: docId inner command, data arguments. PING answers PONG
// even without a configured web service.
void webCommand(Context &ctx)
{
    const QString inner = ctx.requireDocId(QStringLiteral("the web command"));
    const QList<QByteArray> arguments = ctx.request.getData();
    if (inner == QLatin1String("PING")) {
        ctx.setList({ QStringLiteral("PONG") });
        return;
    }
    if (ctx.options.webUrl.isEmpty())
        fail(QStringLiteral("the web service is not configured on this server"));
    if (inner == QLatin1String("URL")) {
        ctx.setList({ ctx.options.webUrl });
    } else if (inner == QLatin1String("ECHO")) {
        ctx.setList({ QString::number(arguments.size()) });
        ctx.setData(arguments);
    } else if (inner == QLatin1String("SHARELINK")) {
        const QString key = QString::fromUtf8(arguments.value(0));
        if (!exists(
                ctx.db,
                QStringLiteral("SELECT 1 FROM shares WHERE key = ? AND (owner_id = ? OR ? = 1)"),
                { key, ctx.user().userId, ctx.isAdmin() ? 1 : 0 }))
            fail(QStringLiteral("there is no share '%1'").arg(key));
        QString base = ctx.options.webUrl;
        while (base.endsWith(QLatin1Char('/')))
            base.chop(1);
        ctx.setList({ base + QStringLiteral("/share/") + key });
    } else {
        fail(QStringLiteral("unknown web command '%1'").arg(inner));
    }
}

} // namespace

QVector<CommandEntry> maintenanceCommands()
{
    return {
        { words::getServerVersion, serverVersion, Public | ReadOnly },
        { words::getIndexerInfos, indexInfos, ReadOnly },
        { words::recreateIndex, recreateIndex, Administrative | Writes | WholeDatabase },
        { words::getScanInputProcessList, scanInputList, ReadOnly },
        { words::getScanInputProcessImage, scanInputImage, ReadOnly },
        { words::doBackup, backup, Administrative | OutsideTransaction },
        { words::updateBackupConfig, backupStatus, Administrative | ReadOnly },
        { words::loadRemoteFS, listFileSystem, Administrative | ReadOnly },
        { words::checkFS, checkFileSystem, Administrative | ReadOnly },
        { words::testMail, testMail, Administrative | OutsideTransaction },
        { words::doLdapCommand, ldapCommand, OutsideTransaction },
        { words::doWebCommand, webCommand, OutsideTransaction },
    };
}

} // namespace nuvserver
