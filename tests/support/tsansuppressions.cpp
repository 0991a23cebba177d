// SPDX-License-Identifier: Apache-2.0
// Compiled into every test of a ThreadSanitizer build, and only there.
//
// Qt is not built with ThreadSanitizer, so the order that its atomics, its
// QMutex and the reference counts of implicitly shared data give is
// invisible to it: a string freed inside Qt after its last reference dropped
// looks like a race with the thread that dropped the one before, and Qt's
// own threads (the test watchdog) seem to race with their own condition
// variables. What these libraries do through intercepted calls is therefore
// ignored; our instrumented code is checked as before.

extern "C" __attribute__((visibility("default"))) const char *__tsan_default_suppressions()
{
    return "called_from_lib:libQt5Core.so.5\n"
           "called_from_lib:libQt5Test.so.5\n"
           // Qt's event dispatcher: the wakeup eventfd is made by the
           // receiving thread and handed to posters under Qt's own locks.
           "called_from_lib:libglib-2.0.so.0\n"
           // Qt's host lookup thread, whose results Qt hands back itself.
           "called_from_lib:libQt5Network.so.5\n"
           // Qt's D-Bus thread, which QNetworkAccessManager starts to watch
           // the network manager service.
           "called_from_lib:libQt5DBus.so.5\n";
}
