// SPDX-License-Identifier: Apache-2.0
#include "support/drivers/BurstEngine.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <utility>

#include "enhancement/superresolution/SuperResolutionCAdapter.h"
#include "enhancement/superresolution/engine/CameraTable.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"
#include "support/drivers/BurstEngineParts.h"
#include "support/drivers/SettingError.h"

namespace vxsupport {

namespace {

using halvor::vx::EngineDefaults;

constexpr std::array<std::pair<const char*, BurstMotion>, 4> motions{{
    {"global", BurstMotion::global},
    {"local", BurstMotion::local},
    {"single", BurstMotion::single},
    {"auto", BurstMotion::best},
}};

}  // namespace

EngineKind SuperresSettings::kind() const
{
    return engine.value_or(radiance || quality ? EngineKind::reference : EngineKind::production);
}

int SuperresSettings::windowSize() const
{
    return window.value_or(EngineDefaults::flatWindow);
}

int SuperresSettings::referenceIndex() const
{
    if (isFixedPoint(kind()))
        return reference.value_or(EngineDefaults::referenceIndex);
    return reference.value_or(std::min(EngineDefaults::flatReferenceIndex, windowSize() - 1));
}

std::vector<std::string> motionNames()
{
    std::vector<std::string> names;
    names.reserve(std::size(motions));
    for (const auto& [name, motion] : motions)
        names.emplace_back(name);
    return names;
}

BurstMotion motionFrom(const std::string& name)
{
    for (const auto& [known, motion] : motions)
        if (name == known)
            return motion;
    throw SettingError("motion " + name + ": expected global, local, single or auto");
}

std::vector<std::string> engineNames()
{
    std::vector<std::string> names;
    for (const EngineKind kind : allEngineKinds())
        names.emplace_back(nameOf(kind));
    return names;
}

EngineKind engineKindFrom(const std::string& name)
{
    for (const EngineKind kind : allEngineKinds())
        if (name == nameOf(kind))
            return kind;
    throw SettingError("engine " + name + ": expected production, phase, reference, fixed or fpga");
}

std::optional<float> psfSigmaFor(const std::string& camera)
{
    std::string model;
    int fieldOfView = 0;
    if (!halvor::vx::decodeCameraAndLens(camera, model, fieldOfView))
        return std::nullopt;
    return halvor::vx::psfSigmaOf(model, fieldOfView);
}

std::string cameraModels()
{
    return "310 315 316 320 321 322 325 330";
}

std::string unknownCameraText()
{
    return ": no known camera and lens; expected one of the models " + cameraModels() +
           " and FOV with the field of view, as in \"k325 FOV25\" (for another camera measure --psf-sigma "
           "with vxkit psf)";
}

std::string referenceRange(const SuperresSettings& settings)
{
    return "0 (the newest frame) to " + std::to_string(settings.windowSize() - 1) + " (the oldest)";
}

std::string cameraText(const SuperresSettings& settings)
{
    const std::string& camera = settings.camera;
    const float unknown =
        settings.motion == BurstMotion::global ? EngineDefaults::psfSigma : EngineDefaults::motionPsfSigma;
    const std::optional<float> sigma = psfSigmaFor(camera);
    std::ostringstream text;
    if (sigma)
        text << "camera \"" << camera << "\": ";
    else
        text << (camera.empty() ? "no --camera" : "camera \"" + camera + "\" is not known")
             << "; an unknown camera is assumed: ";
    text << "point spread " << sigma.value_or(unknown) << " pixels of the result";
    return text.str();
}

const char* meaningOf(int code)
{
    switch (code) {
        case SuperResolution_success:
            return "success";
        case SuperResolution_fallbackPixel:
            return "a bad pixel had too few good neighbours and took a fallback value";
        case SuperResolution_poorFrame:
            return "a frame has half or more of its pixels unregistered";
        case SuperResolution_noStructure:
            return "image has not enough structure";
        case SuperResolution_largeDisplacement:
            return "a frame is displaced by more than a tenth of its height";
        case SuperResolution_noCorner:
            return "no corner of the reference frame could be tracked";
        case SuperResolution_windowRestarted:
            return "the frame's values leave the range of the frames before; the window starts anew with it";
        case SuperResolution_registrationFailed:
            return "the frame could not be registered with the one before; the window starts anew with it";
        default:
            return "failure";
    }
}

bool isFailure(int code)
{
    switch (code) {
        case SuperResolution_success:
        case SuperResolution_fallbackPixel:
        case SuperResolution_poorFrame:
        case SuperResolution_noStructure:
        case SuperResolution_largeDisplacement:
            return false;
        default:
            return true;
    }
}

std::string textOf(const BurstAnswer& answer)
{
    return answer.message.empty() ? meaningOf(answer.code) : answer.message;
}

std::unique_ptr<BurstEngine> openBurstEngine(cv::Size frameSize, const SuperresSettings& settings)
{
    return settings.motion == BurstMotion::global ? openEngineClass(frameSize, settings)
                                                  : openMotionEngine(frameSize, settings);
}

}  // namespace vxsupport
