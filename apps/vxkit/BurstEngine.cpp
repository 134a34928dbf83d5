#include "apps/vxkit/BurstEngine.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <opencv2/core.hpp>
#include <sstream>

#include "apps/vxkit/Failure.h"
#include "core/base/Exception.h"
#include "enhancement/superresolution/CameraTable.h"
#include "enhancement/superresolution/SrFloat.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"
#include "enhancement/superresolution/SuperResolutionCAdapter.h"

namespace vxapp {

namespace {

// What the flat interface sets; the engine class is given the same, so that both compute the same bits.
constexpr int flatWindow = 5;
constexpr int flatReference = 3;
constexpr float enlargement = 2.0F;

constexpr int noStructure = -4;
constexpr int largeDisplacement = -6;
constexpr int noCorner = -9;

std::string meaningOf(int code)
{
    switch (code) {
        case 0:
            return "success";
        case -2:
            return "a bad pixel had too few good neighbours and took a fallback value";
        case -3:
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

// Empty for a text that names no known camera and lens.
std::optional<float> psfSigmaFor(const std::string& camera)
{
    std::string model;
    int fieldOfView = 0;
    if (!halvor::vx::decodeCameraAndLens(camera, model, fieldOfView))
        return std::nullopt;
    return halvor::vx::psfSigmaOf(model, fieldOfView);
}

std::string storedMessage()
{
    std::array<char, 1024> text{};
    SuperResolution_getErrorMessage(text.data(), static_cast<int>(text.size()) - 1);
    const std::string message(text.data());
    const std::size_t start = message.find_first_not_of(' ');
    return start == std::string::npos ? "" : message.substr(start);
}

BurstAnswer failed(const std::string& message)
{
    BurstAnswer answer;
    answer.code = exceptionCode;
    answer.message = message;
    return answer;
}

// Hands a value to an engine's setter. Engines refuse one by throwing a bare text, which names no option.
template <typename Value, typename Setter>
void applySetting(const std::string& option, const std::string& expected, Value value, const Setter& set)
{
    bool accepted = std::isfinite(static_cast<double>(value));
    try {
        if (accepted)
            set(value);
    } catch (const char*) {
        accepted = false;
    }
    if (accepted)
        return;
    std::ostringstream text;
    text << option << ' ' << value << ": expected " << expected;
    throw UsageError(text.str());
}

std::string referenceRange(const BurstSettings& settings)
{
    return "0 (the newest frame) to " + std::to_string(settings.windowSize() - 1) + " (the oldest)";
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

class EngineClass : public BurstEngine
{
public:
    EngineClass(cv::Size frameSize, const BurstSettings& settings);

    BurstAnswer addFrame(const cv::Mat_<float>& frame) override;
    cv::Mat_<float> image() override { return image_.clone(); }

private:
    void compute(BurstAnswer& answer);

    halvor::vx::SrFloat<halvor::vx::SrFloatRegistration2> engine_;
    int frameCount_ = 0;
    cv::Mat_<float> image_;
};

EngineClass::EngineClass(cv::Size frameSize, const BurstSettings& settings)
    : engine_(frameSize.width, frameSize.height, settings.windowSize(), enlargement)
{
    applySetting("--reference", referenceRange(settings), settings.referenceIndex(),
                 [this](int index) { engine_.setReferenceIndex(index); });
    applySetting("--weight", "1 or more", settings.weight.value_or(400.0F),
                 [this](float weight) { engine_.setWeightTV(weight); });
    applySetting("--registration-error", "a number above 0, at most 1",
                 settings.registrationError.value_or(0.0001F),
                 [this](float error) { engine_.setRegError(error); });
    applySetting("--relative-residue", "a number above 1e-6", settings.relativeResidue.value_or(0.007F),
                 [this](float residue) { engine_.setRelativeResidue(residue); });
    if (settings.iterations)
        applySetting("--iterations", "1 or more", *settings.iterations,
                     [this](int iterations) { engine_.setMaxCGIters(iterations); });
    engine_.setPsfSigma(psfSigmaFor(settings.camera).value_or(halvor::vx::unknownCameraPsfSigma));
    if (settings.psfSigma)
        applySetting("--psf-sigma", "a number above 0", *settings.psfSigma,
                     [this](float sigma) { engine_.setPsfSigma(sigma); });
}

BurstAnswer EngineClass::addFrame(const cv::Mat_<float>& frame)
{
    BurstAnswer answer;
    if (!engine_.checkImageStructureQuality(frame))
        answer.code = noStructure;
    try {
        const int added = engine_.addFrame(frame);
        if (added < 0)
            answer.code = added;
        ++frameCount_;
        if (frameCount_ >= engine_.getWindowSize())
            compute(answer);
    } catch (const halvor::vx::Exception& error) {
        answer = failed(error.what());
    } catch (const cv::Exception& error) {
        answer = failed("cv::Exception: " + error.err);
    }
    return answer;
}

void EngineClass::compute(BurstAnswer& answer)
{
    const float result = engine_.computeSR(image_);
    const int warning = result < 0.0F ? static_cast<int>(result) : 0;
    if (warning != 0)
        answer.code = warning;
    answer.hasImage = warning == 0 || warning == -3 || warning == largeDisplacement;
    if (!answer.hasImage)
        return;
    if (warning == 0)
        answer.factor = result;

    std::vector<PointF> shifts;
    std::vector<cv::Mat_<unsigned char>> masks;
    engine_.getCompleteShifts(shifts);
    engine_.getMasks(masks);
    for (std::size_t i = 0; i < std::min(shifts.size(), masks.size()); ++i) {
        const double pixels = static_cast<double>(masks[i].total());
        answer.frames.push_back({shifts[i], static_cast<double>(cv::countNonZero(masks[i])) / pixels});
    }
}

}  // namespace

bool BurstSettings::needsEngineClass() const
{
    return report || window || relativeResidue || iterations || weight || registrationError || psfSigma;
}

int BurstSettings::windowSize() const
{
    return window.value_or(flatWindow);
}

int BurstSettings::referenceIndex() const
{
    return reference.value_or(std::min(flatReference, windowSize() - 1));
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
    return code == noCorner || code == exceptionCode;
}

std::string textOf(const BurstAnswer& answer)
{
    return answer.message.empty() ? meaningOf(answer.code) : answer.message;
}

std::unique_ptr<BurstEngine> openBurstEngine(cv::Size frameSize, const BurstSettings& settings)
{
    if (settings.needsEngineClass())
        return openBurstEngineClass(frameSize, settings);
    return std::make_unique<FlatEngine>(frameSize, settings);
}

std::unique_ptr<BurstEngine> openBurstEngineClass(cv::Size frameSize, const BurstSettings& settings)
{
    try {
        return std::make_unique<EngineClass>(frameSize, settings);
    } catch (const halvor::vx::Exception& error) {
        throw EngineError(error.what());
    }
}

}  // namespace vxapp
