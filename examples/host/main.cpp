// A minimal host: loads the classify plugin, logs in, lists the archives,
// classifies a new document and reads it back.
//
//   example-host DATABASE USER PASSWORD            (embedded transport)
//   example-host --broker HOST PORT USER PASSWORD  (STOMP transport)

#include <QCoreApplication>
#include <QPluginLoader>
#include <QTextStream>

#include <classifyinterface.h>
#include <memory>

// Receives the client's signals. A reload request arrives while the
// client holds its lock, so the reaction runs queued, after the operation
// that brought it has returned.
class Host : public QObject
{
    Q_OBJECT

public:
    explicit Host(ClassifyInterface *client)
        : client(client)
    { }

public Q_SLOTS:
    void onServerRequest(const QString &request)
    {
        QTextStream(stdout) << "server asks: " << request << "\n";
        if (request == QLatin1String("DORELOADALL")) {
            QStringList archives;
            client->getArchives(archives); // safe: this slot runs queued
        }
    }
    void onDisconnected() { QTextStream(stderr) << "the server went away\n"; }

private:
    ClassifyInterface *client;
};

namespace {

int fail(const QString &what, const QString &why)
{
    QTextStream(stderr) << "example-host: " << what << ": " << why << "\n";
    return 1;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    const bool broker = !args.isEmpty() && args.first() == QLatin1String("--broker");
    if (broker)
        args.removeFirst();
    if (args.size() != (broker ? 4 : 3)) {
        QTextStream(stderr) << "usage: example-host DATABASE USER PASSWORD\n"
                               "       example-host --broker HOST PORT USER PASSWORD\n";
        return 2;
    }
    // The embedded transport takes the database in place of the host.
    const QString host = args.takeFirst();
    const int port = broker ? args.takeFirst().toInt() : 0;
    const QString user = args.at(0);
    const QString password = args.at(1);

    QPluginLoader loader(QStringLiteral(PLUGIN_FILE));
    auto *root = qobject_cast<ClassifyInterface *>(loader.instance());
    if (!root)
        return fail(QStringLiteral("cannot load the plugin"), loader.errorString());
    const QString transportDir
        = QString::fromUtf8(broker ? STOMP_TRANSPORT_DIR : EMBEDDED_TRANSPORT_DIR);
    std::unique_ptr<ClassifyInterface> client(root->createInstance(transportDir));
    if (!client)
        return fail(QStringLiteral("cannot create a client"), root->errorString());

    // By name: the plugin carries its own copy of the meta-objects.
    Host receiver(client.get());
    QObject::connect(client.get(), SIGNAL(serverRequest(QString)), &receiver,
                     SLOT(onServerRequest(QString)), Qt::QueuedConnection);
    QObject::connect(client.get(), SIGNAL(clientDisconnect()), &receiver, SLOT(onDisconnected()));

    if (!client->connectToNuvKESP(host, port, user, password))
        return fail(QStringLiteral("login"), client->errorString());

    QStringList archives;
    if (!client->getArchives(archives) || archives.isEmpty())
        return fail(QStringLiteral("getArchives"), client->errorString());
    QTextStream(stdout) << "archives: " << archives.join(QStringLiteral(", ")) << "\n";
    if (!client->setCurrentArchive(archives.first()))
        return fail(QStringLiteral("setCurrentArchive"), client->errorString());

    // Each value is FIELD, U+FEFF, VALUE; an empty id asks for a new document.
    const QChar separator(0xFEFF);
    QString docId;
    if (!client->classify(docId,
                          { QStringLiteral("title") + separator + QStringLiteral("Invoice 4711") }))
        return fail(QStringLiteral("classify"), client->errorString());
    const QStringList rows = client->getDocumentData(docId, QString());
    if (rows.isEmpty())
        return fail(QStringLiteral("getDocumentData"), client->errorString());
    QTextStream(stdout) << "document " << docId << ":\n";
    for (const QString &row : rows)
        QTextStream(stdout) << "  " << QString(row).replace(separator, QLatin1Char('=')) << "\n";

    app.processEvents(); // deliver what the server asked for meanwhile
    client->closeSession();
    return 0;
}

#include "main.moc"
