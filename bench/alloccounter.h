// SPDX-License-Identifier: Apache-2.0
#ifndef ALLOCCOUNTER_H
#define ALLOCCOUNTER_H

#include <cstdint>

// Counts heap allocations (malloc, calloc, realloc and operator new, which
// all reach malloc) made anywhere in the process, Qt and plugins included,
// while counting is switched on.
namespace alloccounter {
void start();
std::uint64_t stop(); // allocations since start()
} // namespace alloccounter

#endif // ALLOCCOUNTER_H
