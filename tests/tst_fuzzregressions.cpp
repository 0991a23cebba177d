// SPDX-License-Identifier: Apache-2.0
// Replays the reply fuzzer's seeds and every input it has failed on, through
// the real plugin and the scripted transport, so that the ordinary test run
// keeps what fuzzing found fixed (see fuzz/replycase.h for the format).

#include "../fuzz/replycase.h"
#include "testsupport.h"

#include <QDir>
#include <QtTest>

using namespace testsupport;

class FuzzRegressionsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void foldersAreThere_data();
    void foldersAreThere();
    void replays_data();
    void replays();
};

namespace {

QDir inputFolder(const QString &folderName)
{
    return QDir(QStringLiteral(NUV_SOURCE_DIR "/fuzz/") + folderName);
}

QStringList inputFiles(const QString &folderName)
{
    const QDir dir = inputFolder(folderName);
    QStringList files;
    for (const QString &name : dir.entryList(QDir::Files, QDir::Name)) {
        if (name != QLatin1String("README.md")) // says what the folder is for
            files << dir.filePath(name);
    }
    return files;
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("cannot read %s", qPrintable(path));
    return file.readAll();
}

} // namespace

// A missing folder would make the replay below run no rows without a word:
// the seeds and the kept failures must both be where the fuzzer puts them.
void FuzzRegressionsTest::foldersAreThere_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<int>("leastInputs");
    QTest::newRow("seeds") << QStringLiteral("corpus") << 10;
    QTest::newRow("kept failures") << QStringLiteral("regressions") << 0;
}

void FuzzRegressionsTest::foldersAreThere()
{
    QFETCH(QString, folder);
    QFETCH(int, leastInputs);
    QVERIFY2(inputFolder(folder).exists(), qPrintable(inputFolder(folder).path()));
    QVERIFY(inputFiles(folder).size() >= leastInputs);
}

void FuzzRegressionsTest::replays_data()
{
    QTest::addColumn<QString>("path");
    for (const char *folder : { "corpus", "regressions" }) {
        for (const QString &path : inputFiles(folder))
            QTest::newRow(qPrintable(QString("%1/%2").arg(folder, QFileInfo(path).fileName())))
                << path;
    }
}

void FuzzRegressionsTest::replays()
{
    QFETCH(QString, path);
    const replycase::Case input = replycase::fromInput(contents(path));
    if (input.operation < 0) {
        QVERIFY(replycase::roundTripHolds(input.text));
        return;
    }
    QVERIFY(input.operation < alloperations::operations().size());

    ClientPtr client = loggedInClient();
    replycase::play(input, client.get(), scripted());

    // Whatever the reply did to the operation, the client must still serve
    // the next command: nothing left locked, nothing half-written.
    scripted()->reset();
    answer(Reply("OK").dataList({ "alive" }));
    QCOMPARE(client->getShares(), QStringList { "alive" });
    QCOMPARE(lastRequest().command, QString("CFGETSHARES"));
}

QTEST_GUILESS_MAIN(FuzzRegressionsTest)
#include "tst_fuzzregressions.moc"
