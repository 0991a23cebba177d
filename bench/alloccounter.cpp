// SPDX-License-Identifier: Apache-2.0
#include "alloccounter.h"

#include <atomic>
#include <cstddef>

// glibc's own entry points; defining malloc here interposes every module's
// calls, Qt's containers (which use malloc directly) included.
extern "C" void *__libc_malloc(std::size_t);
extern "C" void *__libc_calloc(std::size_t, std::size_t);
extern "C" void *__libc_realloc(void *, std::size_t);

namespace {
std::atomic<bool> counting { false };
std::atomic<std::uint64_t> allocations { 0 };

inline void count()
{
    if (counting.load(std::memory_order_relaxed))
        allocations.fetch_add(1, std::memory_order_relaxed);
}
} // namespace

extern "C" {
__attribute__((visibility("default"))) void *malloc(std::size_t size)
{
    count();
    return __libc_malloc(size);
}

__attribute__((visibility("default"))) void *calloc(std::size_t n, std::size_t size)
{
    count();
    return __libc_calloc(n, size);
}

__attribute__((visibility("default"))) void *realloc(void *p, std::size_t size)
{
    count();
    return __libc_realloc(p, size);
}
}

namespace alloccounter {
void start()
{
    allocations = 0;
    counting = true;
}

std::uint64_t stop()
{
    counting = false;
    return allocations.load();
}
} // namespace alloccounter
