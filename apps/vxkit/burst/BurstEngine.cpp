// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/burst/BurstEngine.h"

#include <algorithm>
#include <array>
#include <sstream>

#include "apps/vxkit/burst/BurstEngineParts.h"
#include "apps/vxkit/terminal/Failure.h"
#include "enhancement/superresolution/SuperResolutionCAdapter.h"
#include "enhancement/superresolution/engine/CameraTable.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"

namespace vxapp {

namespace {

using halvor::vx::EngineDefaults;

std::string meaningOf(int code)
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

std::string storedMessage()
{
    std::array<char, 1024> text{};
    SuperResolution_getErrorMessage(text.data(), static_cast<int>(text.size()) - 1);
    const std::string message(text.data());
    const std::size_t start = message.find_first_not_of(' ');
    return start == std::string::npos ? "" : message.substr(start);
}

class FlatEngine : public BurstEngine
{
public:
    FlatEngine(cv::Size frameSize, const SuperresSettings& settings);
    ~FlatEngine() override { SuperResolution_release(context_); }
    FlatEngine(const FlatEngine&) = delete;
    FlatEngine& operator=(const FlatEngine&) = delete;

    BurstAnswer addFrame(const cv::Mat_<float>& frame) override;
    cv::Mat_<float> image() override;

private:
    int context_;
    int frameCount_ = 0;
};

FlatEngine::FlatEngine(cv::Size frameSize, const SuperresSettings& settings)
    : context_(SuperResolution_init(frameSize.width, frameSize.height))
{
    if (context_ < 0)
        throw EngineError(storedMessage());
    SuperResolution_setCameraAndLensType(context_, settings.camera.c_str());
    try {
        applySetting("--reference", referenceRange(settings), settings.referenceIndex(),
                     [this](int index) { SuperResolution_setReferenceFrame(context_, index); });
    } catch (...) {
        SuperResolution_release(context_);
        throw;
    }
}

BurstAnswer FlatEngine::addFrame(const cv::Mat_<float>& frame)
{
    BurstAnswer answer;
    answer.code = SuperResolution_addImage(context_, frame.ptr<float>());
    if (answer.code == SuperResolution_failure || answer.code == SuperResolution_noStructure)
        answer.message = storedMessage();
    ++frameCount_;
    answer.hasImage = frameCount_ >= EngineDefaults::flatWindow && !isFailure(answer.code);
    return answer;
}

cv::Mat_<float> FlatEngine::image()
{
    int width = 0;
    int height = 0;
    if (SuperResolution_queryOutputImageSize(context_, &width, &height) != SuperResolution_success)
        throw EngineError(storedMessage());
    cv::Mat_<float> image(height, width);
    if (SuperResolution_getSuperresolutionImage(context_, image.ptr<float>()) != SuperResolution_success)
        throw EngineError(storedMessage());
    return image;
}

}  // namespace

EngineKind SuperresSettings::kind() const
{
    return engine.value_or(radiance || quality ? EngineKind::reference : EngineKind::production);
}

bool SuperresSettings::needsEngineClass() const
{
    return kind() != EngineKind::production || report || trace || window || relativeResidue || iterations ||
           weight || registrationError || psfSigma;
}

int SuperresSettings::windowSize() const
{
    return window.value_or(EngineDefaults::flatWindow);
}

int SuperresSettings::referenceIndex() const
{
    if (vxsupport::isFixedPoint(kind()))
        return reference.value_or(EngineDefaults::referenceIndex);
    return reference.value_or(std::min(EngineDefaults::flatReferenceIndex, windowSize() - 1));
}

std::vector<std::string> engineNames()
{
    std::vector<std::string> names;
    for (const EngineKind kind : vxsupport::allEngineKinds())
        names.emplace_back(vxsupport::nameOf(kind));
    return names;
}

EngineKind engineKindFrom(const std::string& name)
{
    for (const EngineKind kind : vxsupport::allEngineKinds())
        if (name == vxsupport::nameOf(kind))
            return kind;
    throw UsageError("--engine " + name + ": expected production, phase, reference, fixed or fpga");
}

std::optional<float> psfSigmaFor(const std::string& camera)
{
    std::string model;
    int fieldOfView = 0;
    if (!halvor::vx::decodeCameraAndLens(camera, model, fieldOfView))
        return std::nullopt;
    return halvor::vx::psfSigmaOf(model, fieldOfView);
}

std::string referenceRange(const SuperresSettings& settings)
{
    return "0 (the newest frame) to " + std::to_string(settings.windowSize() - 1) + " (the oldest)";
}

std::string cameraText(const std::string& camera)
{
    const std::optional<float> sigma = psfSigmaFor(camera);
    std::ostringstream text;
    if (sigma)
        text << "camera \"" << camera << "\": ";
    else
        text << (camera.empty() ? "no --camera" : "camera \"" + camera + "\" is not known")
             << "; an unknown camera is assumed: ";
    text << "point spread " << sigma.value_or(EngineDefaults::psfSigma) << " pixels of the result";
    return text.str();
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
    if (settings.needsEngineClass())
        return openEngineClass(frameSize, settings);
    return std::make_unique<FlatEngine>(frameSize, settings);
}

}  // namespace vxapp
