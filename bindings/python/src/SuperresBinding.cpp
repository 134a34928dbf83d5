// SPDX-License-Identifier: Apache-2.0
// Super-resolution of a whole burst, as the program does it.

#include <pybind11/stl.h>

#include <optional>
#include <utility>
#include <vector>

#include "apps/vxkit/burst/BurstEngine.h"
#include "apps/vxkit/burst/BurstInput.h"
#include "bindings/python/src/ArrayFile.h"
#include "bindings/python/src/Bindings.h"
#include "bindings/python/src/Errors.h"
#include "bindings/python/src/Quiet.h"

namespace vxpy {

namespace {

using vxapp::BurstAnswer;
using vxapp::BurstMotion;
using vxapp::Calibration;
using vxapp::SuperresSettings;

template <typename Value>
std::optional<Value> optionalOf(const py::dict& settings, const char* name)
{
    const py::object value = settings[name];
    if (value.is_none())
        return std::nullopt;
    try {
        if (py::isinstance<py::bool_>(value))
            throw py::cast_error();
        return value.cast<Value>();
    } catch (const py::cast_error&) {
        throw py::value_error(std::string(name) + ": expected a number" +
                              (std::is_integral_v<Value> ? " without fraction" : "") + ", found " +
                              std::string(py::repr(value)));
    }
}

SuperresSettings settingsFrom(const py::dict& given)
{
    SuperresSettings settings;
    settings.motion = vxapp::motionFrom(given["motion"].cast<std::string>());
    if (!given["engine"].is_none())
        settings.engine = vxapp::engineKindFrom(given["engine"].cast<std::string>());
    if (!given["camera"].is_none())
        settings.camera = given["camera"].cast<std::string>();
    if (!settings.camera.empty() && !vxsupport::psfSigmaFor(settings.camera))
        throw py::value_error(inPython("camera " + settings.camera + vxsupport::unknownCameraText()));
    settings.window = optionalOf<int>(given, "window");
    settings.reference = optionalOf<int>(given, "reference");
    settings.relativeResidue = optionalOf<float>(given, "relative_residue");
    settings.iterations = optionalOf<int>(given, "iterations");
    settings.weight = optionalOf<float>(given, "weight");
    settings.registrationError = optionalOf<float>(given, "registration_error");
    settings.psfSigma = optionalOf<float>(given, "psf_sigma");
    return settings;
}

/// What the newest window of a recording gives.
struct BurstResult
{
    BurstAnswer answer;
    cv::Mat_<float> image;
};

BurstResult solve(vxapp::Recording& recording, const SuperresSettings& settings,
                  const Calibration& calibration)
{
    const int window = vxapp::checkedWindow(recording, settings, "frames");
    const auto engine = vxsupport::openBurstEngine(recording.frameSize(), settings);
    const int first = recording.frameCount() - window;
    calibration.requirePlausible(calibration.toEngine(recording.values(first)), recording.nameOf(first));
    BurstResult result;
    for (int i = first; i < recording.frameCount(); ++i)
        result.answer = engine->addFrame(calibration.toEngine(recording.values(i)));
    if (result.answer.hasImage)
        result.image = calibration.fromEngine(engine->image());
    return result;
}

BurstResult solve(SharedRecording& shared, const SuperresSettings& settings, std::optional<double> scale,
                  std::optional<double> offset)
{
    const py::gil_scoped_release released;
    const std::lock_guard lock(shared.mutex);
    BurstResult result;
    quietly([&] {
        result = solve(shared.recording, settings,
                       vxapp::calibrationFor(settings, scale, offset, shared.recording));
    });
    return result;
}

template <typename Value>
py::object orNone(const std::optional<Value>& value)
{
    return value ? py::object(py::cast(*value)) : py::object(py::none());
}

py::dict told(BurstResult result)
{
    BurstAnswer& answer = result.answer;
    const auto frames = static_cast<py::ssize_t>(answer.frames.size());
    py::array_t<double> shifts(std::vector<py::ssize_t>{frames, 2});
    py::array_t<double> usable(frames);
    for (py::ssize_t i = 0; i < frames; ++i) {
        const vxapp::FrameReport& frame = answer.frames[static_cast<std::size_t>(i)];
        shifts.mutable_at(i, 0) = static_cast<double>(frame.shift.x);
        shifts.mutable_at(i, 1) = static_cast<double>(frame.shift.y);
        usable.mutable_at(i) = frame.usable;
    }
    py::dict told;
    told["code"] = answer.code;
    told["message"] = inPython(vxapp::textOf(answer));
    told["shifts"] = shifts;
    told["usable"] = usable;
    told["iterations"] = orNone(answer.iterations);
    told["factor"] = orNone(answer.factor);
    told["chose_single"] = answer.choseSingle;
    told["predicted_gain"] = py::none();
    if (answer.motion)
        told["predicted_gain"] = static_cast<double>(answer.motion->predictedGain);
    told["image"] = py::none();
    told["confidence"] = py::none();
    if (!result.image.empty())
        told["image"] = arrayOf(result.image, vxapp::SampleType::f32);
    if (!answer.confidence.empty())
        told["confidence"] = arrayOf(answer.confidence, vxapp::SampleType::f32);
    return told;
}

py::dict superres(const py::object& frames, const py::dict& given)
{
    const auto scale = optionalOf<double>(given, "scale");
    const auto offset = optionalOf<double>(given, "offset");
    SuperresSettings settings = settingsFrom(given);
    const auto recording = recordingOf(frames, "frames");
    // A single frame needs no window, which only tells which frames are results.
    if (settings.motion == BurstMotion::single && !settings.window)
        settings.window = std::min(settings.windowSize(), recording->recording.frameCount());
    return told(solve(*recording, settings, scale, offset));
}

}  // namespace

void addSuperres(py::module_& module)
{
    module.def("superres", &superres, py::arg("frames"), py::arg("settings"));
    module.def("engine_names", &vxapp::engineNames);
    module.def("motion_names", &vxapp::motionNames);
}

}  // namespace vxpy
