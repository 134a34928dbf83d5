// SPDX-License-Identifier: Apache-2.0
#include "bindings/c/Object.h"

#include <utility>

#include "bindings/c/Failure.h"

namespace vxc {

Object::Object(const Kind& kind, cv::Size frame) : kind_(kind), frame_(frame), values_(kind.settings()) {}

std::size_t Object::changeable(const std::string& name) const
{
    const std::size_t index = indexOf(table(), name);
    if (!table()[index].atOnce)
        requireUnused("setting \"" + name + "\"");
    return index;
}

void Object::requireUnused(const std::string& what) const
{
    if (isUsed_)
        throw Failure(VXKIT_FAILED, what + ": changes before the first frame only; expected a reset first");
}

template <typename Value>
void Object::choose(std::size_t index, Value value)
{
    SettingValues before = values_;
    values_.choose(index, std::move(value));
    if (!isUsed_) {
        isOpen_ = false;
        return;
    }
    try {
        apply(index);
    } catch (...) {
        values_ = std::move(before);
        throw;
    }
}

void Object::setNumber(const std::string& name, double value)
{
    const std::size_t index = changeable(name);
    const Setting& setting = table()[index];
    if (setting.type == VXKIT_TEXT)
        throw Failure(VXKIT_WRONG_TYPE, "setting \"" + name + "\": found a number; expected a text");
    choose(index, checkedNumber(setting, value));
}

void Object::setText(const std::string& name, const std::string& value)
{
    const std::size_t index = changeable(name);
    const Setting& setting = table()[index];
    if (setting.type == VXKIT_TEXT)
        choose(index, value);
    else
        choose(index, numberFromText(setting, value));
}

double Object::getNumber(const std::string& name) const
{
    const std::size_t index = indexOf(table(), name);
    if (table()[index].type == VXKIT_TEXT)
        throw Failure(VXKIT_WRONG_TYPE, "setting \"" + name + "\": is a text; expected a number's name");
    return effectiveNumber(index);
}

std::string Object::getText(const std::string& name) const
{
    const std::size_t index = indexOf(table(), name);
    const Setting& setting = table()[index];
    return setting.type == VXKIT_TEXT ? values_.text(index) : textOfNumber(setting, effectiveNumber(index));
}

void Object::reset()
{
    forget();
    openFirst();
}

void Object::forget() noexcept
{
    close();
    isOpen_ = false;
    isUsed_ = false;
}

void Object::openFirst()
{
    if (isOpen_)
        return;
    close();  // ahead of the new one, so that memory holds but one
    open();
    isOpen_ = true;
}

void Object::start()
{
    openFirst();
    isUsed_ = true;
}

void Object::refuseCall(const char* expectedKind) const
{
    throw Failure(VXKIT_BAD_HANDLE,
                  "the object is of kind \"" + std::string(kind_.name) + "\"; expected " + expectedKind);
}

void Object::refuseResult(const std::string& name, const char* known) const
{
    throw Failure(VXKIT_UNKNOWN_NAME, "result \"" + name + "\": \"" + kind_.name + "\" has " + known);
}

void Object::process(const vxkit_image& /*src*/, const vxkit_image& /*dst*/)
{
    refuseCall("a filter");
}

void Object::learn(std::span<const vxkit_image> /*frames*/)
{
    refuseCall("\"cluster\"");
}

void Object::learnStatistics(const vxkit_image& /*mean*/, const vxkit_image& /*deviation*/)
{
    refuseCall("\"cluster\"");
}

void Object::addFrame(const vxkit_image& /*frame*/, vxkit_burst_report& /*report*/)
{
    refuseCall("one of super-resolution");
}

vxkit_frame_report Object::frameReport(int /*index*/) const
{
    refuseCall("one of super-resolution");
}

void Object::calibrate(const CalibrationImages& /*images*/)
{
    refuseCall("\"reference\"");
}

cv::Mat Object::result(const std::string& name) const
{
    refuseResult(name, "no named results");
}

cv::Mat Object::simulatedFrame(int /*index*/)
{
    refuseCall("a simulator");
}

cv::Mat Object::simulatedIdeal(int /*index*/)
{
    refuseCall("a simulator");
}

cv::Point2d Object::simulatedShift(int /*index*/)
{
    refuseCall("a simulator");
}

}  // namespace vxc
