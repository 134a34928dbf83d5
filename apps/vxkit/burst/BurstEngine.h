// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <opencv2/core/mat.hpp>
#include <optional>
#include <string>
#include <vector>

#include "apps/vxkit/burst/RadianceCalibration.h"
#include "core/base/PointF.h"
#include "core/diagnostics/DebugDeviceBase.h"
#include "enhancement/superresolution/LocalMotionReport.h"
#include "support/EngineRuns.h"

namespace vxapp {

using vxsupport::EngineKind;

/// How a burst's frames are taken to move.
enum class BurstMotion
{
    global,  ///< one shift for each frame
    local,   ///< differently from place to place
    single,  ///< not at all: the reference frame alone is used
    best,    ///< as local if that promises a gain over the reference frame alone, else that
};

/// Settings of a super-resolution run. What is left empty keeps the default of the flat interface.
struct SuperresSettings
{
    std::string camera;  ///< camera and lens text; empty: unknown camera
    std::optional<int> reference;

    BurstMotion motion = BurstMotion::global;
    std::optional<EngineKind> engine;  ///< empty: the first one that knows all options

    std::optional<int> window;
    std::optional<float> relativeResidue;
    std::optional<int> iterations;
    std::optional<float> weight;
    std::optional<float> registrationError;
    std::optional<float> psfSigma;
    bool report = false;  ///< tell shifts, usable pixels and steps
    /// Takes what the debug channels say, and as channel "output" what the reference engine writes to the
    /// standard output.
    std::shared_ptr<halvor::vx::DebugDeviceBase> trace;

    // Only the reference engine takes these.
    std::optional<RadianceCalibration> radiance;  ///< frames are raw counts, results radiance
    bool quality = false;                         ///< tell the quality map

    /// The engine that these settings ask for.
    EngineKind kind() const;
    int windowSize() const;
    int referenceIndex() const;
};

/// Names of the motions, for people.
std::vector<std::string> motionNames();
/// @param name  one of motionNames()
BurstMotion motionFrom(const std::string& name);

/// Names of the engines, for people.
std::vector<std::string> engineNames();
/// @param name  one of engineNames()
EngineKind engineKindFrom(const std::string& name);

/// What the engines make of a camera and lens text, for people.
std::string cameraText(const SuperresSettings& settings);

/// What the last result tells of one frame of the window.
struct FrameReport
{
    PointF shift;   ///< displacement against the reference, in frame pixels; positive: scene further right or
                    ///< lower
    double usable;  ///< share of the pixels that were used, or their mean weight, 0 to 1
};

/// Answer to one frame.
struct BurstAnswer
{
    int code = 0;                                         ///< a SuperResolution_Code
    std::string message;                                  ///< the stored message of -4 and -999
    bool hasImage = false;                                ///< a new image was computed
    std::optional<float> factor;                          ///< achieved enlargement, where it is told
    std::optional<int> iterations;                        ///< solver steps, where they are told
    std::vector<FrameReport> frames;                      ///< oldest first; empty where not told
    std::optional<halvor::vx::LocalMotionReport> motion;  ///< of the engine of local motion
    bool choseSingle = false;    ///< the report promised no gain, so that the reference frame alone was used
    cv::Mat_<float> confidence;  ///< of that engine: how many frames count at each pixel of the reference
    cv::Mat_<float> quality;     ///< of the reference engine, where asked for; else empty
};

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

/// Opens the engine that the settings ask for.
/// @throws UsageError if a setting is out of its range
/// @throws EngineError if no engine can be opened for the size
std::unique_ptr<BurstEngine> openBurstEngine(cv::Size frameSize, const SuperresSettings& settings);

}  // namespace vxapp
