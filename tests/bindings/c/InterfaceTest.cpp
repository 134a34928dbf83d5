// SPDX-License-Identifier: Apache-2.0
// What holds for all kinds: tables, errors, handles, log and threads.

#include <omp.h>

#include <array>
#include <atomic>
#include <cmath>
#include <limits>
#include <thread>

#include "bindings/c/Handles.h"
#include "core/base/Exception.h"
#include "enhancement/superresolution/TestBursts.h"

using namespace vxtest;
using testing::HasSubstr;

namespace {

std::vector<vxkit_kind_info> kinds()
{
    std::vector<vxkit_kind_info> all(static_cast<std::size_t>(vxkit_kind_count()));
    for (std::size_t i = 0; i < all.size(); ++i)
        EXPECT_EQ(vxkit_kind(static_cast<int>(i), &all[i]), VXKIT_OK);
    return all;
}

std::string textOf(const vxkit_object* object, const char* name)
{
    std::array<char, 100> buffer{};
    EXPECT_EQ(vxkit_get_text(object, name, buffer.data(), buffer.size(), nullptr), VXKIT_OK);
    return buffer.data();
}

void checkSetting(const Handle& object, const vxkit_setting_info& setting)
{
    SCOPED_TRACE(setting.name);
    const std::string text = textOf(object, setting.name);
    EXPECT_EQ(vxkit_set_text(object, setting.name, text.c_str()), VXKIT_OK);
    EXPECT_EQ(textOf(object, setting.name), text);
    EXPECT_STRNE(setting.help, "");
    if (setting.type == VXKIT_TEXT) {
        EXPECT_EQ(text, setting.default_text);
        EXPECT_EQ(vxkit_set_number(object, setting.name, 1.0), VXKIT_WRONG_TYPE);
        return;
    }
    const double before = object.get(setting.name);
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double wrong : {std::nextafter(setting.low, -infinity), std::nextafter(setting.high, infinity),
                               std::nan(""), -infinity, infinity})
        EXPECT_EQ(vxkit_set_number(object, setting.name, wrong), VXKIT_OUT_OF_RANGE) << wrong;
    EXPECT_EQ(vxkit_set_text(object, setting.name, "12x"), VXKIT_OUT_OF_RANGE);
    if (setting.type != VXKIT_NUMBER) {
        EXPECT_EQ(vxkit_set_number(object, setting.name, setting.low + 0.5), VXKIT_OUT_OF_RANGE);
    }
    EXPECT_THAT(vxkit_error(object), testing::AllOf(HasSubstr(setting.name), HasSubstr("expected")));
    EXPECT_EQ(object.get(setting.name), before);
    object.set(setting.name, setting.low);
    object.set(setting.name, setting.high);
    EXPECT_TRUE(std::string(setting.name) == "hist" || object.get(setting.name) == setting.high);
}

TEST(Kinds, HaveTablesWhoseDefaultsAndLimitsTheyTakeAndKeep)
{
    for (const vxkit_kind_info& kind : kinds()) {
        SCOPED_TRACE(kind.name);
        const Handle object(kind.name, {160, 120});
        EXPECT_STREQ(vxkit_kind_of(object), kind.name);
        EXPECT_STRNE(kind.summary, "");
        ASSERT_GT(vxkit_setting_count(kind.name), 0);
        std::vector<vxkit_setting_info> settings(static_cast<std::size_t>(vxkit_setting_count(kind.name)));
        for (std::size_t i = 0; i < settings.size(); ++i) {
            ASSERT_EQ(vxkit_setting(kind.name, static_cast<int>(i), &settings[i]), VXKIT_OK);
            if (settings[i].type != VXKIT_TEXT && !std::isnan(settings[i].default_number)) {
                EXPECT_EQ(object.get(settings[i].name), settings[i].default_number) << settings[i].name;
            }
        }
        for (const vxkit_setting_info& setting : settings)
            checkSetting(object, setting);
    }
}

TEST(Handles, ThatAreNullReleasedOrForeignAreNotFollowed)
{
    vxkit_object* released = nullptr;
    ASSERT_EQ(vxkit_create("spatial", 8, 8, &released), VXKIT_OK);
    ASSERT_EQ(vxkit_release(released), VXKIT_OK);
    int local = 0;
    cv::Mat_<float> pixels(8, 8, 0.0F);
    const vxkit_image image = imageOf(pixels);
    for (vxkit_object* bad :
         {static_cast<vxkit_object*>(nullptr), released, reinterpret_cast<vxkit_object*>(&local),
          reinterpret_cast<vxkit_object*>(std::uintptr_t{1})}) {
        double number = 0.0;
        vxkit_image shape{};
        vxkit_frame_report frame{};
        EXPECT_EQ(vxkit_release(bad), VXKIT_BAD_HANDLE);
        EXPECT_EQ(vxkit_reset(bad), VXKIT_BAD_HANDLE);
        EXPECT_EQ(vxkit_set_number(bad, "gain", 1.0), VXKIT_BAD_HANDLE);
        EXPECT_EQ(vxkit_set_text(bad, "gain", "1"), VXKIT_BAD_HANDLE);
        EXPECT_EQ(vxkit_get_number(bad, "gain", &number), VXKIT_BAD_HANDLE);
        EXPECT_EQ(vxkit_get_text(bad, "gain", nullptr, 0, nullptr), VXKIT_BAD_HANDLE);
        EXPECT_EQ(vxkit_process(bad, &image, &image), VXKIT_BAD_HANDLE);
        EXPECT_EQ(vxkit_learn(bad, &image, 1), VXKIT_BAD_HANDLE);
        EXPECT_EQ(vxkit_learn_statistics(bad, &image, &image), VXKIT_BAD_HANDLE);
        EXPECT_EQ(vxkit_add_frame(bad, &image, nullptr), VXKIT_BAD_HANDLE);
        EXPECT_EQ(vxkit_frame_report_at(bad, 0, &frame), VXKIT_BAD_HANDLE);
        EXPECT_EQ(vxkit_result_shape(bad, "image", &shape), VXKIT_BAD_HANDLE);
        EXPECT_EQ(vxkit_result(bad, "image", &image), VXKIT_BAD_HANDLE);
        EXPECT_EQ(vxkit_simulated_frame(bad, 0, &image), VXKIT_BAD_HANDLE);
        EXPECT_EQ(vxkit_simulated_ideal(bad, 0, &image), VXKIT_BAD_HANDLE);
        EXPECT_EQ(vxkit_simulated_shift(bad, 0, &number, &number), VXKIT_BAD_HANDLE);
        EXPECT_STREQ(vxkit_kind_of(bad), "");
        EXPECT_STREQ(vxkit_error(bad), "");
        EXPECT_THAT(vxkit_last_error(), HasSubstr("vxkit_create"));
    }
}

TEST(Handles, RefuseCallsOfOtherKindsAndNullArguments)
{
    const Handle filter("spatial");
    const Handle engine("production");
    const cv::Mat_<float> pixels(72, 96, 1.0F);
    const vxkit_image image = imageOf(pixels);
    EXPECT_EQ(vxkit_add_frame(filter, &image, nullptr), VXKIT_BAD_HANDLE);
    EXPECT_THAT(vxkit_error(filter), testing::AllOf(HasSubstr("spatial"), HasSubstr("super-resolution")));
    EXPECT_EQ(vxkit_process(engine, &image, &image), VXKIT_BAD_HANDLE);
    EXPECT_EQ(vxkit_learn(engine, &image, 1), VXKIT_BAD_HANDLE);
    EXPECT_EQ(vxkit_simulated_frame(engine, 0, &image), VXKIT_BAD_HANDLE);
    EXPECT_EQ(vxkit_result(filter, "image", &image), VXKIT_UNKNOWN_NAME);
    EXPECT_EQ(vxkit_result(engine, nullptr, &image), VXKIT_NULL_ARGUMENT);
    EXPECT_EQ(vxkit_add_frame(engine, nullptr, nullptr), VXKIT_NULL_ARGUMENT);
    EXPECT_EQ(vxkit_set_number(engine, nullptr, 1.0), VXKIT_NULL_ARGUMENT);
    EXPECT_EQ(vxkit_set_text(engine, "camera", nullptr), VXKIT_NULL_ARGUMENT);
    EXPECT_EQ(vxkit_create(nullptr, 8, 8, nullptr), VXKIT_NULL_ARGUMENT);
    EXPECT_EQ(vxkit_setting_count(nullptr), -1);
    EXPECT_EQ(vxkit_setting_count("sharpest"), -1);
    EXPECT_EQ(vxkit_set_number(engine, "psf-sigma", 0.0), VXKIT_OUT_OF_RANGE);
    EXPECT_THAT(vxkit_error(engine), HasSubstr("a number above 0"));
    EXPECT_EQ(vxkit_set_number(engine, "windows", 3.0), VXKIT_UNKNOWN_NAME);
    EXPECT_THAT(vxkit_error(engine), testing::AllOf(HasSubstr("windows"), HasSubstr("relative-residue")));
    std::array<char, 2> narrow{'x', 'y'};
    std::size_t needed = 0;
    EXPECT_EQ(vxkit_get_text(engine, "weight", narrow.data(), narrow.size(), &needed), VXKIT_OUT_OF_RANGE);
    EXPECT_EQ(needed, 4U);
    EXPECT_EQ(narrow[0], 'x');
}

TEST(Sizes, ThatCannotBeGiveAStatus)
{
    constexpr int most = std::numeric_limits<int>::max();
    for (const vxkit_kind_info& kind : kinds())
        for (const auto& [width, height] : std::vector<std::pair<int, int>>{
                 {0, 0}, {-1, 5}, {1, 1}, {1000000000, 1000000000}, {most, 2}, {65536, 65536}}) {
            auto* object = reinterpret_cast<vxkit_object*>(std::uintptr_t{7});
            EXPECT_EQ(vxkit_create(kind.name, width, height, &object), VXKIT_OUT_OF_RANGE) << kind.name;
            EXPECT_EQ(object, nullptr);
            EXPECT_THAT(vxkit_last_error(), HasSubstr(std::to_string(width) + "x" + std::to_string(height)));
        }
    const Handle engine("production");
    cv::Mat_<float> pixels(200, 200, 0.0F);
    vxkit_image image = imageOf(pixels);
    EXPECT_EQ(vxkit_add_frame(engine, &image, nullptr), VXKIT_WRONG_SHAPE);
    EXPECT_THAT(vxkit_error(engine), testing::AllOf(HasSubstr("200x200"), HasSubstr("96x72")));
    image.width = 96;
    image.height = 72;
    for (const std::ptrdiff_t stride : {-800, 3, 380, 385}) {
        image.stride = stride;
        EXPECT_EQ(vxkit_add_frame(engine, &image, nullptr), VXKIT_OUT_OF_RANGE) << stride;
    }
    image.stride = 0;
    image.type = static_cast<vxkit_type>(99);
    EXPECT_EQ(vxkit_add_frame(engine, &image, nullptr), VXKIT_WRONG_TYPE);
}

// The smallest frames of all kinds, which no kernel may read beyond.
TEST(Sizes, ThatAreTheSmallestWork)
{
    for (const vxkit_kind_info& kind : kinds()) {
        if (kind.family != VXKIT_FILTER || std::string(kind.name) == "cluster")
            continue;
        for (const cv::Size size : {cv::Size(2, 1), cv::Size(3, 2), cv::Size(2, 5)}) {
            const Handle filter(kind.name, size);
            for (int i = 0; i < 3; ++i)
                processed(filter, cv::Mat_<std::uint16_t>(size, static_cast<std::uint16_t>(30000 + i)));
        }
    }
}

struct Line
{
    vxkit_level level;
    std::string source;
    std::string text;
    std::thread::id thread;
};

void keepLine(void* user, vxkit_level level, const char* source, const char* text)
{
    static_cast<std::vector<Line>*>(user)->push_back({level, source, text, std::this_thread::get_id()});
}

/// All that reaches the process's own streams in the meantime.
class StreamsOfProcess
{
public:
    StreamsOfProcess()
    {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
    }
    std::string text() const
    {
        std::fflush(stdout);
        return testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
    }
};

// Prints of each kind: banners of the reference engine, gains of the chain, an exception inside an engine.
void makeNoise()
{
    const Handle reference("reference");
    const Handle chain("enhancer");
    const Handle engine("production");
    addFrames(reference, burstOf(smallFrame, gentleShifts()).frames);
    processed(chain, sampleStream(1).front());
    vxkit_status status = VXKIT_OK;
    const cv::Mat_<float> broken = ruined(cv::Mat_<float>(72, 96, 20.0F));
    const vxkit_image bad = imageOf(broken);
    for (int i = 0; i < 6 && status == VXKIT_OK; ++i)
        status = vxkit_add_frame(engine, &bad, nullptr);
    EXPECT_EQ(vxkit_create("phase", 97, 73, nullptr), VXKIT_NULL_ARGUMENT);
}

TEST(Log, IsQuietAtFirstAndGivesACallbackWhatClassesPrint)
{
    const StreamsOfProcess streams;
    makeNoise();
    std::vector<Line> lines;
    EXPECT_EQ(vxkit_set_log(keepLine, &lines, VXKIT_DEBUG), VXKIT_OK);
    makeNoise();
    EXPECT_EQ(vxkit_set_log(keepLine, &lines, VXKIT_ERROR), VXKIT_OK);
    const std::size_t all = lines.size();
    makeNoise();
    const std::size_t withErrors = lines.size();
    EXPECT_EQ(vxkit_set_log(nullptr, nullptr, VXKIT_DEBUG), VXKIT_OK);
    makeNoise();
    EXPECT_EQ(streams.text(), "");

    const auto has = [&lines](vxkit_level level, const std::string& text) {
        return std::any_of(lines.begin(), lines.end(), [&](const Line& line) {
            return line.level == level && line.text.find(text) != std::string::npos;
        });
    };
    EXPECT_TRUE(has(VXKIT_INFO, "pgain"));
    EXPECT_TRUE(has(VXKIT_INFO, "++++++++++ SuperResolution ++++++++++"));
    EXPECT_TRUE(has(VXKIT_ERROR, "object: found null"));
    for (std::size_t i = all; i < withErrors; ++i)
        EXPECT_EQ(lines[i].level, VXKIT_ERROR);
    EXPECT_EQ(lines.size(), withErrors);
    for (const Line& line : lines)
        EXPECT_EQ(line.thread, std::this_thread::get_id());
    EXPECT_EQ(vxkit_set_log(nullptr, nullptr, static_cast<vxkit_level>(4)), VXKIT_OUT_OF_RANGE);
}

TEST(Log, LeavesTheClassesTheirStreams)
{
    makeNoise();
    const StreamsOfProcess streams;
    const halvor::vx::Exception told("a message", "a place");
    EXPECT_EQ(streams.text(), "exception raised: \"a message\"\n   at: a place\n");
}

// Each thread has an engine, a chain and a simulator of its own, and hears its own lines alone.
TEST(Threads, WithHandlesOfTheirOwnGetTheBitsOfASerialRun)
{
    const auto run = [](double seed, cv::Mat& image, cv::Mat& levels) {
        vxkit_set_threads(2);
        const Handle burst("burst");
        burst.set("seed", seed);
        const Handle engine("production");
        cv::Mat_<float> frame(72, 96);
        for (int i = 0; i < 5; ++i) {
            const vxkit_image view = imageOf(frame);
            EXPECT_EQ(vxkit_simulated_frame(burst, i, &view), VXKIT_OK);
            addFrames(engine, std::vector{frame});
        }
        image = resultOf<float>(engine, "image");
        const Handle chain("enhancer");
        for (const cv::Mat_<short>& samples : sampleStream(4))
            levels = processed(chain, samples);
        EXPECT_EQ(vxkit_set_number(chain, "nonsense", seed), VXKIT_UNKNOWN_NAME);
        EXPECT_THAT(vxkit_last_error(), HasSubstr("nonsense"));
    };
    constexpr std::size_t count = 3;
    std::array<cv::Mat, count> images, levels, serialImages, serialLevels;
    {
        std::vector<std::jthread> threads;
        for (std::size_t i = 0; i < count; ++i)
            threads.emplace_back([&, i] { run(static_cast<double>(i), images.at(i), levels.at(i)); });
    }
    for (std::size_t i = 0; i < count; ++i) {
        run(static_cast<double>(i), serialImages.at(i), serialLevels.at(i));
        EXPECT_TRUE(sameBits(images.at(i), serialImages.at(i)));
        EXPECT_TRUE(sameBits(levels.at(i), serialLevels.at(i)));
    }
    EXPECT_EQ(vxkit_set_threads(0), VXKIT_OK);
}

// The callback runs inside a call, which makes the moment certain.
void callAgain(void* user, vxkit_level level, const char* /*source*/, const char* /*text*/)
{
    if (level != VXKIT_INFO)  // the failures come here too
        return;
    auto& seen = *static_cast<std::pair<vxkit_object*, std::vector<vxkit_status>>*>(user);
    std::jthread([&] {
        double value = 0.0;
        seen.second.push_back(vxkit_get_number(seen.first, "peak-gain", &value));
        seen.second.push_back(vxkit_release(seen.first));
    });
}

TEST(Threads, FindAHandleInUseBusyAndLeaveItAsItIs)
{
    const Handle chain("enhancer");
    std::pair<vxkit_object*, std::vector<vxkit_status>> seen{chain, {}};
    EXPECT_EQ(vxkit_set_log(callAgain, &seen, VXKIT_INFO), VXKIT_OK);
    processed(chain, sampleStream(1).front());
    EXPECT_EQ(vxkit_set_log(nullptr, nullptr, VXKIT_INFO), VXKIT_OK);
    EXPECT_THAT(seen.second, testing::ElementsAre(VXKIT_BUSY, VXKIT_BUSY));
    EXPECT_EQ(chain.get("peak-gain"), 14.0);
}

TEST(Threads, AreChosenForCallsAlone)
{
    const int before = omp_get_max_threads();
    EXPECT_EQ(vxkit_set_threads(before + 3), VXKIT_OK);
    processed(Handle("spatial"), sampleStream(1).front());
    EXPECT_EQ(omp_get_max_threads(), before);
    int inside = 0;
    const auto look = [](void* seen) { *static_cast<int*>(seen) = omp_get_max_threads(); };
    EXPECT_EQ(vxkit_run(look, &inside), VXKIT_OK);
    EXPECT_EQ(std::pair(inside, omp_get_max_threads()), std::pair(before + 3, before));
    EXPECT_EQ(vxkit_set_threads(-1), VXKIT_OUT_OF_RANGE);
    EXPECT_EQ(vxkit_set_threads(0), VXKIT_OK);
}

TEST(Texts, TellVersionStatusAndType)
{
    EXPECT_EQ(vxkit_version_number(), VXKIT_VERSION_NUMBER);
    EXPECT_EQ(std::string(vxkit_version()), std::to_string(VXKIT_VERSION_MAJOR) + "." +
                                                std::to_string(VXKIT_VERSION_MINOR) + "." +
                                                std::to_string(VXKIT_VERSION_PATCH));
    EXPECT_STREQ(vxkit_status_text(VXKIT_WRONG_SHAPE), "wrong shape");
    EXPECT_STREQ(vxkit_status_text(static_cast<vxkit_status>(-3)), "unknown status");
    EXPECT_STREQ(vxkit_code_text(-9), "no corner of the reference frame could be tracked");
    EXPECT_STREQ(vxkit_type_text(VXKIT_F64), "f64");
    EXPECT_STREQ(vxkit_type_text(static_cast<vxkit_type>(7)), "unknown type");
}

}  // namespace
