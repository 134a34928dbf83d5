// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/FrameRun.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/stream/SampleScale.h"
#include "apps/vxkit/terminal/Progress.h"
#include "core/diagnostics/StopWatch.h"
#include "support/Threads.h"

namespace vxapp {

namespace {

int flippedBits(SampleForm form)
{
    return form == SampleForm::unsignedCounts ? 0x8000 : 0;
}

}  // namespace

void toSamples(const cv::Mat_<std::uint16_t>& counts, SampleForm form, cv::Mat_<short>& samples)
{
    samples.create(counts.size());
    std::transform(
        counts.begin(), counts.end(), samples.begin(),
        [flipped = flippedBits(form)](std::uint16_t count) { return static_cast<short>(count ^ flipped); });
}

void toCounts(const cv::Mat_<short>& samples, SampleForm form, cv::Mat_<std::uint16_t>& counts)
{
    counts.create(samples.size());
    std::transform(
        samples.begin(), samples.end(), counts.begin(),
        [flipped = flippedBits(form)](short sample) { return static_cast<std::uint16_t>(sample ^ flipped); });
}

RunTimes forEachFrame(Recording& recording, SampleScale& scale,
                      const std::function<void(const cv::Mat_<short>& samples)>& process,
                      const std::function<void(int index)>& deliver)
{
    Progress progress(recording.frameCount());
    RunTimes times;
    halvor::vx::StopWatch whole;
    halvor::vx::StopWatch part;
    cv::Mat_<short> samples;
    whole.start();
    for (int i = 0; i < recording.frameCount(); ++i) {
        progress.show(i + 1);
        vxsupport::chooseThreads(static_cast<std::size_t>(recording.frameSize().area()));
        scale.toSamples(recording, i, samples);
        part.start();
        process(samples);
        part.stop();
        times.process += part.timeElapsed();
        deliver(i);
        ++times.frames;
    }
    whole.stop();
    times.total = whole.timeElapsed();
    return times;
}

std::string speedText(const RunTimes& times, cv::Size size, const std::string& name)
{
    // A clock's tick at least, so that the rates stay finite.
    const double total = std::max(times.total, 1e-9);
    const double process = std::max(times.process, 1e-9);
    const double pixels = static_cast<double>(times.frames) * static_cast<double>(size.area());
    std::ostringstream text;
    text << times.frames << (times.frames == 1 ? " frame in " : " frames in ") << std::setprecision(3)
         << total << " s, " << std::fixed << std::setprecision(0) << times.frames / total
         << " frames per second; " << name << " alone " << times.frames / process << " frames per second, "
         << std::setprecision(1) << process / pixels * 1e9 << " ns per pixel";
    return text.str();
}

}  // namespace vxapp
