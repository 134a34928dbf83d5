// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SuperResolutionCAdapter.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <utility>
#include <vector>

#include "core/base/Exception.h"
#include "core/base/NeverDestroyed.h"
#include "core/diagnostics/DebugDeviceConsole.h"
#include "core/diagnostics/LogFacility.h"
#include "core/io/ImageIO.h"
#include "enhancement/superresolution/SrFloat.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"
#include "enhancement/superresolution/engine/CameraTable.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"

namespace halvor::vx {

namespace {

using Engine = SrFloat<SrFloatRegistration2>;

constexpr int minimumFrameCount = 5;
constexpr float enlargement = EngineDefaults::enlargement;

constexpr const char* frameStreamPath = "C:/temp/SrFloat.pfm";
constexpr const char* resultPath = "C:/temp/SrFloat-Result.pfm";

/// What belongs to one context number. Copies share the engine and the image, since records move when the
/// table grows.
struct SuperResolution_CtxData
{
    int width = 0;
    int height = 0;
    cv::Mat_<float> srImage;
    /// Set exactly while the context is open.
    std::shared_ptr<Engine> engine;
    ImageIO debugStream{ImageIO::pfm};
    std::shared_ptr<DebugDeviceBase> debugDevice;
    int frameCount = 0;

    /// Takes a device only from an open context on; init() hands one over before there is an engine, so none
    /// is ever kept.
    void setDebugDevice(const std::shared_ptr<DebugDeviceBase>& device)
    {
        if (engine && device)
            debugDevice = device;
    }
};

// Never destroyed: nothing is released when the library is unloaded, and engines still open then would meet
// process-wide objects that are gone.
std::vector<SuperResolution_CtxData>& contextTable()
{
    static auto& table = neverDestroyed<std::vector<SuperResolution_CtxData>>();
    return table;
}

std::string& errorMessage()
{
    static auto& message = neverDestroyed<std::string>();
    return message;
}

SuperResolution_CtxData* openContext(int context)
{
    auto& table = contextTable();
    if (context < 0 || static_cast<std::size_t>(context) >= table.size())
        return nullptr;
    SuperResolution_CtxData& record = table[static_cast<std::size_t>(context)];
    return record.engine ? &record : nullptr;
}

// The context of an entry point that answers -999 for an invalid one.
SuperResolution_CtxData* checkedContext(int context)
{
    SuperResolution_CtxData* record = openContext(context);
    if (record == nullptr)
        errorMessage() = "Context invalid.";
    return record;
}

void configureLog()
{
    const char* path = std::getenv("VXKIT_LOG_FILE");
    LogFacility& log = LogFacility::getInstance();
    if (path != nullptr && *path != '\0') {
        log.setLogLevel(LogFacility::progress);
        log.openLogFile(path, false);
    } else {
        log.setLogLevel(LogFacility::off);
        log.resetStream();
    }
}

int lowestFreeContext()
{
    auto& table = contextTable();
    const auto free = std::find_if(table.begin(), table.end(),
                                   [](const SuperResolution_CtxData& record) { return !record.engine; });
    const auto context = static_cast<int>(free - table.begin());
    if (free == table.end())
        table.resize(table.size() + 1);
    return context;
}

std::shared_ptr<DebugDeviceBase> debugDeviceFor(int context)
{
    if (context == 0)
        return std::make_shared<DebugDeviceConsole>();
    const SuperResolution_CtxData* first = openContext(0);
    return first != nullptr ? first->debugDevice : nullptr;
}

void openContextRecord(int context, int width, int height)
{
    const std::shared_ptr<DebugDeviceBase> device = debugDeviceFor(context);
    SuperResolution_CtxData& record = contextTable()[static_cast<std::size_t>(context)];
    record.setDebugDevice(device);
    auto engine = std::make_shared<Engine>(width, height, EngineDefaults::flatWindow, enlargement);
    record.width = width;
    record.height = height;
    record.frameCount = 0;
    record.srImage.create(static_cast<int>(static_cast<float>(height) * enlargement),
                          static_cast<int>(static_cast<float>(width) * enlargement));
    // A record with an engine is an open context: last, behind what may throw.
    record.engine = std::move(engine);

    record.engine->setReferenceIndex(EngineDefaults::flatReferenceIndex);
    record.engine->setWeightTV(EngineDefaults::weightTV);
    record.engine->setRegError(EngineDefaults::regError);
    record.engine->setRelativeResidue(EngineDefaults::relativeResidue);

    if (LogFacility::getInstance().getLogLevel() == LogFacility::progress) {
        record.debugStream.open(frameStreamPath);
        VX_LOG(LogFacility::progress, "  opening debug image stream to: " << frameStreamPath);
    }
}

// Runs what may throw; a failure stores its message and gives SuperResolution_failure in place of the result.
template <typename Work>
int guarded(Work&& work)
{
    try {
        return std::forward<Work>(work)();
    } catch (const Exception& failure) {
        errorMessage() = failure.what();
    } catch (const cv::Exception& failure) {
        errorMessage() = "cv::Exception: " + failure.err;
    } catch (...) {
        errorMessage() = "Unknown exception in addImage()";
    }
    return SuperResolution_failure;
}

// The result of computeSR is exact for its negative codes; a large displacement is no code of this interface.
int returnCode(int before, int added, float computed)
{
    const auto isResult = [computed](SuperResolution_Code code) {
        return computed == static_cast<float>(code);
    };
    int code = before;
    if (isResult(SuperResolution_fallbackPixel) || added == SuperResolution_fallbackPixel)
        code = SuperResolution_fallbackPixel;
    if (isResult(SuperResolution_poorFrame))
        code = SuperResolution_poorFrame;
    if (isResult(SuperResolution_noCorner))
        code = SuperResolution_noCorner;
    return code;
}

int processFrame(SuperResolution_CtxData& record, const float* irImage)
{
    const cv::Mat_<float> frame(record.height, record.width, const_cast<float*>(irImage));  // only read
    if (record.debugStream.isOpen())
        record.debugStream << frame;

    int code = SuperResolution_success;
    if (!record.engine->checkImageStructureQuality(frame)) {
        errorMessage() = "  image has not enough structure";
        code = SuperResolution_noStructure;
    }

    VX_LOG(LogFacility::progress, "  calling addFrame(...)");
    const int added = record.engine->addFrame(irImage);
    // Only a count of less than five tells anything, so it may stay at its end.
    if (record.frameCount < std::numeric_limits<int>::max())
        ++record.frameCount;

    float computed = 0.0F;
    if (record.frameCount >= minimumFrameCount) {
        VX_LOG(LogFacility::progress, "  calling processFrame(...)");
        computed = record.engine->computeSR(record.srImage.ptr<float>());
        VX_LOG(LogFacility::progress, "  finished processFrame(...)");
    }
    return returnCode(code, added, computed);
}

void storeTooFewFrames()
{
    errorMessage() = "Not enough input images (<5)";
}

}  // namespace

}  // namespace halvor::vx

using namespace halvor::vx;

int SuperResolution_init(int width, int height)
{
    configureLog();
    VX_LOG(LogFacility::progress, "SuperResolution_init( " << width << " , " << height << " )");
    int context = lowestFreeContext();
    try {
        openContextRecord(context, width, height);
    } catch (const Exception& failure) {
        errorMessage() = failure.what();
        context = -1;
    }
    VX_LOG(LogFacility::progress, "  got context number:" << context);
    return context;
}

int SuperResolution_setCameraAndLensType(int context, const char* cameraAndLens)
{
    const std::string text = cameraAndLens != nullptr ? cameraAndLens : "";
    VX_LOG(LogFacility::progress, "SuperResolution_setCameraAndLensType(" << text << ")");
    float sigma = EngineDefaults::psfSigma;
    std::string model;
    int fieldOfView = -1;
    if (decodeCameraAndLens(text, model, fieldOfView)) {
        VX_LOG(LogFacility::progress, "  decoded camera: " << model << " FOV: " << fieldOfView);
        sigma = psfSigmaOf(model, fieldOfView);
    }
    VX_LOG(LogFacility::progress, "  using sigma: " << sigma);
    // Hosts know no failure of this call; without an engine there is nothing to set.
    if (SuperResolution_CtxData* record = openContext(context))
        record->engine->setPsfSigma(sigma);
    return SuperResolution_success;
}

int SuperResolution_addImage(int context, const float* irImage)
{
    VX_LOG(LogFacility::progress, "SuperResolution_addImage(" << context << ", ...)");
    SuperResolution_CtxData* record = checkedContext(context);
    if (record == nullptr)
        return SuperResolution_failure;
    if (record->width == 0 || record->height == 0) {
        errorMessage() = "Size of expected Ir images unknown";
        return SuperResolution_failure;
    }
    if (irImage == nullptr) {
        errorMessage() = "ir image data pointer is NULL";
        return SuperResolution_failure;
    }
    return guarded([&] { return processFrame(*record, irImage); });
}

int SuperResolution_queryOutputImageSize(int context, int* width, int* height)
{
    VX_LOG(LogFacility::progress, "SuperResolution_queryOutputImageSize("
                                      << context << " , " << static_cast<const void*>(width) << " , "
                                      << static_cast<const void*>(height) << ")");
    SuperResolution_CtxData* record = checkedContext(context);
    if (record == nullptr)
        return SuperResolution_failure;
    int code = SuperResolution_success;
    if (record->frameCount < minimumFrameCount) {
        storeTooFewFrames();
        code = guarded([&] {
            record->engine->computeSR(record->srImage.ptr<float>());
            return SuperResolution_tooFewFrames;
        });
    }
    *width = record->srImage.cols;
    *height = record->srImage.rows;
    return code;
}

int SuperResolution_getSuperresolutionImage(int context, float* irMosaic)
{
    VX_LOG(LogFacility::progress, "SuperResolution_getSuperresolutionImage("
                                      << context << " , float* " << static_cast<const void*>(irMosaic)
                                      << ")");
    SuperResolution_CtxData* record = checkedContext(context);
    if (record == nullptr)
        return SuperResolution_failure;
    int code = SuperResolution_success;
    if (irMosaic == nullptr) {
        errorMessage() = "Ir mosaic data pointer is NULL.";
        code = SuperResolution_failure;
    }
    if (record->frameCount < minimumFrameCount) {
        storeTooFewFrames();
        code = SuperResolution_tooFewFrames;
    }
    if (LogFacility::getInstance().getLogLevel() == LogFacility::progress)
        ImageIO::save(resultPath, record->srImage, ImageIO::pfm);
    // Not skipped after a failure: a host gets the image as it is, and must not pass a null pointer.
    std::copy_n(record->srImage.ptr<float>(), record->srImage.total(), irMosaic);
    return code;
}

int SuperResolution_setReferenceFrame(int context, int index)
{
    // The misspelt name is the text that readers of the log search for.
    VX_LOG(LogFacility::progress, "SuperResolution_setReferencFrame(" << context << " , " << index << ")");
    SuperResolution_CtxData* record = checkedContext(context);
    if (record == nullptr)
        return SuperResolution_failure;
    record->engine->setReferenceIndex(index);
    return SuperResolution_success;
}

int SuperResolution_getErrorMessage(char* buffer, int size)
{
    if (size > 0)
        std::strncpy(buffer, errorMessage().c_str(), static_cast<std::size_t>(size));
    return SuperResolution_success;
}

int SuperResolution_release(int context)
{
    VX_LOG(LogFacility::progress, "SuperResolution_release( " << context << " )");
    SuperResolution_CtxData* record = checkedContext(context);
    if (record == nullptr)
        return SuperResolution_failure;
    record->engine.reset();
    record->srImage.release();
    record->height = 0;
    record->width = 0;
    if (record->debugStream.isOpen()) {
        record->debugStream.close();
        VX_LOG(LogFacility::progress, "  closing debug image stream");
    }
    return SuperResolution_success;
}
