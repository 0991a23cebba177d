// SPDX-License-Identifier: Apache-2.0
#include "app.h"

#include "call.h"
#include "describe.h"
#include "init.h"
#include "installlayout.h"
#include "options.h"
#include "output.h"
#include "pluginclient.h"
#include "scriptrunner.h"

namespace nuvcli {

namespace {

int usageError(Console &console, const QString &text)
{
    console.err << "nuvclassify: " << text << "\nTry 'nuvclassify --help' or 'nuvclassify list'.\n";
    console.err.flush();
    return ExitUsage;
}

void reportFailure(Console &console, const CallRecord &record)
{
    console.err << "nuvclassify: " << record.operation->name << ": " << record.error << '\n';
    console.err.flush();
}

int runCall(const Options &options, Console &console)
{
    PreparedCall call;
    QString error;
    if (!prepareCall(options.words, &call, &error))
        return usageError(console, error);

    Printer printer(console.out, options.json);
    PluginClient client(options, console, printer);
    if (!client.open(&error)) {
        console.err << "nuvclassify: " << error << '\n';
        return ExitSetup;
    }
    const CallRecord record = client.run(call);
    printer.call(record);
    if (!record.ok)
        reportFailure(console, record);
    return record.exitStatus;
}

} // namespace

int run(const QStringList &arguments, Console &console)
{
    Options options;
    QString error;
    if (!parseOptions(arguments, console.environment, &options, &error))
        return usageError(console, error);

    const QString command = options.words.value(0);
    if (options.version) {
        console.out << "nuvclassify " << nuvlayout::version() << '\n';
        return ExitOk;
    }
    if (options.help || (command.isEmpty() && options.scriptFile.isEmpty())) {
        printUsage(options.help ? console.out : console.err);
        return options.help ? ExitOk : ExitUsage;
    }
    if (command == QLatin1String("list")) {
        if (options.words.size() > 1)
            return usageError(console, QStringLiteral("list takes no arguments"));
        printOperationList(console.out, options.json);
        return ExitOk;
    }
    if (command == QLatin1String("help")) {
        if (options.words.size() == 1) {
            printUsage(console.out);
            return ExitOk;
        }
        if (options.words.size() > 2)
            return usageError(console, QStringLiteral("help takes one operation name"));
        if (!printOperationHelp(console.out, options.words.at(1), options.json)) {
            resolveOperation(options.words.at(1), 0, &error);
            return usageError(console, error);
        }
        return ExitOk;
    }
    if (command == QLatin1String("init"))
        return runInit(options, console);
    if (!options.scriptFile.isEmpty()) {
        if (!options.words.isEmpty())
            return usageError(console,
                              QStringLiteral("give either an operation or --script, not both"));
        return runScript(options, console);
    }
    return runCall(options, console);
}

} // namespace nuvcli
