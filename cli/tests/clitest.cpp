// SPDX-License-Identifier: Apache-2.0
#include "clitest.h"

#include "app.h"
#include "console.h"

#include <QBuffer>
#include <QJsonDocument>
#include <QTextStream>

using namespace testsupport;

namespace clitest {

QList<QJsonObject> Outcome::jsonLines() const
{
    QList<QJsonObject> objects;
    for (const QString &line : out.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        objects.append(QJsonDocument::fromJson(line.toUtf8()).object());
    return objects;
}

QJsonObject Outcome::lastJson() const
{
    const QList<QJsonObject> objects = jsonLines();
    return objects.isEmpty() ? QJsonObject() : objects.last();
}

QStringList connectionOptions()
{
    return { QStringLiteral("--plugin"),        classifyPluginFile(),
             QStringLiteral("--transport-dir"), scriptedTransportDir(),
             QStringLiteral("--broker"),        QStringLiteral("localhost:61613"),
             QStringLiteral("--user"),          QStringLiteral("erika"),
             QStringLiteral("--password"),      QStringLiteral("geheim") };
}

Outcome run(const QStringList &arguments, const QMap<QString, QString> &environment,
            Terminal *terminal)
{
    Outcome outcome;
    QTextStream out(&outcome.out);
    QTextStream err(&outcome.err);
    QBuffer input;
    input.open(QIODevice::ReadOnly);
    nuvcli::Console console { out, err, QProcessEnvironment(), &input, false, nullptr };
    for (auto it = environment.begin(); it != environment.end(); ++it)
        console.environment.insert(it.key(), it.value());
    if (terminal) {
        console.inputIsTerminal = terminal->present;
        console.ask = [terminal](const QString &prompt, bool secret) {
            terminal->prompts.append({ prompt, secret });
            return terminal->answers.isEmpty() ? QString() : terminal->answers.takeFirst();
        };
    }
    outcome.status
        = nuvcli::run(QStringList { QStringLiteral("nuvclassify") } + arguments, console);
    out.flush();
    err.flush();
    return outcome;
}

Outcome call(const QStringList &words, const QStringList &options)
{
    return run(connectionOptions() + options + words);
}

void serve(std::function<nuvMQClassifyMessage(const nuvMQClassifyMessage &)> responder)
{
    scripted()->reset();
    scripted()->setResponder([responder](const nuvMQClassifyMessage &request) {
        if (request.command == QLatin1String("CFLOGIN"))
            return nuvMQClassifyMessage(Reply(QStringLiteral("OK"))
                                            .data({ QByteArrayLiteral("18.09-5") })
                                            .dataList({ QStringLiteral("editor") })
                                            .docId(QStringLiteral("Erika Muster")));
        return responder(request);
    });
}

void serve(const nuvMQClassifyMessage &reply)
{
    serve([reply](const nuvMQClassifyMessage &) { return reply; });
}

nuvMQClassifyMessage everythingReply()
{
    // Six fields per record: tenants read field 3, folders field 5.
    const QString record
        = joined({ QStringLiteral("r0"), QStringLiteral("r1"), QStringLiteral("r2"),
                   QStringLiteral("1"), QStringLiteral("r4"), QStringLiteral("1") });
    return Reply(QStringLiteral("OK"))
        .docId(QStringLiteral("1"))
        .dataList({ record })
        .data({ QByteArrayLiteral("x"), QByteArrayLiteral("y") });
}

QList<nuvMQClassifyMessage> requests()
{
    QList<nuvMQClassifyMessage> found;
    for (const ScriptedExchange &exchange : scripted()->exchanges())
        if (exchange.request.command != QLatin1String("CFLOGIN"))
            found.append(exchange.request);
    return found;
}

int loginCount()
{
    int count = 0;
    for (const ScriptedExchange &exchange : scripted()->exchanges())
        count += exchange.request.command == QLatin1String("CFLOGIN") ? 1 : 0;
    return count;
}

} // namespace clitest
