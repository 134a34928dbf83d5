// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <opencv2/core/mat.hpp>
#include <optional>
#include <string>
#include <vector>

#include "core/base/PointF.h"
#include "core/diagnostics/DebugDeviceBase.h"
#include "enhancement/superresolution/LocalMotionReport.h"
#include "support/drivers/EngineKind.h"

namespace vxsupport {

/// How a burst's frames are taken to move.
enum class BurstMotion
{
    global,  ///< one shift for each frame
    local,   ///< differently from place to place
    single,  ///< not at all: the reference frame alone is used
    best,    ///< as local if that promises a gain over the reference frame alone, else that
};

/// Two flat scenes of different radiance, from which the reference engine takes the line of each pixel:
/// radiance = count * gain + offset.
struct RadianceCalibration
{
    cv::Mat_<short> countsA;
    cv::Mat_<float> radianceA;
    cv::Mat_<short> countsB;
    cv::Mat_<float> radianceB;
};

/// With more than this share of defects it isn't the pixels that are wrong.
inline constexpr double largestDefectShare = 0.1;
/// A pixel whose gain or offset reaches this, as with equal counts in both scenes, takes the mean line of its
/// neighbours.
inline constexpr double largestLine = 1000.0;

/// The share of pixels without a line of their own.
double shareWithoutLine(const RadianceCalibration& calibration);

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
    /// Takes what the debug channels say.
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

/// Point spread of the camera and lens in a text; empty for a text that names no known ones.
std::optional<float> psfSigmaFor(const std::string& camera);

/// The three digits of each camera model whose point spread is known, with spaces between them.
std::string cameraModels();

/// What is wrong with a text of which there is no point spread, to stand behind it.
std::string unknownCameraText();

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

/// What a code means, for people.
const char* meaningOf(int code);

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
/// @throws SettingError if a setting is out of its range
/// @throws halvor::vx::Exception if the production engine can't be opened for the size
std::unique_ptr<BurstEngine> openBurstEngine(cv::Size frameSize, const SuperresSettings& settings);

}  // namespace vxsupport
