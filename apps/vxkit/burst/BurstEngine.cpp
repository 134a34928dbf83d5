#include "apps/vxkit/BurstEngine.h"

#include <algorithm>
#include <array>
#include <sstream>

#include "apps/vxkit/BurstEngineParts.h"
#include "apps/vxkit/Failure.h"
#include "enhancement/superresolution/CameraTable.h"
#include "enhancement/superresolution/SuperResolutionCAdapter.h"

namespace vxapp {

namespace {

// What the flat interface sets; the engine class is given the same, so that both compute the same bits.
constexpr int flatWindow = 5;
constexpr int flatReference = 3;

std::string meaningOf(int code)
{
    switch (code) {
        case 0:
            return "success";
        case fewGoodNeighbours:
            return "a bad pixel had too few good neighbours and took a fallback value";
        case unregisteredPixels:
            return "a frame has half or more of its pixels unregistered";
        case noStructure:
            return "image has not enough structure";
        case largeDisplacement:
            return "a frame is displaced by more than a tenth of its height";
        case noCorner:
            return "no corner of the reference frame could be tracked";
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
    FlatEngine(cv::Size frameSize, const BurstSettings& settings);
    ~FlatEngine() override { SuperResolution_release(context_); }
    FlatEngine(const FlatEngine&) = delete;
    FlatEngine& operator=(const FlatEngine&) = delete;

    BurstAnswer addFrame(const cv::Mat_<float>& frame) override;
    cv::Mat_<float> image() override;

private:
    int context_;
    int frameCount_ = 0;
};

FlatEngine::FlatEngine(cv::Size frameSize, const BurstSettings& settings)
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
    if (answer.code == exceptionCode || answer.code == noStructure)
        answer.message = storedMessage();
    ++frameCount_;
    answer.hasImage = frameCount_ >= flatWindow && !isFailure(answer.code);
    return answer;
}

cv::Mat_<float> FlatEngine::image()
{
    int width = 0;
    int height = 0;
    if (SuperResolution_queryOutputImageSize(context_, &width, &height) != 0)
        throw EngineError(storedMessage());
    cv::Mat_<float> image(height, width);
    if (SuperResolution_getSuperresolutionImage(context_, image.ptr<float>()) != 0)
        throw EngineError(storedMessage());
    return image;
}

}  // namespace

EngineKind BurstSettings::kind() const
{
    return engine.value_or(radiance || quality ? EngineKind::reference : EngineKind::production);
}

bool BurstSettings::needsEngineClass() const
{
    return kind() != EngineKind::production || report || trace || window || relativeResidue || iterations ||
           weight || registrationError || psfSigma;
}

int BurstSettings::windowSize() const
{
    return window.value_or(flatWindow);
}

int BurstSettings::referenceIndex() const
{
    return reference.value_or(std::min(flatReference, windowSize() - 1));
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
    throw UsageError("--engine " + name + ": expected production, phase or reference");
}

std::optional<float> psfSigmaFor(const std::string& camera)
{
    std::string model;
    int fieldOfView = 0;
    if (!halvor::vx::decodeCameraAndLens(camera, model, fieldOfView))
        return std::nullopt;
    return halvor::vx::psfSigmaOf(model, fieldOfView);
}

std::string referenceRange(const BurstSettings& settings)
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
    text << "point spread " << sigma.value_or(halvor::vx::unknownCameraPsfSigma) << " pixels of the result";
    return text.str();
}

bool isFailure(int code)
{
    switch (code) {
        case 0:
        case fewGoodNeighbours:
        case unregisteredPixels:
        case noStructure:
        case largeDisplacement:
            return false;
        default:
            return true;
    }
}

std::string textOf(const BurstAnswer& answer)
{
    return answer.message.empty() ? meaningOf(answer.code) : answer.message;
}

std::unique_ptr<BurstEngine> openBurstEngine(cv::Size frameSize, const BurstSettings& settings)
{
    if (settings.needsEngineClass())
        return openEngineClass(frameSize, settings);
    return std::make_unique<FlatEngine>(frameSize, settings);
}

}  // namespace vxapp
