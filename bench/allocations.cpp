// SPDX-License-Identifier: Apache-2.0
// Takes the place of the C library's allocation functions in its executable, and counts.
#include "allocations.h"

#include <atomic>
#include <cstddef>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
}

static std::atomic<uint64_t> allocated;

uint64_t bench::allocations()
{
    return allocated;
}

extern "C" void* malloc(size_t size)
{
    ++allocated;
    return __libc_malloc(size);
}

extern "C" void* calloc(size_t number, size_t size)
{
    ++allocated;
    return __libc_calloc(number, size);
}

extern "C" void* realloc(void* memory, size_t size)
{
    ++allocated;
    return __libc_realloc(memory, size);
}
