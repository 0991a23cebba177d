// SPDX-License-Identifier: Apache-2.0
// Compiled into the explorer's test in an AddressSanitizer build only.
//
// Qt's offscreen platform plugin, which the widget tests run on, never
// frees the screen it announces; what hangs from that screen is Qt's, not
// the explorer's.

extern "C" __attribute__((visibility("default"))) const char *__lsan_default_suppressions()
{
    return "leak:libqoffscreen.so\n"
           "leak:QScreen::QScreen\n"
           "leak:QPlatformScreen::QPlatformScreen\n"
           "leak:QWindowSystemInterface::handleScreenAdded\n";
}
