#pragma once

#include <cmath>
#include <memory>
#include <opencv2/core/types.hpp>
#include <optional>
#include <sstream>
#include <string>

#include "apps/vxkit/BurstEngine.h"
#include "apps/vxkit/Failure.h"

// What the sources of BurstEngine share; not for other files.
namespace vxapp {

constexpr float enlargement = 2.0F;

// Codes of the flat interface, and of the engine classes behind it.
constexpr int fewGoodNeighbours = -2;
constexpr int unregisteredPixels = -3;
constexpr int noStructure = -4;
constexpr int largeDisplacement = -6;
constexpr int noCorner = -9;

/// Point spread of the camera and lens in a text; empty for a text that names no known ones.
std::optional<float> psfSigmaFor(const std::string& camera);

/// "0 (the newest frame) to 4 (the oldest)"
std::string referenceRange(const BurstSettings& settings);

/// Hands a value to an engine's setter. Engines refuse one by throwing a bare text, which names no option.
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

/// The engine class that the settings ask for.
std::unique_ptr<BurstEngine> openEngineClass(cv::Size frameSize, const BurstSettings& settings);

}  // namespace vxapp
