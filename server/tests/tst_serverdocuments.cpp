// SPDX-License-Identifier: Apache-2.0
// Object ids, classification, document data, history and revisions, links,
// the trash, archive moves, counts, temporary classifications and deadlines.

#include "servertestsupport.h"

#include <QtTest>

using namespace servertest;

namespace {
QString value(const QString &field, const QString &text)
{
    return joined({ field, text });
}

// A database with document types, a status, an attribute with a value list,
// a folder and a second archive, ready for classification.
ClientPtr preparedAdmin(TestServer &server)
{
    ClientPtr admin = server.admin();
    if (!admin->saveDocTypes({ joined({ "Invoice", "Incoming invoices" }), "Letter" }, {})
        || !admin->saveStatusTypes({ "open", "paid" }, {})
        || !admin->addDynAttribute("customer", "Customer", false)
        || !admin->modifyWerteListe(1, { "ACME", "Globex" })
        || !admin->saveFolderStructure("1", { joined({ "Inbox", "", "0", "", "", "INBOX" }) }, {})
        || !admin->insertMandant("Second", "the second tenant", QByteArray()))
        qFatal("cannot prepare the database: %s", qPrintable(admin->errorString()));
    return admin;
}
} // namespace

class ServerDocumentsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void objectIdsAreUnique();
    void classifyCreatesThenRevises();
    void classificationValuesAreChecked_data();
    void classificationValuesAreChecked();
    void mandatoryAttributes();
    void newClassifyTakesAnIssuedId_data();
    void newClassifyTakesAnIssuedId();
    void multipleClassify();
    void documentDataSelectors_data();
    void documentDataSelectors();
    void documentDataSelectorMustNameAField_data();
    void documentDataSelectorMustNameAField();
    void documentListsByIdsAndConditions_data();
    void documentListsByIdsAndConditions();
    void counts_data();
    void counts();
    void trashAndArchiveMoves();
    void linksGoBothWays();
    void remarksDatesAndFields();
    void fullTextIndex();
    void temporaryClassifications();
    void deadlines();
    void deadlineSelections_data();
    void deadlineSelections();
    void deadlineRecordsAreChecked_data();
    void deadlineRecordsAreChecked();
};

void ServerDocumentsTest::objectIdsAreUnique()
{
    TestServer server;
    ClientPtr first = server.admin();
    ClientPtr second = server.admin();
    QString a = "ignored";
    QString b;
    QString c;
    QVERIFY(first->getNextOid(a));
    QVERIFY(second->getNextOid(b));
    QVERIFY(first->getNextOid(c));
    QCOMPARE(QStringList({ a, b, c }), QStringList({ "1", "2", "3" }));
}

void ServerDocumentsTest::classifyCreatesThenRevises()
{
    TestServer server;
    ClientPtr admin = preparedAdmin(server);
    QString id;
    QVERIFY(admin->getNextOid(id));
    QString doc = id;
    QVERIFY2(admin->classify(doc,
                             { value("title", "Invoice 17"), value("doctype", "Invoice"),
                               value("customer", "ACME") }),
             qPrintable(admin->errorString()));
    QCOMPARE(doc, id);
    QVERIFY(admin->classify(doc, { value("status", "paid"), value("customer", "") }));
    QCOMPARE(admin->getDocumentData(doc, "*"),
             QStringList({ value("title", "Invoice 17"), value("doctype", "Invoice"),
                           value("status", "paid") }));
    const QStringList revisions = getRevisionen(admin.get(), doc);
    QCOMPARE(revisions.size(), 2);
    QCOMPARE(fieldsOf(revisions.at(0)).at(0), QString("1"));
    QCOMPARE(fieldsOf(revisions.at(1)).at(3), QString("status,customer"));
    QCOMPARE(fieldsOf(revisions.at(1)).at(2), QString("admin"));
    QStringList history;
    QVERIFY(admin->getDocHistory(doc, history));
    QCOMPARE(history.size(), 3);
    QStringList actions;
    for (const QString &entry : history)
        actions.append(fieldsOf(entry).at(2));
    QCOMPARE(actions, QStringList({ "created", "classified", "classified" }));
    QCOMPARE(fieldsOf(history.last()).at(3), QString("status=paid, customer="));

    // An empty id makes a new document.
    QString fresh;
    QVERIFY(admin->classify(fresh, { value("title", "Letter") }));
    QCOMPARE(fresh, QString("2"));
}

void ServerDocumentsTest::classificationValuesAreChecked_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QString>("error");
    QTest::newRow("unknown field")
        << value("colour", "red") << "CFDOCCLASSIFY: there is no field 'colour'";
    QTest::newRow("unknown document type")
        << value("doctype", "Memo") << "CFDOCCLASSIFY: there is no document type 'Memo'";
    QTest::newRow("unknown status")
        << value("status", "lost") << "CFDOCCLASSIFY: there is no status type 'lost'";
    QTest::newRow("unknown folder")
        << value("folder", "NOPE") << "CFDOCCLASSIFY: there is no folder 'NOPE'";
    QTest::newRow("bad date") << value(
        "date",
        "17.3.2024") << "CFDOCCLASSIFY: the date must be written yyyy-MM-dd, not '17.3.2024'";
    QTest::newRow("value outside the list")
        << value("customer", "Initech")
        << "CFDOCCLASSIFY: 'Initech' is not in the value list of customer";
    QTest::newRow("entry without separator")
        << "title"
        << "CFDOCCLASSIFY: 'title' is no value entry field␟value";
}

void ServerDocumentsTest::classificationValuesAreChecked()
{
    QFETCH(QString, entry);
    QFETCH(QString, error);
    TestServer server;
    ClientPtr admin = preparedAdmin(server);
    QString doc;
    QVERIFY(!admin->classify(doc, { value("title", "half"), entry }));
    QCOMPARE(admin->errorString(), error);
    QCOMPARE(doc, QString());
    // Nothing was written: no document, no object id used up by the failure.
    QCOMPARE(admin->getDocumentCount(QString(), true, true), 0);
    QString next;
    QVERIFY(admin->getNextOid(next));
    QCOMPARE(next, QString("1"));
}

void ServerDocumentsTest::mandatoryAttributes()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QVERIFY(admin->addDynAttribute("project", "Project", true));
    QString doc;
    QVERIFY(!admin->classify(doc, { value("title", "x") }));
    QVERIFY(
        admin->errorString().endsWith("the mandatory field project of document 1 has no value"));
    QVERIFY(admin->classify(doc, { value("project", "Apollo") }));
    QVERIFY(!admin->classify(doc, { value("project", "") }));
    QCOMPARE(admin->getDocumentData(doc, "project"), QStringList { "Apollo" });
}

void ServerDocumentsTest::newClassifyTakesAnIssuedId_data()
{
    QTest::addColumn<bool>("withFolder");
    QTest::newRow("without folder") << false;
    QTest::newRow("with folder") << true;
}

void ServerDocumentsTest::newClassifyTakesAnIssuedId()
{
    QFETCH(bool, withFolder);
    TestServer server;
    ClientPtr admin = preparedAdmin(server);
    auto create = [&](qint64 id) {
        return withFolder ? admin->newClassify(id, "Letter", "Hello", "INBOX")
                          : admin->newClassify(id, "Letter", "Hello");
    };
    QVERIFY(!create(5));
    QVERIFY(admin->errorString().endsWith("5 is no object id handed out by CFGETNEXTOID"));
    QString id;
    QVERIFY(admin->getNextOid(id));
    QVERIFY2(create(id.toLongLong()), qPrintable(admin->errorString()));
    QVERIFY(!create(id.toLongLong()));
    QVERIFY(admin->errorString().endsWith("document 1 exists already"));
    QCOMPARE(admin->getDocumentData(id, "folder"),
             withFolder ? QStringList { "INBOX" } : QStringList());
    QCOMPARE(admin->getDocumentData(id, "doctype"), QStringList { "Letter" });
}

void ServerDocumentsTest::multipleClassify()
{
    TestServer server;
    ClientPtr admin = preparedAdmin(server);
    QString a;
    QString b;
    QVERIFY(admin->classify(a, { value("title", "A") }));
    QVERIFY(admin->classify(b, { value("title", "B") }));
    QString both = joined({ a, b });
    QVERIFY(admin->multipleClassify(both, { value("status", "open") }));
    QCOMPARE(both, joined({ a, b }));
    QCOMPARE(admin->getDocumentCount("status=open", true, false), 2);
    QString withUnknown = joined({ a, "99" });
    QVERIFY(!admin->multipleClassify(withUnknown, { value("status", "paid") }));
    QCOMPARE(admin->getDocumentCount("status=paid", true, false), 0);
}

void ServerDocumentsTest::documentDataSelectors_data()
{
    QTest::addColumn<QString>("selector");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("all values") << ""
                                << QStringList({ value("title", "T"), value("date", "2024-03-05"),
                                                 value("customer", "Globex") });
    QTest::newRow("star") << "*"
                          << QStringList({ value("title", "T"), value("date", "2024-03-05"),
                                           value("customer", "Globex") });
    QTest::newRow("one built-in field") << "date" << QStringList { "2024-03-05" };
    QTest::newRow("one attribute") << "customer" << QStringList { "Globex" };
    QTest::newRow("a field without value") << "remark" << QStringList();
}

void ServerDocumentsTest::documentDataSelectors()
{
    QFETCH(QString, selector);
    QFETCH(QStringList, expected);
    TestServer server;
    ClientPtr admin = preparedAdmin(server);
    QString doc;
    QVERIFY(admin->classify(
        doc, { value("title", "T"), value("date", "2024-03-05"), value("customer", "Globex") }));
    QCOMPARE(admin->getDocumentData(doc, selector), expected);
}

void ServerDocumentsTest::documentDataSelectorMustNameAField_data()
{
    QTest::addColumn<QString>("selector");
    QTest::addColumn<QString>("error");
    QTest::newRow("unknown field") << "colour"
                                   << "CFDOCINFO: there is no field 'colour'";
    QTest::newRow("attribute spelt differently") << "customers"
                                                 << "CFDOCINFO: there is no field 'customers'";
}

void ServerDocumentsTest::documentDataSelectorMustNameAField()
{
    QFETCH(QString, selector);
    QFETCH(QString, error);
    TestServer server;
    ClientPtr admin = preparedAdmin(server);
    QString doc;
    QVERIFY(admin->classify(doc, { value("title", "T"), value("customer", "Globex") }));
    QCOMPARE(admin->getDocumentData(doc, selector), QStringList());
    QCOMPARE(admin->errorString(), error);
}

void ServerDocumentsTest::documentListsByIdsAndConditions_data()
{
    QTest::addColumn<QStringList>("request");
    QTest::addColumn<QStringList>("titles");
    QTest::newRow("ids") << QStringList { "2", "1" } << QStringList({ "Beta", "Alpha" });
    QTest::newRow("nothing: the archive")
        << QStringList() << QStringList({ "Alpha", "Beta", "Gamma" });
    QTest::newRow("equal") << QStringList { "customer=ACME" } << QStringList({ "Alpha", "Gamma" });
    QTest::newRow("two conditions")
        << QStringList { "customer=ACME", "title~AMM" } << QStringList { "Gamma" };
    QTest::newRow("date range") << QStringList { "date>=2024-02-01", "date<2024-04-01" }
                                << QStringList { "Beta" };
    QTest::newRow("by id") << QStringList { "id>1" } << QStringList({ "Beta", "Gamma" });
}

void ServerDocumentsTest::documentListsByIdsAndConditions()
{
    QFETCH(QStringList, request);
    QFETCH(QStringList, titles);
    TestServer server;
    ClientPtr admin = preparedAdmin(server);
    const QList<QStringList> documents {
        { value("title", "Alpha"), value("customer", "ACME"), value("date", "2024-01-10") },
        { value("title", "Beta"), value("customer", "Globex"), value("date", "2024-03-05") },
        { value("title", "Gamma"), value("customer", "ACME"), value("date", "2024-05-01") },
    };
    for (const QStringList &values : documents) {
        QString doc;
        QVERIFY(admin->classify(doc, values));
    }
    QStringList found;
    for (const QString &record : admin->getDocuments(request)) {
        const QStringList fields = fieldsOf(record);
        QCOMPARE(fields.size(), 14);
        QCOMPARE(fields.at(1), QString("Default"));
        found.append(fields.at(5));
    }
    QCOMPARE(found, titles);
}

void ServerDocumentsTest::counts_data()
{
    QTest::addColumn<QString>("query");
    QTest::addColumn<bool>("withDeleted");
    QTest::addColumn<bool>("ignoreArchive");
    QTest::addColumn<qint64>("documents");
    QTest::newRow("current archive with the trash") << "" << true << false << qint64(3);
    QTest::newRow("NODELETED") << "" << false << false << qint64(2);
    QTest::newRow("IGNOREARCHIVE") << "" << true << true << qint64(4);
    QTest::newRow("NODELETED and IGNOREARCHIVE") << "" << false << true << qint64(3);
    QTest::newRow("with a query") << "doctype=Invoice" << true << true << qint64(2);
}

void ServerDocumentsTest::counts()
{
    QFETCH(QString, query);
    QFETCH(bool, withDeleted);
    QFETCH(bool, ignoreArchive);
    QFETCH(qint64, documents);
    TestServer server;
    ClientPtr admin = preparedAdmin(server);
    QStringList ids;
    for (const char *type : { "Invoice", "Letter", "Letter", "Invoice" }) {
        QString doc;
        QVERIFY(admin->classify(doc, { value("doctype", type) }));
        ids.append(doc);
    }
    QVERIFY(admin->moveDocToArchive(ids.at(3).toLongLong(), 2));
    QVERIFY(admin->moveDocumentsToTrash({ ids.at(2) }));
    QVERIFY(admin->classify(ids[0], { value("title", "second revision") }));
    QCOMPARE(admin->getDocumentCount(query, withDeleted, ignoreArchive), documents);
    // Classifications: every revision, or one per document without history
    // (the trashed one not counted).
    QCOMPARE(admin->getClassifyCount(QString(), false), qint64(3));
    QCOMPARE(admin->getClassifyCount(QString(), true), qint64(2));
}

void ServerDocumentsTest::trashAndArchiveMoves()
{
    TestServer server;
    ClientPtr admin = preparedAdmin(server);
    QString doc;
    QVERIFY(admin->classify(doc, { value("title", "Old") }));
    QVERIFY(admin->moveDocumentsToTrash({ doc }));
    QCOMPARE(fieldsOf(admin->getDocumentData(doc, "META").value(0)).value(9), QString("1"));
    QString target = doc;
    QVERIFY(!admin->classify(target, { value("title", "New") }));
    QVERIFY(admin->errorString().endsWith("is in the trash"));
    QVERIFY(admin->removeDocumentsFromTrash({ doc }));
    QVERIFY(admin->moveDocToArchive(doc.toLongLong(), 2));
    QCOMPARE(fieldsOf(admin->getDocumentData(doc, "META").value(0)).value(1), QString("Second"));
    QVERIFY(!admin->moveDocToArchive(doc.toLongLong(), 9));
    QCOMPARE(admin->errorString(), QString("CFDOCSTOARCHIVE: there is no archive '9'"));
    QStringList history;
    QVERIFY(admin->getDocHistory(doc, history));
    QStringList actions;
    for (const QString &entry : history)
        actions.append(fieldsOf(entry).at(2));
    QCOMPARE(actions, QStringList({ "created", "classified", "trashed", "restored", "moved" }));
    QCOMPARE(fieldsOf(history.last()).at(3), QString("Default -> Second"));
    QVERIFY(!admin->moveDocumentsToTrash({ "77" }));
    QCOMPARE(admin->errorString(), QString("CFDOCSTOTRASH: document 77 does not exist"));
}

void ServerDocumentsTest::linksGoBothWays()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QStringList ids;
    for (int i = 0; i < 3; ++i) {
        QString doc;
        QVERIFY(admin->classify(doc, {}));
        ids.append(doc);
    }
    QVERIFY(admin->addLinkedDocuments(ids.at(0), { ids.at(1), ids.at(2) }));
    QCOMPARE(admin->readLinkedDocuments(ids.at(0)), QStringList({ ids.at(1), ids.at(2) }));
    QCOMPARE(admin->readLinkedDocuments(ids.at(2)), QStringList { ids.at(0) });
    QVERIFY(admin->removeLinkedDocuments(ids.at(1), { ids.at(0) }));
    QCOMPARE(admin->readLinkedDocuments(ids.at(0)), QStringList { ids.at(2) });
    QVERIFY(!admin->addLinkedDocuments(ids.at(0), { ids.at(0) }));
    QVERIFY(admin->errorString().endsWith("cannot be linked with itself"));
}

void ServerDocumentsTest::remarksDatesAndFields()
{
    TestServer server;
    ClientPtr admin = preparedAdmin(server);
    QCOMPARE(admin->getMinMaxDate(), QStringList());
    for (const QStringList &values :
         QList<QStringList> { { value("remark", "urgent"), value("date", "2024-06-01") },
                              { value("remark", "check"), value("date", "2023-12-24") },
                              { value("remark", "urgent") } }) {
        QString doc;
        QVERIFY(admin->classify(doc, values));
    }
    QCOMPARE(admin->getBemerkungen(), QStringList({ "check", "urgent" }));
    QCOMPARE(admin->getMinMaxDate(), QStringList({ "2023-12-24", "2024-06-01" }));
    const QStringList all = admin->getClassificationFields(true);
    QCOMPARE(all.size(), 7);
    QCOMPARE(all.first(), joined({ "title", "Title", "builtin", "false", "" }));
    QCOMPARE(admin->getClassificationFields(false),
             QStringList { joined({ "customer", "Customer", "attribute", "false", "1" }) });
}

void ServerDocumentsTest::fullTextIndex()
{
    TestServer server;
    ClientPtr admin = preparedAdmin(server);
    QString doc;
    QVERIFY(
        admin->classify(doc, { value("title", "Quarterly Report"), value("customer", "Globex") }));
    QCOMPARE(admin->getDocumentCount("text=report", true, false), 1);
    QCOMPARE(admin->getDocumentCount("text=globex", true, false), 1);
    QCOMPARE(admin->getDocumentCount("text=missing", true, false), 0);
    QVERIFY(admin->recreateIndex());
    QStringList infos;
    QVERIFY(admin->getIndexerInfos(infos));
    QCOMPARE(infos.mid(0, 3), QStringList({ "documents=1", "words=3", "entries=3" }));
    QVERIFY(infos.at(3).startsWith("rebuilt=20"));
}

void ServerDocumentsTest::temporaryClassifications()
{
    TestServer server;
    ClientPtr admin = preparedAdmin(server);
    server.user("yuri");
    QString temp;
    QVERIFY(
        admin->classifyTemporary(temp, { value("customer", "ACME"), value("remark", "draft") }));
    QCOMPARE(temp, QString("1"));
    QVERIFY(admin->saveTempDocRollen(temp, { joined({ "yuri", "r" }) }));

    qint64 id = 0;
    QStringList values { "customer" };
    QStringList texts { "kept" };
    QCOMPARE(admin->getClassifyTemp(id, values, texts), 1);
    QCOMPARE(id, qint64(1));
    QCOMPARE(values, QStringList { value("customer", "ACME") });
    QCOMPARE(texts.size(), 3);
    QCOMPARE(texts.at(2), QString("admin"));

    QString oid;
    QVERIFY(admin->getNextOid(oid));
    QVERIFY2(admin->newClassifyTemp(oid.toLongLong(), "Invoice", "From a draft", 1),
             qPrintable(admin->errorString()));
    QCOMPARE(admin->getDocumentData(oid, "*"),
             QStringList({ value("title", "From a draft"), value("doctype", "Invoice"),
                           value("remark", "draft"), value("customer", "ACME") }));
    QStringList rights;
    QVERIFY(admin->getDocUsersAndRoles(oid, rights));
    QCOMPARE(rights, QStringList { joined({ "yuri", "r" }) });
    id = 1;
    QCOMPARE(admin->getClassifyTemp(id, values, texts), 0);

    QVERIFY(!admin->classifyTemporary(temp, {}));
    QCOMPARE(admin->errorString(),
             QString("CFDOCCLASSIFYTEMP: there is no temporary classification 1 of admin"));
    temp.clear();
    QVERIFY(admin->classifyTemporary(temp, {}));
    QCOMPARE(temp, QString("2"));
    QVERIFY(admin->deleteClassifyTemp(temp.toLongLong()));
    QVERIFY(!admin->deleteClassifyTemp(temp.toLongLong()));
    QCOMPARE(admin->errorString(),
             QString("CFDOCDELETECLASSIFYTEMP: there is no temporary classification %1 of admin")
                 .arg(temp));
}

void ServerDocumentsTest::deadlines()
{
    TestServer server;
    ClientPtr admin = server.admin();
    QString doc;
    QVERIFY(admin->classify(doc, {}));
    QVERIFY(admin->saveDeadLines({ joined({ "", doc, "2024-07-01", "admin", "pay", "open" }),
                                   joined({ "", doc, "2024-06-01 12:00:00", "", "remind", "" }) }));
    QCOMPARE(admin->getDeadLineForDocId(doc),
             QStringList({ joined({ "2", doc, "2024-06-01 12:00:00", "", "remind", "open" }),
                           joined({ "1", doc, "2024-07-01 00:00:00", "admin", "pay", "open" }) }));
    QVERIFY(admin->saveDeadLines({ joined({ "1", doc, "2024-07-01", "admin", "pay", "done" }),
                                   joined({ "2", doc, "", "", "", "delete" }) }));
    QCOMPARE(admin->getDeadLineForDocId(doc),
             QStringList { joined({ "1", doc, "2024-07-01 00:00:00", "admin", "pay", "done" }) });
    QVERIFY(!admin->saveDeadLines({ joined({ "", doc, "someday", "", "", "" }) }));
    QVERIFY(admin->errorString().contains("the due time must be a time"));
    QVERIFY(!admin->saveDeadLines({ joined({ "", doc, "2024-01-01", "nobody", "", "" }) }));
    QCOMPARE(admin->errorString(),
             QString("CFSAVEDEADLINES: 'nobody' is neither a user nor a role"));
}

void ServerDocumentsTest::deadlineSelections_data()
{
    QTest::addColumn<QStringList>("selection");
    QTest::addColumn<QStringList>("texts");
    QTest::newRow("everything") << QStringList() << QStringList({ "a", "b", "c" });
    QTest::newRow("open ones") << QStringList { "state=open" } << QStringList({ "a", "c" });
    QTest::newRow("due before") << QStringList { "due<2024-02-01" } << QStringList({ "a", "b" });
    QTest::newRow("assignee and state")
        << QStringList { "assignee=admin", "state=open" } << QStringList { "a" };
}

void ServerDocumentsTest::deadlineSelections()
{
    QFETCH(QStringList, selection);
    QFETCH(QStringList, texts);
    TestServer server;
    ClientPtr admin = server.admin();
    QString doc;
    QVERIFY(admin->classify(doc, {}));
    QVERIFY(admin->saveDeadLines({ joined({ "", doc, "2024-01-01", "admin", "a", "open" }),
                                   joined({ "", doc, "2024-01-15", "admin", "b", "done" }),
                                   joined({ "", doc, "2024-03-01", "", "c", "open" }) }));
    QStringList found;
    for (const QString &record : admin->getDeadLines(selection))
        found.append(fieldsOf(record).at(4));
    QCOMPARE(found, texts);
}

void ServerDocumentsTest::deadlineRecordsAreChecked_data()
{
    // Fields id, document ("%1": the document), due, assignee, text, state.
    QTest::addColumn<QStringList>("record");
    QTest::addColumn<QString>("error");
    QTest::newRow("delete without an id")
        << QStringList({ "", "%1", "", "", "", "delete" })
        << "CFSAVEDEADLINES: the deadline to delete (field 0) is missing";
    QTest::newRow("delete deadline 0")
        << QStringList({ "0", "%1", "", "", "", "delete" })
        << "CFSAVEDEADLINES: the deadline to delete (field 0) is missing";
    QTest::newRow("unknown assignee") << QStringList({ "", "%1", "2024-01-01", "nobody", "", "" })
                                      << "CFSAVEDEADLINES: 'nobody' is neither a user nor a role";
}

void ServerDocumentsTest::deadlineRecordsAreChecked()
{
    QFETCH(QStringList, record);
    QFETCH(QString, error);
    TestServer server;
    ClientPtr admin = server.admin();
    QString doc;
    QVERIFY(admin->classify(doc, {}));
    QVERIFY(admin->saveDeadLines({ joined({ "", doc, "2024-07-01", "admin", "pay", "open" }) }));
    const QStringList before = admin->getDeadLineForDocId(doc);
    record.replaceInStrings("%1", doc);
    QVERIFY(!admin->saveDeadLines({ joined(record) }));
    QCOMPARE(admin->errorString(), error);
    QCOMPARE(admin->getDeadLineForDocId(doc), before);
}

QTEST_GUILESS_MAIN(ServerDocumentsTest)
#include "tst_serverdocuments.moc"
