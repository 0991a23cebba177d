#ifndef NUVLAYOUT_INSTALLLAYOUT_H
#define NUVLAYOUT_INSTALLLAYOUT_H

#include <QString>

/*
 * Where a program of this project finds the classify plugin, the two
 * transports and the daemon, relative to its own location: in an installed
 * prefix (bin/ beside lib/.../nuvclassify/) or in the build tree. No
 * absolute path of the build is compiled in, so an installed program never
 * reaches into a build tree, and a copied prefix works where it lands.
 *
 * Needs a QCoreApplication (the paths follow its applicationDirPath()).
 */
namespace nuvlayout {

// The project version, e.g. "1.2.0".
QString version();

// The absolute path of libnuvclassifyclient.so for the running program.
QString classifyPluginFile();

// The directories holding libnuvactivemqclient.so: the STOMP transport and
// the transport that runs the server engine in-process.
QString stompTransportDirectory();
QString embeddedTransportDirectory();

// The absolute path of the nuvkesp-server program.
QString serverProgram();

} // namespace nuvlayout

#endif // NUVLAYOUT_INSTALLLAYOUT_H
