// SPDX-License-Identifier: Apache-2.0
// The functions of the interface: each checks its arguments and calls the object.

#include "bindings/c/vxkit.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <opencv2/core/mat.hpp>
#include <string>

#include "bindings/c/Call.h"
#include "bindings/c/Images.h"
#include "support/drivers/BurstEngine.h"

using namespace vxc;

namespace {

constexpr std::int64_t mostPixels = std::int64_t{1} << 26;

static_assert(VXKIT_VERSION_NUMBER == VXKIT_PROJECT_VERSION_NUMBER,
              "vxkit.h has another version than the project");

#define VXKIT_TEXT_OF(number) #number
#define VXKIT_VERSION_TEXT(major, minor, patch) \
    VXKIT_TEXT_OF(major) "." VXKIT_TEXT_OF(minor) "." VXKIT_TEXT_OF(patch)

void requireSize(int width, int height)
{
    if (width >= 1 && height >= 1 && static_cast<std::int64_t>(width) * height <= mostPixels)
        return;
    throw Failure(VXKIT_OUT_OF_RANGE, "size " + std::to_string(width) + "x" + std::to_string(height) +
                                          ": expected 1x1 or more, and at most " +
                                          std::to_string(mostPixels) + " pixels");
}

void copyOut(const cv::Mat& from, const vxkit_image* image, const char* what)
{
    cv::Mat to = matrixOf(image, from.size(), what);
    requireType(*image, typeOf(from), what);
    from.copyTo(to);
}

template <typename Element>
const Element& elementAt(const std::vector<Element>& table, int index)
{
    if (index < 0 || static_cast<std::size_t>(index) >= table.size())
        throw Failure(VXKIT_OUT_OF_RANGE, "index " + std::to_string(index) + ": expected 0 to " +
                                              std::to_string(static_cast<std::int64_t>(table.size()) - 1));
    return table[static_cast<std::size_t>(index)];
}

}  // namespace

const char* vxkit_version(void)
{
    return VXKIT_VERSION_TEXT(VXKIT_VERSION_MAJOR, VXKIT_VERSION_MINOR, VXKIT_VERSION_PATCH);
}

int vxkit_version_number(void)
{
    return VXKIT_VERSION_NUMBER;
}

const char* vxkit_status_text(vxkit_status status)
{
    constexpr std::array<const char*, 12> texts{"success",
                                                "bad handle",
                                                "null argument",
                                                "unknown name",
                                                "out of range",
                                                "wrong shape",
                                                "wrong type",
                                                "no result yet",
                                                "the frames gave no image",
                                                "out of memory",
                                                "the handle is in use by another thread",
                                                "failed"};
    const auto index = static_cast<std::size_t>(status);
    return index < texts.size() ? texts[index] : "unknown status";
}

const char* vxkit_type_text(vxkit_type type)
{
    constexpr std::array<const char*, 7> texts{"u8", "i8", "u16", "i16", "i32", "f32", "f64"};
    const auto index = static_cast<std::size_t>(type);
    return index < texts.size() ? texts[index] : "unknown type";
}

const char* vxkit_code_text(int code)
{
    return vxsupport::meaningOf(code);
}

int vxkit_kind_count(void)
{
    return static_cast<int>(allKinds().size());
}

vxkit_status vxkit_kind(int index, vxkit_kind_info* info)
{
    return guarded([&] {
        requirePointer(info, "info");
        if (index < 0 || index >= vxkit_kind_count())
            throw Failure(VXKIT_OUT_OF_RANGE, "index " + std::to_string(index) + ": expected 0 to " +
                                                  std::to_string(vxkit_kind_count() - 1));
        const Kind& kind = allKinds()[static_cast<std::size_t>(index)];
        *info = {kind.name, kind.family, kind.summary, kind.input, kind.output};
    });
}

int vxkit_setting_count(const char* kind)
{
    int count = -1;
    guarded([&] {
        requirePointer(kind, "kind");
        count = static_cast<int>(kindNamed(kind).settings().size());
    });
    return count;
}

vxkit_status vxkit_setting(const char* kind, int index, vxkit_setting_info* info)
{
    return guarded([&] {
        requirePointer(kind, "kind");
        requirePointer(info, "info");
        *info = infoOf(elementAt(kindNamed(kind).settings(), index));
    });
}

vxkit_status vxkit_create(const char* kind, int width, int height, vxkit_object** object)
{
    if (object != nullptr)
        *object = nullptr;
    return guarded([&] {
        requirePointer(kind, "kind");
        requirePointer(object, "object");
        const Kind& known = kindNamed(kind);
        requireSize(width, height);
        const CallThreads threads;
        *object = addEntry(known.make(known, {width, height}));
    });
}

vxkit_status vxkit_release(vxkit_object* object)
{
    // An object's end may print as well as its work does.
    return withObject(object, [&](Object&) { dropEntry(object); });
}

const char* vxkit_kind_of(const vxkit_object* object)
{
    const char* name = "";
    guarded([&] { name = requireEntry(object)->object->kind().name; });
    return name;
}

vxkit_status vxkit_reset(vxkit_object* object)
{
    return withObject(object, [](Object& found) { found.reset(); });
}

const char* vxkit_error(const vxkit_object* object)
{
    try {
        const std::shared_ptr<Entry> entry = entryOf(object);
        if (!entry)
            return "";
        const EntryInUse use(*entry);
        return use.isMine() ? entry->error.get() : "";
    } catch (...) {
        return "";
    }
}

const char* vxkit_last_error(void)
{
    return threadError().get();
}

vxkit_status vxkit_set_number(vxkit_object* object, const char* name, double value)
{
    return withObject(object, [&](Object& found) {
        requirePointer(name, "name");
        found.setNumber(name, value);
    });
}

vxkit_status vxkit_set_text(vxkit_object* object, const char* name, const char* value)
{
    return withObject(object, [&](Object& found) {
        requirePointer(name, "name");
        requirePointer(value, "value");
        found.setText(name, value);
    });
}

vxkit_status vxkit_get_number(const vxkit_object* object, const char* name, double* value)
{
    return withObject(object, [&](const Object& found) {
        requirePointer(name, "name");
        requirePointer(value, "value");
        *value = found.getNumber(name);
    });
}

vxkit_status vxkit_get_text(const vxkit_object* object, const char* name, char* buffer, size_t size,
                            size_t* needed)
{
    return withObject(object, [&](const Object& found) {
        requirePointer(name, "name");
        if (size > 0)
            requirePointer(buffer, "buffer");
        const std::string text = found.getText(name);
        if (needed != nullptr)
            *needed = text.size() + 1;
        if (size == 0)
            return;
        if (size <= text.size())
            throw Failure(VXKIT_OUT_OF_RANGE, "buffer: found room for " + std::to_string(size) +
                                                  " bytes; expected " + std::to_string(text.size() + 1));
        std::memcpy(buffer, text.c_str(), text.size() + 1);
    });
}

vxkit_status vxkit_process(vxkit_object* object, const vxkit_image* src, const vxkit_image* dst)
{
    return withWork(object, [&](Object& found) {
        requirePointer(src, "src");
        requirePointer(dst, "dst");
        found.process(*src, *dst);
    });
}

vxkit_status vxkit_learn(vxkit_object* object, const vxkit_image* frames, int count)
{
    return withObject(object, [&](Object& found) {
        requirePointer(frames, "frames");
        found.learn({frames, static_cast<std::size_t>(std::max(count, 0))});
    });
}

vxkit_status vxkit_learn_statistics(vxkit_object* object, const vxkit_image* mean,
                                    const vxkit_image* deviation)
{
    return withObject(object, [&](Object& found) {
        requirePointer(mean, "mean");
        requirePointer(deviation, "deviation");
        found.learnStatistics(*mean, *deviation);
    });
}

vxkit_status vxkit_add_frame(vxkit_object* object, const vxkit_image* frame, vxkit_burst_report* report)
{
    return withWork(object, [&](Object& found) {
        requirePointer(frame, "frame");
        vxkit_burst_report unread;
        found.addFrame(*frame, report != nullptr ? *report : unread);
    });
}

vxkit_status vxkit_calibrate(vxkit_object* object, const vxkit_image* counts_a, const vxkit_image* radiance_a,
                             const vxkit_image* counts_b, const vxkit_image* radiance_b)
{
    return withObject(object, [&](Object& found) {
        found.calibrate({counts_a, radiance_a, counts_b, radiance_b});
    });
}

vxkit_status vxkit_frame_report_at(const vxkit_object* object, int index, vxkit_frame_report* report)
{
    return withObject(object, [&](const Object& found) {
        requirePointer(report, "report");
        *report = found.frameReport(index);
    });
}

vxkit_status vxkit_result_shape(const vxkit_object* object, const char* name, vxkit_image* shape)
{
    return withObject(object, [&](const Object& found) {
        requirePointer(name, "name");
        requirePointer(shape, "shape");
        const cv::Mat result = found.result(name);
        *shape = {nullptr, result.cols, result.rows, 0, typeOf(result)};
    });
}

vxkit_status vxkit_result(const vxkit_object* object, const char* name, const vxkit_image* dst)
{
    return withObject(object, [&](const Object& found) {
        requirePointer(name, "name");
        requirePointer(dst, "dst");
        copyOut(found.result(name), dst, "dst");
    });
}

vxkit_status vxkit_simulated_frame(vxkit_object* object, int index, const vxkit_image* dst)
{
    return withObject(object, [&](Object& found) {
        requirePointer(dst, "dst");
        copyOut(found.simulatedFrame(index), dst, "dst");
    });
}

vxkit_status vxkit_simulated_ideal(vxkit_object* object, int index, const vxkit_image* dst)
{
    return withObject(object, [&](Object& found) {
        requirePointer(dst, "dst");
        copyOut(found.simulatedIdeal(index), dst, "dst");
    });
}

vxkit_status vxkit_simulated_shift(vxkit_object* object, int index, double* x, double* y)
{
    return withObject(object, [&](Object& found) {
        requirePointer(x, "x");
        requirePointer(y, "y");
        const cv::Point2d shift = found.simulatedShift(index);
        *x = shift.x;
        *y = shift.y;
    });
}

vxkit_status vxkit_set_log(vxkit_log log, void* user, vxkit_level most)
{
    return guarded([&] {
        if (most < VXKIT_ERROR || most > VXKIT_DEBUG)
            throw Failure(VXKIT_OUT_OF_RANGE, "level " + std::to_string(static_cast<int>(most)) +
                                                  ": expected one of vxkit_level");
        setLogTarget({log, user, most});
    });
}

vxkit_status vxkit_set_threads(int threads)
{
    return guarded([&] {
        constexpr int mostThreads = 1024;
        if (threads < 0 || threads > mostThreads)
            throw Failure(VXKIT_OUT_OF_RANGE, "threads " + std::to_string(threads) + ": expected 0 to " +
                                                  std::to_string(mostThreads));
        chooseThreads(threads);
    });
}

vxkit_status vxkit_run(void (*work)(void* user), void* user)
{
    return guarded([&] {
        if (work == nullptr)
            throw Failure(VXKIT_NULL_ARGUMENT, "work: is null");
        const CallThreads threads;
        work(user);
    });
}
