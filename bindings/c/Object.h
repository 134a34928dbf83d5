// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <opencv2/core/mat.hpp>
#include <span>
#include <string>
#include <string_view>

#include "bindings/c/Settings.h"
#include "bindings/c/vxkit.h"

namespace vxc {

class Object;

/// Two flat scenes, as a host hands them over.
struct CalibrationImages
{
    const vxkit_image* countsA;
    const vxkit_image* radianceA;
    const vxkit_image* countsB;
    const vxkit_image* radianceB;
};

/// What can be made.
struct Kind
{
    const char* name;
    vxkit_family family;
    const char* summary;
    vxkit_type input;
    vxkit_type output;
    const SettingsTable& (*settings)();
    std::unique_ptr<Object> (*make)(const Kind& kind, cv::Size frame);
};

std::span<const Kind> allKinds();
/// @throws Failure  for an unknown name
const Kind& kindNamed(std::string_view name);

/// What stands behind a handle. All that its kind does not do ends with a Failure; images come checked for their
/// memory, sizes and types are checked here.
class Object
{
public:
    Object(const Kind& kind, cv::Size frame);
    virtual ~Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    const Kind& kind() const { return kind_; }

    void setNumber(const std::string& name, double value);
    void setText(const std::string& name, const std::string& value);
    double getNumber(const std::string& name) const;
    std::string getText(const std::string& name) const;

    /// Forgets all but the settings.
    void reset();
    /// The same, but opens nothing anew before it is needed.
    void forget() noexcept;

    virtual void process(const vxkit_image& src, const vxkit_image& dst);
    virtual void learn(std::span<const vxkit_image> frames);
    virtual void learnStatistics(const vxkit_image& mean, const vxkit_image& deviation);

    /// @param report  is filled also where a Failure tells of an engine's
    virtual void addFrame(const vxkit_image& frame, vxkit_burst_report& report);
    virtual vxkit_frame_report frameReport(int index) const;

    /// @param images  all there, or all null for none
    virtual void calibrate(const CalibrationImages& images);

    /// @return a header on the result
    virtual cv::Mat result(const std::string& name) const;

    virtual cv::Mat simulatedFrame(int index);
    virtual cv::Mat simulatedIdeal(int index);
    virtual cv::Point2d simulatedShift(int index);

protected:
    cv::Size frame() const { return frame_; }
    const SettingsTable& table() const { return kind_.settings(); }
    const SettingValues& values() const { return values_; }
    /// Opens what computes, by the settings as they are; to be called ahead of each use.
    void start();
    /// Opens it at the construction, where sizes show whether they can be taken.
    void openFirst();
    /// Opens it anew ahead of the first use.
    void openLater() { isOpen_ = false; }
    /// @throws Failure  behind the first use
    void requireUnused(const std::string& what) const;
    void presume(const std::string& name, double value) { values_.presume(indexOf(table(), name), value); }

    [[noreturn]] void refuseCall(const char* expectedKind) const;
    [[noreturn]] void refuseResult(const std::string& name, const char* known) const;

private:
    /// Opens anew with the settings as they are, over what is closed.
    virtual void open() = 0;
    /// Drops what computes, and its results.
    virtual void close() noexcept = 0;
    /// A setting changed that acts at once.
    virtual void apply(std::size_t /*index*/) {}
    /// The value that stands for one that nobody chose, as other settings have it.
    virtual double effectiveNumber(std::size_t index) const { return values_.number(index); }

    std::size_t changeable(const std::string& name) const;
    template <typename Value>
    void choose(std::size_t index, Value value);

    const Kind& kind_;
    cv::Size frame_;
    SettingValues values_;
    bool isOpen_ = false;  // what computes has the settings as they are
    bool isUsed_ = false;
};

}  // namespace vxc
