// SPDX-License-Identifier: Apache-2.0
// Want of memory at every allocation of every call: a status, no leak, and a handle that goes on.

#include <algorithm>

#include "bindings/c/FailingMemory.h"
#include "bindings/c/Handles.h"

using namespace vxtest;

namespace {

void dropLine(void* user, vxkit_level /*level*/, const char* /*source*/, const char* text)
{
    *static_cast<std::size_t*>(user) += std::string_view(text).size();
}

/// Frames that no shortage concerns, and where results go.
struct Pictures
{
    explicit Pictures(cv::Size size)
        : counts(sampleStream(3, size)), levels(size), image(size * 2), simulated(size)
    {
        const Handle burst("burst", size);
        cv::Mat_<float> degrees(size);
        const vxkit_image view = imageOf(degrees);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(vxkit_simulated_frame(burst, i, &view), VXKIT_OK);
            frames.push_back(degrees.clone());
            fixed.emplace_back(converted(degrees, CV_16S, 100.0));
        }
    }
    void clear()
    {
        for (cv::Mat* target : std::initializer_list<cv::Mat*>{&levels, &image, &simulated})
            target->setTo(0);
    }

    std::vector<cv::Mat> frames, fixed;
    std::vector<cv::Mat_<short>> counts;
    cv::Mat_<short> levels;
    cv::Mat_<float> image, simulated;
};

/// The life of an object as a list of calls, of which one meets a shortage.
class Life
{
public:
    Life(vxkit_kind_info kind, cv::Size size)
        : kind_(kind), settings_(vxkit_setting_count(kind.name)), size_(size), pictures_(size)
    {}

    /// @return whether the shortage was felt at all
    bool livesThrough(long which, Shortage::Kind shortage)
    {
        pictures_.clear();
        hasResults_ = false;
        vxkit_object* object = nullptr;
        bool isFine = true;
        Shortage memory(which, shortage);
        const auto call = [&](const auto& made) {
            const bool wasOver = memory.wasFelt();
            const vxkit_status status = made();
            if (memory.wasFelt())
                memory.end();
            // After it the frames of before are forgotten, so that an image may be missing.
            const bool isPromised =
                status == VXKIT_OK || (wasOver ? status == VXKIT_NOT_READY || status == VXKIT_NO_RESULT
                                               : memory.wasFelt() && status == VXKIT_OUT_OF_MEMORY);
            EXPECT_TRUE(isPromised) << status << ": " << vxkit_last_error();
            isFine = isFine && status == VXKIT_OK;
            return status;
        };
        if (call([&] { return vxkit_create(kind_.name, size_.width, size_.height, &object); }) != VXKIT_OK) {
            EXPECT_EQ(object, nullptr);
            return true;
        }
        work(object, call);
        const bool wasFelt = memory.wasFelt();
        memory.end();
        if (wasFelt && !isFine) {
            EXPECT_EQ(vxkit_reset(object), VXKIT_OK) << vxkit_last_error();
            pictures_.clear();
            work(object, [](const auto& made) {
                const vxkit_status status = made();
                EXPECT_EQ(status, VXKIT_OK) << vxkit_last_error();
                return status;
            });
        }
        EXPECT_EQ(vxkit_release(object), VXKIT_OK);
        hasResults_ = true;
        return wasFelt;
    }

    bool hasResults() const { return hasResults_; }
    cv::Mat results() const
    {
        cv::Mat all;
        cv::Mat image = pictures_.image.reshape(1, size_.height * 4);
        cv::vconcat(std::vector<cv::Mat>{converted(pictures_.levels, CV_32F), image, pictures_.simulated},
                    all);
        return all;
    }

private:
    template <typename Call>
    void work(vxkit_object* object, const Call& call)
    {
        setAndGet(object, call);
        if (kind_.family == VXKIT_SUPERRES)
            superresolve(object, call);
        else if (kind_.family == VXKIT_FILTER)
            filter(object, call);
        else
            simulate(object, call);
        call([&] { return vxkit_reset(object); });
    }

    template <typename Call>
    void setAndGet(vxkit_object* object, const Call& call)
    {
        vxkit_setting_info setting{};
        for (const int index : {0, settings_ - 1}) {
            call([&] { return vxkit_setting(kind_.name, index, &setting); });
            std::array<char, 64> text{};
            call([&] { return vxkit_get_text(object, setting.name, text.data(), text.size(), nullptr); });
            if (text[0] != '\0')
                call([&] { return vxkit_set_text(object, setting.name, text.data()); });
        }
        if (kind_.family == VXKIT_SUPERRES) {
            call([&] { return vxkit_set_number(object, "window", 2); });
            call([&] { return vxkit_set_number(object, "reference", 0); });
            call([&] {
                return vxkit_set_text(object, "camera", "a text that is too long to fit into a string");
            });
        }
        if (kind_.family == VXKIT_SIMULATOR)
            call([&] { return vxkit_set_number(object, "frames", 2); });
    }

    template <typename Call>
    void superresolve(vxkit_object* object, const Call& call)
    {
        for (const cv::Mat& frame : kind_.input == VXKIT_I16 ? pictures_.fixed : pictures_.frames) {
            const vxkit_image view = imageOf(frame);
            if (call([&] { return vxkit_add_frame(object, &view, nullptr); }) == VXKIT_OUT_OF_MEMORY) {
                EXPECT_EQ(vxkit_set_number(object, "window", 2), VXKIT_OK);  // as after a reset
            }
        }
        const vxkit_image image = imageOf(pictures_.image);
        call([&] { return vxkit_result(object, "image", &image); });
    }

    template <typename Call>
    void filter(vxkit_object* object, const Call& call)
    {
        std::array<vxkit_image, 3> views{};
        for (std::size_t i = 0; i < views.size(); ++i)
            views.at(i) = imageOf(pictures_.counts[i]);
        if (std::string_view(kind_.name) == "cluster")
            call([&] { return vxkit_learn(object, views.data(), 3); });
        const vxkit_image levels = imageOf(pictures_.levels);
        for (const vxkit_image& view : views)
            call([&] { return vxkit_process(object, &view, &levels); });
        if (std::string_view(kind_.name) == "hist")
            call([&] { return vxkit_set_number(object, "gain", 5); });
    }

    template <typename Call>
    void simulate(vxkit_object* object, const Call& call)
    {
        const vxkit_image simulated = imageOf(pictures_.simulated);
        const vxkit_image image = imageOf(pictures_.image);
        double x = 0.0;
        double y = 0.0;
        call([&] { return vxkit_simulated_frame(object, 1, &simulated); });
        call([&] { return vxkit_simulated_shift(object, 1, &x, &y); });
        if (std::string_view(kind_.name) == "burst")
            call([&] { return vxkit_result(object, "truth", &image); });
        else
            call([&] { return vxkit_simulated_ideal(object, 1, &simulated); });
    }

    vxkit_kind_info kind_;
    int settings_;
    cv::Size size_;
    Pictures pictures_;
    bool hasResults_ = false;
};

// The first of all: what the library keeps for the process is made here.
TEST(Memory, IsShortInTheFirstCallOfAProcess)
{
    vxkit_status status = VXKIT_OUT_OF_MEMORY;
    for (long which = 1; status == VXKIT_OUT_OF_MEMORY && which < 10000; ++which) {
        vxkit_object* object = nullptr;
        const Shortage memory(which, Shortage::Kind::lasting);
        status = vxkit_create("temporal", 8, 8, &object);
        EXPECT_EQ(object != nullptr, status == VXKIT_OK);
        vxkit_release(object);
    }
    EXPECT_EQ(status, VXKIT_OK) << vxkit_last_error();
}

class MemoryOfKinds : public testing::TestWithParam<int>
{};

TEST_P(MemoryOfKinds, IsShortAtAnyMoment)
{
    vxkit_kind_info kind{};
    ASSERT_EQ(vxkit_kind(GetParam(), &kind), VXKIT_OK);
    const bool isFpga = std::string_view(kind.name) == "fixed-point-fpga";
    // Those that allocate thousands of times and take long are not stopped at every one.
    const long fine = kind.family == VXKIT_FILTER     ? 1000
                      : isFpga                        ? 10
                      : kind.family == VXKIT_SUPERRES ? 50
                                                      : 2;
    std::size_t heard = 0;
    ASSERT_EQ(vxkit_set_threads(1), VXKIT_OK);
    ASSERT_EQ(vxkit_set_log(dropLine, &heard, VXKIT_INFO), VXKIT_OK);
    Life life(kind, isFpga ? cv::Size(160, 120) : cv::Size(48, 40));
    constexpr long never = 1L << 40;
    life.livesThrough(never, Shortage::Kind::once);  // caches
    life.livesThrough(never, Shortage::Kind::once);
    const cv::Mat expected = life.results();
    for (const Shortage::Kind shortage : {Shortage::Kind::once, Shortage::Kind::lasting}) {
        bool wasFelt = true;
        for (long which = 1; wasFelt; which += 1 + which / fine) {
            SCOPED_TRACE(which);
            const long before = liveBlocks();
            wasFelt = life.livesThrough(which, shortage);
            if (liveBlocks() != before) {  // a cache, or a leak, which comes again
                const long again = liveBlocks();
                life.livesThrough(which, shortage);
                EXPECT_EQ(liveBlocks(), again);
            }
            ASSERT_FALSE(HasFailure());
            if (life.hasResults()) {
                ASSERT_TRUE(sameBits(life.results(), expected));
            }
        }
    }
    EXPECT_EQ(vxkit_set_log(nullptr, nullptr, VXKIT_DEBUG), VXKIT_OK);
}

std::string nameOf(const testing::TestParamInfo<int>& info)
{
    vxkit_kind_info kind{};
    vxkit_kind(info.param, &kind);
    std::string name = kind.name;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Kinds, MemoryOfKinds, testing::Range(0, vxkit_kind_count()), nameOf);

}  // namespace
