#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "enhancement/superresolution/SrFloat.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"
#include "enhancement/superresolution/TestBursts.h"

// Counts what the library allocates. The operators stand in for those of the whole process; calls from
// OpenCV, whose temporaries are its own affair, are told by the address that they return to.
namespace {

std::atomic<bool> counting{false};
std::atomic<std::size_t> largeAllocations{0};
std::atomic<std::size_t> largeSize{0};

bool isFromOpenCv(const void* caller)
{
    Dl_info info{};
    return dladdr(caller, &info) != 0 && info.dli_fname != nullptr &&
           std::string(info.dli_fname).find("libopencv") != std::string::npos;
}

void* allocate(std::size_t size, const void* caller)
{
    if (counting && size >= largeSize) {
        counting = false;  // the check allocates
        if (!isFromOpenCv(caller))
            ++largeAllocations;
        counting = true;
    }
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

namespace {

using namespace halvor::vx;
using namespace vxtest;

/// Follows the bytes that matrices hold, by wrapping OpenCV's own allocator.
class CountingMatAllocator : public cv::MatAllocator
{
public:
    cv::UMatData* allocate(int dims, const int* sizes, int type, void* data, size_t* step,
                           cv::AccessFlag flags, cv::UMatUsageFlags usage) const override
    {
        cv::UMatData* memory = inner_->allocate(dims, sizes, type, data, step, flags, usage);
        if (memory != nullptr) {
            memory->prevAllocator = memory->currAllocator = this;
            held_ += data == nullptr ? static_cast<std::ptrdiff_t>(memory->size) : 0;
        }
        return memory;
    }
    bool allocate(cv::UMatData* memory, cv::AccessFlag, cv::UMatUsageFlags) const override
    {
        return memory != nullptr;
    }
    void deallocate(cv::UMatData* memory) const override
    {
        if (memory == nullptr)
            return;
        if ((memory->flags & cv::UMatData::USER_ALLOCATED) == 0)
            held_ -= static_cast<std::ptrdiff_t>(memory->size);
        memory->prevAllocator = memory->currAllocator = inner_;
        inner_->deallocate(memory);
    }
    std::ptrdiff_t held() const { return held_; }

private:
    cv::MatAllocator* inner_ = cv::Mat::getStdAllocator();
    mutable std::atomic<std::ptrdiff_t> held_{0};
};

}  // namespace

TEST(SrFloatMemory, TakesNoPixelMemoryAfterTheFirstRun)
{
    static CountingMatAllocator allocator;
    cv::MatAllocator* before = cv::Mat::getDefaultAllocator();
    cv::Mat::setDefaultAllocator(&allocator);
    {
        const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
        SrFloat<SrFloatRegistration2> engine(smallFrame.width, smallFrame.height, 5, 2.0F);
        engine.setReferenceIndex(3);
        cv::Mat_<float> image;
        const auto feed = [&](int count) {
            for (int i = 0; i < count; ++i) {
                ASSERT_EQ(engine.addFrame(burst.frames[static_cast<std::size_t>(i % 5)]), 0);
                engine.computeSR(image);
            }
        };
        feed(6);

        const std::ptrdiff_t held = allocator.held();
        // A row of the smallest picture would pass; a picture of bytes would not.
        largeSize = static_cast<std::size_t>(smallFrame.area()) / 2;
        counting = true;
        const std::vector<char> probe(static_cast<std::size_t>(smallFrame.area()));
        counting = false;
        EXPECT_EQ(largeAllocations, 1U) << "the counter is blind to " << probe.size() << " bytes";

        largeAllocations = 0;
        counting = true;
        feed(10);
        counting = false;
        EXPECT_EQ(largeAllocations, 0U);
        EXPECT_EQ(allocator.held(), held);
        EXPECT_GT(held, 0);
    }
    cv::Mat::setDefaultAllocator(before);
}
