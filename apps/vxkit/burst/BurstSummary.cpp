// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/burst/BurstSummary.h"

#include <cmath>
#include <iomanip>
#include <sstream>

#include "enhancement/superresolution/engine/FrameQuality.h"

namespace vxapp {

namespace {

using halvor::vx::BurstOutcome;

constexpr double littleUse = 0.5;  // share of the pixels
constexpr double noUse = 0.05;
constexpr int mostListed = 10;

std::string outcomeText(BurstOutcome outcome)
{
    switch (outcome) {
        case BurstOutcome::oneFrame:
            return "the window holds no other frame";
        case BurstOutcome::noFrameFits:
            return "no other frame agrees with it";
        case BurstOutcome::onePosition:
            return "all frames see the scene from the same position, which adds no detail";
        default:
            return "several frames promise no gain";
    }
}

}  // namespace

std::string motionText(const BurstAnswer& answer, Unit unit)
{
    if (!answer.motion)
        return "";
    const halvor::vx::LocalMotionReport& report = *answer.motion;
    std::ostringstream text;
    text << std::setprecision(3) << "      noise " << report.noise
         << (unit == Unit::degrees ? " K" : " counts");
    if (report.outcome == BurstOutcome::severalFrames)
        text << ", effective frames " << report.effectiveFrames << " of " << report.frames.size()
             << ", sampling positions " << report.positions << " of 4, expected gain over the single frame "
             << std::fixed << std::setprecision(1) << report.predictedGain << " dB";
    if (answer.choseSingle || report.outcome != BurstOutcome::severalFrames)
        text << "; made of the reference frame alone: " << outcomeText(report.outcome);
    return text.str() + "\n";
}

std::string BurstSummary::reasonFor(const BurstAnswer& answer, std::size_t place) const
{
    const FrameReport& frame = answer.frames[place];
    std::ostringstream reason;
    if (answer.motion && !answer.motion->frames[place].fits)
        return "no motion brings it onto the reference";
    if (frame.usable <= littleUse)
        reason << (frame.usable < noUse ? "" : "only ") << std::lround(frame.usable * 100.0)
               << " % of it agrees with the reference";
    if (halvor::vx::isLargeDisplacement({frame.shift.x, std::abs(frame.shift.y)}, frameHeight_))
        reason << (reason.str().empty() ? "" : "; ") << "displaced by " << std::fixed << std::setprecision(1)
               << frame.shift.x << ' ' << frame.shift.y << " pixels, more than a tenth of the height";
    return reason.str();
}

void BurstSummary::add(int number, const BurstAnswer& answer, int reference)
{
    if (answer.hasImage)
        ++results_;
    if (answer.hasImage || answer.code != 0)
        ++codes_[answer.code];
    const int count = static_cast<int>(answer.frames.size());
    for (int i = 0; i < count; ++i) {
        const std::string reason =
            i == count - 1 - reference ? "" : reasonFor(answer, static_cast<std::size_t>(i));
        if (reason.empty())
            continue;
        Neglected& frame = neglected_[number - count + 1 + i];
        if (frame.windows++ == 0)
            frame.reason = reason;
    }
}

std::string BurstSummary::text() const
{
    std::ostringstream text;
    text << results_ << (results_ == 1 ? " result" : " results");
    if (filled_ > 0)
        text << ", and " << filled_ << (filled_ == 1 ? " gap" : " gaps")
             << " filled by plain enlargement of one frame";
    const char* separator = "; codes: ";
    for (const auto& [code, count] : codes_) {
        text << separator << count << " x " << code;
        separator = ", ";
    }
    text << '\n';
    int listed = 0;
    for (const auto& [number, frame] : neglected_) {
        if (++listed > mostListed) {
            text << "  and " << neglected_.size() - mostListed << " more frames with little or no part\n";
            break;
        }
        text << "  frame " << number << " had little or no part in " << frame.windows
             << (frame.windows == 1 ? " window: " : " windows: ") << frame.reason << '\n';
    }
    return text.str();
}

}  // namespace vxapp
