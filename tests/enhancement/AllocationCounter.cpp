#include "AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> allocations{0};

void* allocate(std::size_t size)
{
    ++allocations;
    if (void* memory = std::malloc(size == 0 ? 1 : size))  // NOLINT(cppcoreguidelines-no-malloc)
        return memory;
    throw std::bad_alloc();
}

}  // namespace

// NOLINTBEGIN(cppcoreguidelines-no-malloc)
void* operator new(std::size_t size)
{
    return allocate(size);
}
void* operator new[](std::size_t size)
{
    return allocate(size);
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}
// NOLINTEND(cppcoreguidelines-no-malloc)

namespace blocktest {

AllocationCounter::AllocationCounter() : start_(allocations) {}

std::size_t AllocationCounter::count() const
{
    return allocations - start_;
}

}  // namespace blocktest
