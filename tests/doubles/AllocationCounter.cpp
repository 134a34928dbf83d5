// SPDX-License-Identifier: Apache-2.0
#include "doubles/AllocationCounter.h"

#include <dlfcn.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

std::atomic<std::size_t> allocations{0};
std::atomic<std::size_t> smallestSize{0};  // of what is counted; above 0 OpenCV is left out

bool isFromOpenCv(const void* caller)
{
    Dl_info info{};
    return dladdr(caller, &info) != 0 && info.dli_fname != nullptr &&
           std::strstr(info.dli_fname, "libopencv") != nullptr;
}

void* allocate(std::size_t size, const void* caller)
{
    if (size >= smallestSize && (smallestSize == 0 || !isFromOpenCv(caller)))
        ++allocations;
    // NOLINTNEXTLINE(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory)
    if (void* memory = std::malloc(size == 0 ? 1 : size))
        return memory;
    throw std::bad_alloc();
}

}  // namespace

// Not inlined: the compiler must not see malloc behind one operator and free behind its partner.
// NOLINTBEGIN(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory)
[[gnu::noinline]] void* operator new(std::size_t size)
{
    return allocate(size, __builtin_return_address(0));
}
[[gnu::noinline]] void* operator new[](std::size_t size)
{
    return allocate(size, __builtin_return_address(0));
}
[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    std::free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory) noexcept
{
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}
// NOLINTEND(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory)

namespace vxtest {

AllocationCounter::AllocationCounter() : start_(allocations) {}

AllocationCounter::AllocationCounter(std::size_t smallest) : start_(allocations)
{
    smallestSize = smallest;
}

AllocationCounter::~AllocationCounter()
{
    smallestSize = 0;
}

std::size_t AllocationCounter::count() const
{
    return allocations - start_;
}

}  // namespace vxtest
