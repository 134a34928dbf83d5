// SPDX-License-Identifier: Apache-2.0
#include "bindings/c/FailingMemory.h"

#include <atomic>
#include <cstdlib>
#include <new>
#include <opencv2/core.hpp>

namespace {

std::atomic<long> blocks{0};
std::atomic<long> untilFailure{0};  // 0: there is enough
std::atomic<bool> failsOn{false};
std::atomic<bool> failed{false};

thread_local bool isOfMatrix = false;

bool failsNow()
{
    if (isOfMatrix || untilFailure == 0 || --untilFailure != 0)
        return false;
    if (failsOn)
        untilFailure = 1;
    failed = true;
    return true;
}

void* allocate(std::size_t size)
{
    // NOLINTNEXTLINE(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory)
    void* memory = failsNow() ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr)
        throw std::bad_alloc();
    ++blocks;
    return memory;
}

void release(void* memory)
{
    if (memory == nullptr)
        return;
    --blocks;
    std::free(memory);  // NOLINT(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory)
}

/// The image library's own, which is refused what operator new is.
class MatrixMemory : public cv::MatAllocator
{
public:
    cv::UMatData* allocate(int dimensions, const int* sizes, int type, void* data, std::size_t* steps,
                           cv::AccessFlag access, cv::UMatUsageFlags usage) const override
    {
        if (data == nullptr && failsNow())
            throw cv::Exception(cv::Error::StsNoMem, "no memory", "allocate", "", 0);
        // As a whole or not at all: the image library loses the samples where its note on them finds no memory.
        isOfMatrix = true;
        cv::UMatData* made =
            cv::Mat::getStdAllocator()->allocate(dimensions, sizes, type, data, steps, access, usage);
        isOfMatrix = false;
        return made;
    }
    bool allocate(cv::UMatData* data, cv::AccessFlag access, cv::UMatUsageFlags usage) const override
    {
        return cv::Mat::getStdAllocator()->allocate(data, access, usage);
    }
    void deallocate(cv::UMatData* data) const override { cv::Mat::getStdAllocator()->deallocate(data); }
};

}  // namespace

// Not inlined: the compiler must not see malloc behind one operator and free behind its partner.
[[gnu::noinline]] void* operator new(std::size_t size)
{
    return allocate(size);
}
[[gnu::noinline]] void* operator new[](std::size_t size)
{
    return allocate(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    release(memory);
}
[[gnu::noinline]] void operator delete[](void* memory) noexcept
{
    release(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept
{
    release(memory);
}
[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept
{
    release(memory);
}

namespace vxtest {

long liveBlocks()
{
    return blocks;
}

Shortage::Shortage(long which, Kind kind)
{
    static MatrixMemory matrices;
    cv::Mat::setDefaultAllocator(&matrices);
    failed = false;
    failsOn = kind == Kind::lasting;
    untilFailure = which;
}

bool Shortage::wasFelt() const
{
    return failed;
}

void Shortage::end()
{
    untilFailure = 0;
}

}  // namespace vxtest
