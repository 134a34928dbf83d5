// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/Look.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <sstream>

#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

// Static pattern removal takes no finer threshold, in counts.
constexpr int leastThreshold = 2;

const std::array<Look, 4> allLooks{{
    {"natural", "a third equalised, detail boosted a little", ToneSettings{0.35, 2.5, 0.002}, 25.0, 6.0, 8},
    {"strong", "two thirds equalised, detail boosted", ToneSettings{0.7, 4.0, 0.002}, 25.0, 5.0, 16},
    {"flat", "levels in proportion to the samples, no boost", ToneSettings{0.0, 1.0, 0.002}, 25.0, 0.0, 0},
    {"device", "the camera's own settings and equaliser", std::nullopt, 0.0, 0.0, 0},
}};

}  // namespace

std::span<const Look> looks()
{
    return allLooks;
}

const Look& lookNamed(const std::string& name)
{
    if (name.empty())
        return allLooks.front();
    std::string names;
    for (const Look& look : allLooks) {
        if (name == look.name)
            return look;
        names += (names.empty() ? "" : ", ") + std::string(look.name);
    }
    throw UsageError("--look " + name + ": expected one of " + names);
}

void applyLook(const Look& look, double noise, ChainSettings& settings)
{
    if (!look.tone)
        return;
    const auto counts = [noise](double noises) { return static_cast<int>(std::lround(noises * noise)); };
    settings.sprThreshold = std::clamp(counts(look.patternNoises), leastThreshold, settings.sprThreshold);
    settings.peakCoring = std::min(counts(look.coringNoises), settings.peakCoring);
    settings.peakGain = look.peakGain;
    settings.peakEnabled = look.peakGain > 0 ? 1 : 0;
}

std::string toneText(const ToneSettings& tone)
{
    std::ostringstream text;
    text << "equalised " << tone.equalisation * 100.0 << " %, plateau " << tone.plateau
         << " between the 1st and the 99th percentile";
    return text.str();
}

}  // namespace vxapp
