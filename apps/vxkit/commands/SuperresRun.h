// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "apps/files/OutputFile.h"
#include "apps/vxkit/arguments/RecordingArguments.h"
#include "apps/vxkit/burst/BurstEngine.h"
#include "apps/vxkit/burst/BurstSummary.h"
#include "apps/vxkit/burst/Calibration.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/output/ResultFiles.h"
#include "apps/vxkit/terminal/Progress.h"
#include "apps/vxkit/terminal/Results.h"
#include "core/diagnostics/DebugDeviceFile.h"

namespace vxapp {

/// What the command was asked for.
struct SuperresOptions
{
    RecordingOptions recording;
    std::optional<double> scale;
    std::optional<double> offset;
    bool lastOnly = false;
    SuperresSettings engine;
    std::string engineName;
    std::string radiance;  // calibration file
    std::string trace;     // file, or "-" for the standard error stream
    std::string motionName = "global";
    ResultOptions results;
    bool fillGaps = false;
};

/// One run of the command: feeds the frames in their order and writes what the engine answers.
class SuperresRun
{
public:
    SuperresRun(const SuperresOptions& options, Results& results);
    void run();

private:
    BurstAnswer answerTo(const cv::Mat_<float>& frame);
    void addFrame(int index);
    void tell(int number, const BurstAnswer& answer, const std::string& written) const;
    void tellFrames(int number, const BurstAnswer& answer) const;
    void fillGap(int index);
    void note(int number, const BurstAnswer& answer, const std::string& written);
    void finish();
    void openTrace(const SuperresOptions& options);
    void feedFrames();
    void finishTrace();
    void noteFailure(int index, const BurstAnswer& answer);

    Results& printer_;
    Recording recording_;
    SuperresSettings settings_;
    std::unique_ptr<vxfiles::OutputFile> traceFile_;
    std::shared_ptr<halvor::vx::DebugDeviceFile> tracer_;
    Calibration calibration_;
    int window_;
    int first_;  // index of the first frame that is fed
    ResultFiles files_;
    std::unique_ptr<BurstEngine> engine_;
    Progress progress_;
    BurstSummary summary_;
    bool fillsGaps_;
    int failures_ = 0;
    std::string firstFailure_;
};

}  // namespace vxapp
