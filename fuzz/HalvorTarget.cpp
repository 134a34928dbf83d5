// SPDX-License-Identifier: Apache-2.0
#include <array>

#include "apps/halvor/CommandLine.h"
#include "apps/halvor/Settings.h"
#include "apps/vxkit/terminal/QuietStream.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/Sandbox.h"

// halvor on a settings file, which a zero byte ends, and the stream behind it.
namespace {

constexpr long long largestFrame = 1 << 12;
constexpr long long tooLargeFrame = 1 << 24;  // is refused

bool hasSmallFrames(const char* settingsPath)
{
    halvorapp::Settings settings;
    halvorapp::readSettings(settingsPath, settings);
    const long long pixels = static_cast<long long>(settings.cols) * settings.rows;
    return pixels <= largestFrame || pixels > tooLargeFrame;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto [settings, stream] = vxfuzz::splitAtZero(vxfuzz::textOf(data, size));
    const vxfuzz::Sandbox& sandbox = vxfuzz::Sandbox::instance();
    sandbox.clear();
    sandbox.write("settings.ini", settings);
    sandbox.write("stream.raw", stream);
    if (!hasSmallFrames("settings.ini"))
        return 0;
    const vxapp::QuietStandardError quiet;
    const std::array arguments{"halvor", "-s", "settings.ini", "stream.raw", "stream.raw"};
    const int status = halvorapp::runHalvor(static_cast<int>(arguments.size()), arguments.data());
    vxfuzz::require(status == 0 || status == 1, "halvor ends with status 0 or 1");
    return 0;
}
