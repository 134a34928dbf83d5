#pragma once

#include <memory>
#include <opencv2/core/mat.hpp>
#include <optional>
#include <string>
#include <vector>

#include "core/base/PointF.h"

namespace vxapp {

/// Settings of a super-resolution run. What is left empty keeps the default of the flat interface.
struct BurstSettings
{
    std::string camera;  ///< camera and lens text; empty: unknown camera
    std::optional<int> reference;

    // Only the engine class takes these.
    std::optional<int> window;
    std::optional<float> relativeResidue;
    std::optional<int> iterations;
    std::optional<float> weight;
    std::optional<float> registrationError;
    std::optional<float> psfSigma;
    bool report = false;  ///< tell shifts and usable pixels

    bool needsEngineClass() const;
    int windowSize() const;
    int referenceIndex() const;
};

/// What the engines make of a camera and lens text, for people.
std::string cameraText(const std::string& camera);

/// What the last result tells of one frame of the window.
struct FrameReport
{
    PointF shift;   ///< displacement against the reference, in frame pixels; positive: scene further right or
                    ///< lower
    double usable;  ///< share of the pixels that were used, 0 to 1
};

/// Answer to one frame.
struct BurstAnswer
{
    int code = 0;                     ///< of the flat interface; -6 only with the engine class
    std::string message;              ///< the stored message of -4 and -999
    bool hasImage = false;            ///< a new image was computed
    std::optional<float> factor;      ///< achieved enlargement, where it is told
    std::vector<FrameReport> frames;  ///< oldest first; empty where not told
};

/// The code of an exception or a bad argument; its message tells which.
inline constexpr int exceptionCode = -999;

/// Whether a code means that no image came of the frame.
bool isFailure(int code);

/// The answer's stored message, or else the meaning of its code.
std::string textOf(const BurstAnswer& answer);

/// One super-resolution engine for frames of one size: keeps the latest frames and, from windowSize() frames
/// on, computes an image of twice the size with every frame.
class BurstEngine
{
public:
    virtual ~BurstEngine() = default;

    virtual BurstAnswer addFrame(const cv::Mat_<float>& frame) = 0;
    /// The image that was computed last.
    virtual cv::Mat_<float> image() = 0;
};

/// Opens a context of the flat interface or, where the settings need it, the engine class.
/// @throws UsageError if a setting is out of its range
/// @throws EngineError if no engine can be opened for the size
std::unique_ptr<BurstEngine> openBurstEngine(cv::Size frameSize, const BurstSettings& settings);

/// The engine class whatever the settings need.
std::unique_ptr<BurstEngine> openBurstEngineClass(cv::Size frameSize, const BurstSettings& settings);

}  // namespace vxapp
