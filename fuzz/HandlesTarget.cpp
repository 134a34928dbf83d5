// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "bindings/c/vxkit.h"
#include "fuzz/FuzzInput.h"

// The calls of the interface in C in any order, on several objects of any kind, with handles that are none, odd values
// and images of any size, type and stride.
namespace {

constexpr int mostCalls = 40;
constexpr int mostObjects = 3;
constexpr int mostFrames = 12;
constexpr int mostScenes = 2;  // which take long to simulate
constexpr int largestSide = 32;
constexpr std::array<int, 6> absurdSides{0, -1, std::numeric_limits<int>::min(), 2147483647, 67108865, 7};
constexpr std::array<double, 10> oddNumbers{-1.0,
                                            0.5,
                                            1e-300,
                                            -0.0,
                                            1e300,
                                            1e19,
                                            2147483648.0,
                                            -32769.0,
                                            std::numeric_limits<double>::infinity(),
                                            std::numeric_limits<double>::quiet_NaN()};
constexpr std::array<const char*, 8> oddTexts{"",       "off",  "true", "k325 FOV25",
                                              "1e5000", "0x10", "12x",  "auto"};
constexpr std::array<const char*, 8> resultNames{"image", "confidence",     "quality",         "damping",
                                                 "truth", "after-temporal", "after-histogram", "none"};

struct Made
{
    vxkit_object* handle;
    int kind;
    cv::Size size;
};

/// A picture with just the memory that it tells of, so that the sanitizer sees a step beyond.
struct Picture
{
    std::vector<std::uint8_t> bytes;
    vxkit_image image;
};

void dropLine(void* /*user*/, vxkit_level /*level*/, const char* source, const char* text)
{
    vxfuzz::require(std::strlen(source) > 0 && text != nullptr, "a line of the log has a source");
}

vxkit_kind_info kindAt(int index)
{
    vxkit_kind_info kind{};
    vxfuzz::require(vxkit_kind(index, &kind) == VXKIT_OK, "a kind tells of itself");
    return kind;
}

/// Each status is one of the named ones, and a failure has a text.
bool isDone(vxkit_status status)
{
    vxfuzz::require(std::string(vxkit_status_text(status)) != "unknown status",
                    "a call answers with a status");
    vxfuzz::require(status != VXKIT_BUSY, "one thread finds no handle busy");
    vxfuzz::require(status == VXKIT_OK || std::strlen(vxkit_last_error()) > 0, "a failure has a text");
    return status == VXKIT_OK;
}

class HandlesRun
{
public:
    explicit HandlesRun(vxfuzz::Numbers numbers) : numbers_(numbers) {}
    ~HandlesRun()
    {
        for (const Made& made : objects_)
            vxkit_release(made.handle);
        vxkit_set_log(nullptr, nullptr, VXKIT_ERROR);
    }
    HandlesRun(const HandlesRun&) = delete;
    HandlesRun& operator=(const HandlesRun&) = delete;

    void run()
    {
        isDone(vxkit_set_log(dropLine, nullptr, static_cast<vxkit_level>(numbers_.upTo(4))));
        create();
        for (int call = 0; call < mostCalls && !numbers_.isAtEnd(); ++call)
            callOne();
    }

private:
    void callOne()
    {
        using Call = void (HandlesRun::*)();
        constexpr std::array<Call, 15> calls{
            &HandlesRun::create,  &HandlesRun::release,     &HandlesRun::reset, &HandlesRun::setNumber,
            &HandlesRun::setText, &HandlesRun::readSetting, &HandlesRun::learn, &HandlesRun::readReport,
            &HandlesRun::result,  &HandlesRun::simulate,    &HandlesRun::frame, &HandlesRun::frame,
            &HandlesRun::frame,   &HandlesRun::frame,       &HandlesRun::frame};
        (this->*calls.at(static_cast<std::size_t>(numbers_.upTo(static_cast<int>(calls.size()) - 1))))();
    }

    /// Now and then none, one that is gone, or one that never was.
    Made any()
    {
        const int choice = numbers_.upTo(31);
        if (choice == 31 || objects_.empty())
            return {released_, 0, {8, 8}};
        if (choice == 30)
            return {
                reinterpret_cast<vxkit_object*>(static_cast<std::uintptr_t>(numbers_.word()) * 2), 0, {8, 8}};
        return objects_[static_cast<std::size_t>(choice) % objects_.size()];
    }

    int side()
    {
        const int choice = numbers_.byte();
        return choice < 248 ? 1 + choice % largestSide
                            : absurdSides.at(static_cast<std::size_t>(choice) % absurdSides.size());
    }

    void create()
    {
        const int kind = numbers_.upTo(vxkit_kind_count());
        cv::Size size{side(), side()};  // in this order
        if (kind == vxkit_kind_count()) {
            vxkit_object* none = nullptr;
            vxfuzz::require(!isDone(vxkit_create(resultNames.at(7), 8, 8, &none)), "there is no such kind");
            return;
        }
        if (objects_.size() >= mostObjects)
            return;
        const vxkit_kind_info info = kindAt(kind);
        if (std::string(info.name) == "fixed-point-fpga" && size.width > 4)
            size = {160, 120};
        vxkit_object* handle = released_;
        const bool isMade = isDone(vxkit_create(info.name, size.width, size.height, &handle));
        vxfuzz::require(isMade == (handle != nullptr), "a failed creation gives no handle");
        if (isMade)
            objects_.push_back({handle, kind, size});
    }

    void release()
    {
        const Made made = any();
        const bool isOpen = std::any_of(objects_.begin(), objects_.end(),
                                        [&](const Made& one) { return one.handle == made.handle; });
        vxfuzz::require(isDone(vxkit_release(made.handle)) == isOpen, "an open handle can be released alone");
        vxfuzz::require(vxkit_release(made.handle) == VXKIT_BAD_HANDLE, "a released handle is none");
        released_ = made.handle;
        std::erase_if(objects_, [&](const Made& one) { return one.handle == made.handle; });
    }

    void reset() { isDone(vxkit_reset(any().handle)); }

    vxkit_setting_info settingOf(const Made& made)
    {
        const char* kind = kindAt(made.kind).name;
        vxkit_setting_info setting{};
        vxfuzz::require(
            vxkit_setting(kind, numbers_.byte() % vxkit_setting_count(kind), &setting) == VXKIT_OK,
            "a setting tells of itself");
        return setting;
    }

    /// What makes a call long by itself stays small.
    static bool isCostly(const vxkit_setting_info& setting, double value)
    {
        const std::string name = setting.name;
        const bool isCount =
            name == "iterations" || name == "window" || name == "frames" || name == "defects";
        return (isCount && value > 12.0) || (name == "zoom" && value < 1.0) ||
               (name == "drift" && value > 4.0);
    }

    void setNumber()
    {
        const Made made = any();
        const vxkit_setting_info setting = settingOf(made);
        const int choice = numbers_.byte();
        const double value = choice < 96    ? setting.low + (setting.high - setting.low) * choice / 95.0
                             : choice < 224 ? static_cast<double>(numbers_.setting())
                             : choice < 232
                                 ? static_cast<double>(numbers_.value())
                                 : oddNumbers.at(static_cast<std::size_t>(choice) % oddNumbers.size());
        if (isCostly(setting, value))
            return;
        if (!isDone(vxkit_set_number(made.handle, setting.name, value)))
            return;
        double read = 0.0;
        vxfuzz::require(vxkit_get_number(made.handle, setting.name, &read) == VXKIT_OK &&
                            (read == value || std::string(setting.name) == "hist"),
                        "a setting that was taken is kept");
    }

    void setText()
    {
        const Made made = any();
        const vxkit_setting_info setting = settingOf(made);
        std::string text = oddTexts.at(static_cast<std::size_t>(numbers_.upTo(7)));
        if (numbers_.upTo(1) == 0)
            text = std::to_string(numbers_.upTo(12));
        isDone(
            vxkit_set_text(made.handle, numbers_.upTo(31) == 0 ? text.c_str() : setting.name, text.c_str()));
    }

    void readSetting()
    {
        const Made made = any();
        const vxkit_setting_info setting = settingOf(made);
        std::vector<char> text(static_cast<std::size_t>(numbers_.upTo(40)));
        std::size_t needed = 0;
        const vxkit_status status =
            vxkit_get_text(made.handle, setting.name, text.data(), text.size(), &needed);
        if (isDone(status) && !text.empty())
            vxfuzz::require(std::strlen(text.data()) + 1 == needed && needed <= text.size(),
                            "a text fits its buffer");
        vxkit_error(made.handle);
        vxkit_kind_of(made.handle);
    }

    /// Mostly as it should be.
    Picture picture(cv::Size size, vxkit_type type)
    {
        const int odd = numbers_.byte();
        if (odd >= 240)
            type = static_cast<vxkit_type>(numbers_.upTo(8) - 1);
        if (odd >= 232 && odd < 244)
            size = {side(), side()};
        const bool isSmall = size.width > 0 && size.height > 0 && size.width <= 320 && size.height <= 240;
        constexpr std::array<int, 7> samples{1, 1, 2, 2, 4, 4, 8};
        const auto place = static_cast<std::size_t>(type);
        const int sample = place < samples.size() ? samples.at(place) : 8;
        const int row = isSmall ? size.width * sample : 0;
        const int stride = odd >= 208 && odd < 224 ? row + numbers_.upTo(40) - 8 : odd >= 200 ? row : 0;
        const int step = std::max(stride, row);
        Picture made{
            std::vector<std::uint8_t>(static_cast<std::size_t>(isSmall ? step * (size.height - 1) + row : 1)),
            {}};
        fill(made.bytes, type);
        made.image = {odd == 255 ? nullptr : made.bytes.data(), size.width, size.height, stride, type};
        return made;
    }

    void fill(std::vector<std::uint8_t>& bytes, vxkit_type type)
    {
        const cv::Mat_<float> values = numbers_.frame({std::max(1, static_cast<int>(bytes.size()) / 2), 1});
        for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
            const float value = values(0, static_cast<int>(i / 2));
            const auto count =
                static_cast<std::uint16_t>(value > 0.0F && value < 500.0F ? value * 60.0F : 65535.0F);
            std::memcpy(&bytes[i], &count, sizeof count);
        }
        if (type == VXKIT_F32)
            for (std::size_t i = 0; i + 4 <= bytes.size(); i += 4)
                std::memcpy(&bytes[i], &values(0, static_cast<int>(i / 4)), 4);
    }

    void frame()
    {
        const Made made = any();
        const vxkit_kind_info kind = kindAt(made.kind);
        if (++frames_ > mostFrames)
            return;
        const Picture src = picture(made.size, kind.input);
        if (kind.family != VXKIT_FILTER) {
            vxkit_burst_report report{};
            if (isDone(vxkit_add_frame(made.handle, &src.image, &report)))
                vxfuzz::require(std::strlen(vxkit_code_text(report.code)) > 0, "a code has a meaning");
            return;
        }
        const Picture dst = picture(made.size, src.image.type);
        isDone(vxkit_process(made.handle, &src.image, numbers_.upTo(7) == 0 ? &src.image : &dst.image));
    }

    void learn()
    {
        const Made made = any();
        if (numbers_.upTo(1) == 0) {
            const Picture mean = picture(made.size, VXKIT_F32);
            const Picture deviation = picture(made.size, VXKIT_F32);
            isDone(vxkit_learn_statistics(made.handle, &mean.image, &deviation.image));
            return;
        }
        std::vector<Picture> pictures;
        std::vector<vxkit_image> images;
        for (int i = numbers_.upTo(3); i >= 0; --i)
            pictures.push_back(picture(made.size, VXKIT_U16));
        for (const Picture& one : pictures)
            images.push_back(one.image);
        isDone(vxkit_learn(made.handle, images.data(),
                           numbers_.upTo(15) == 0 ? -5 : static_cast<int>(images.size())));
    }

    void readReport()
    {
        vxkit_frame_report report{};
        isDone(vxkit_frame_report_at(any().handle, numbers_.upTo(7) - 1, &report));
    }

    void result()
    {
        const Made made = any();
        const char* name = resultNames.at(static_cast<std::size_t>(numbers_.upTo(7)));
        if (std::string(name) == "truth" && (made.size.area() > 24 * 24 || ++scenes_ > mostScenes))
            return;
        vxkit_image shape{};
        const bool isThere = isDone(vxkit_result_shape(made.handle, name, &shape));
        const Picture dst = picture(isThere ? cv::Size(shape.width, shape.height) : made.size,
                                    isThere ? shape.type : VXKIT_F32);
        vxfuzz::require(!isDone(vxkit_result(made.handle, name, &dst.image)) || isThere,
                        "a result has a shape");
    }

    void simulate()
    {
        const Made made = any();
        if (made.size.area() > 24 * 24 || ++scenes_ > mostScenes)
            return;
        const Picture dst = picture(made.size, VXKIT_F32);
        const int index = numbers_.upTo(7) - 1;
        double x = 0.0;
        double y = 0.0;
        isDone(vxkit_simulated_frame(made.handle, index, &dst.image));
        isDone(vxkit_simulated_shift(made.handle, index, &x, &y));
        isDone(vxkit_simulated_ideal(made.handle, index, &dst.image));
    }

    vxfuzz::Numbers numbers_;
    std::vector<Made> objects_;
    vxkit_object* released_ = nullptr;
    int frames_ = 0;
    int scenes_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    HandlesRun(vxfuzz::Numbers(vxfuzz::textOf(data, size))).run();
    return 0;
}
