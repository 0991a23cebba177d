// SPDX-License-Identifier: Apache-2.0
#include "scratchdatabase.h"

#include "dialect.h"

#include <QAtomicInt>
#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QUrl>

namespace testdatabase {

namespace {

QString postgresServer()
{
    static const QString url = [] {
        const QString given = qEnvironmentVariable("NUV_TEST_POSTGRES_URL");
        const QString dir = qEnvironmentVariable("NUV_TEST_POSTGRES_DIR");
        if (!given.isEmpty() || dir.isEmpty())
            return given;
        QFile file(dir + QStringLiteral("/postgres.env"));
        if (!file.open(QIODevice::ReadOnly))
            qFatal("no PostgreSQL server in %s (start it with scripts/postgres start)",
                   qPrintable(dir));
        while (!file.atEnd()) {
            const QString line = QString::fromUtf8(file.readLine()).trimmed();
            if (line.startsWith(QLatin1String("NUV_PG_URL=")))
                return line.mid(int(qstrlen("NUV_PG_URL=")));
        }
        qFatal("%s/postgres.env names no NUV_PG_URL", qPrintable(dir));
    }();
    return url;
}

} // namespace

bool onPostgres()
{
    return !postgresServer().isEmpty();
}

QVariant queryOnce(const QString &database, const QString &sql, bool mustSucceed)
{
    static QAtomicInt counter;
    const QString name = QStringLiteral("scratch-%1").arg(counter.fetchAndAddRelaxed(1));
    QVariant result;
    {
        QString error;
        QSqlDatabase db = nuvserver::openDatabase(
            nuvserver::DatabaseLocation::parse(database, &error), name, 10000, &error);
        if (!db.isValid())
            qFatal("cannot open %s: %s", qPrintable(database), qPrintable(error));
        QSqlQuery query(db);
        if (!query.exec(sql)) {
            if (mustSucceed)
                qFatal("%s: %s", qPrintable(sql), qPrintable(query.lastError().text()));
        } else if (query.next()) {
            result = query.value(0);
        }
        query.finish();
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
    return result;
}

ScratchDatabase::ScratchDatabase(const QString &sqliteFile)
{
    current = onPostgres() ? createPostgresDatabase() : sqliteFile;
}

ScratchDatabase::~ScratchDatabase()
{
    for (const QString &name : qAsConst(made))
        queryOnce(postgresServer(),
                  QStringLiteral("DROP DATABASE IF EXISTS %1 WITH (FORCE)").arg(name), false);
}

QString ScratchDatabase::createPostgresDatabase()
{
    // Named so that leftovers of an aborted run are recognisable.
    static QAtomicInt counter;
    const QString name = QStringLiteral("nuvtest_%1_%2")
                             .arg(QCoreApplication::applicationPid())
                             .arg(counter.fetchAndAddRelaxed(1));
    queryOnce(postgresServer(), QStringLiteral("DROP DATABASE IF EXISTS %1").arg(name));
    queryOnce(postgresServer(),
              QStringLiteral("CREATE DATABASE %1 TEMPLATE template0 ENCODING 'UTF8'"
                             " LC_COLLATE 'C' LC_CTYPE 'C'")
                  .arg(name));
    made.append(name);
    QUrl url(postgresServer());
    url.setPath(QLatin1Char('/') + name);
    return url.toString();
}

QString ScratchDatabase::restore(const QString &backupFile)
{
    if (!isPostgres())
        return backupFile;
    const QString target = createPostgresDatabase();
    const QUrl url(target);
    QProcess restore;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("PGPASSWORD"), url.password());
    restore.setProcessEnvironment(environment);
    restore.start(QStringLiteral("pg_restore"),
                  { QStringLiteral("--no-owner"), QStringLiteral("--exit-on-error"),
                    QStringLiteral("--host=") + url.host(),
                    QStringLiteral("--port=%1").arg(url.port(5432)),
                    QStringLiteral("--username=") + url.userName(),
                    QStringLiteral("--dbname=") + url.path().mid(1), backupFile });
    if (!restore.waitForFinished(120000) || restore.exitCode() != 0)
        qFatal("pg_restore of %s failed: %s", qPrintable(backupFile),
               restore.readAllStandardError().constData());
    return target;
}

} // namespace testdatabase
