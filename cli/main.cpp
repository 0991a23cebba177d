// SPDX-License-Identifier: Apache-2.0
// nuvclassify: calls the classify plugin's operations from the command line.

#include "app.h"

#include <QCoreApplication>
#include <QFile>
#include <QTextCodec>
#include <QTextStream>

#include <cstdio>

int main(int argc, char *argv[])
{
    // Arguments, output and scripts are UTF-8 whatever the locale says, so
    // that record texts survive a C locale (as in CI).
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("nuvclassify"));

    QTextStream out(stdout);
    QTextStream err(stderr);
    QFile input;
    input.open(stdin, QIODevice::ReadOnly);
    nuvcli::Console console = nuvcli::systemConsole(out, err, &input);
    const int status = nuvcli::run(QCoreApplication::arguments(), console);
    out.flush();
    err.flush();
    return status;
}
