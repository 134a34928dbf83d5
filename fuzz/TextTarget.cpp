// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <filesystem>
#include <string>

#include "apps/halvor/Settings.h"
#include "apps/vxkit/burst/RadianceCalibration.h"
#include "apps/vxkit/commands/Program.h"
#include "apps/vxkit/formats/SampleType.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/stream/ChainSettings.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/vectors/VectorSet.h"
#include "enhancement/superresolution/engine/CameraTable.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/Sandbox.h"

// The parsers of texts: the first letter of an input chooses one, the rest is its text.
namespace {

const cv::Size frameSize(8, 6);

// Settings of the blocks, as halvor and vxkit take them.
void readSettings(const std::string& path)
{
    halvorapp::Settings settings;
    vxfuzz::require(halvorapp::readSettings(path.c_str(), settings), "settings can be opened");
    vxapp::ChainOptions options;
    options.file = path;
    vxapp::openChain(vxapp::chainSettings(options, frameSize, 1.0), frameSize);
}

void readRadiance(const std::string& path)
{
    const vxapp::RadianceCalibration read = vxapp::readRadianceCalibration(path, frameSize, "8x6");
    vxfuzz::require(read.countsA.size() == frameSize && read.radianceB.size() == frameSize,
                    "a calibration has the size of the frames");
}

// The command finds no recording, so that it ends behind its options.
void readConfig(const std::string& path, std::size_t choice)
{
    constexpr std::array commands{"info", "enhance", "superres", "filter"};
    const std::array words{"vxkit", "--config", path.c_str(), commands.at(choice % commands.size()),
                           "missing.npy"};
    const int status = vxapp::runProgram(static_cast<int>(words.size()), words.data());
    vxfuzz::require(status == vxapp::exitSuccess || status == vxapp::exitUsage,
                    "bad options end with their status");
}

void readWord(const std::string& text)
{
    std::string model;
    int fieldOfView = 0;
    if (halvor::vx::decodeCameraAndLens(text, model, fieldOfView))
        vxfuzz::require(model.size() == 4 && fieldOfView != -1, "a camera has a model and a lens");
    vxfuzz::require(halvor::vx::psfSigmaOf(model, fieldOfView) > 0.0F, "a point spread has a width");
    vxapp::sampleTypeNamed(text);
    vxapp::parsePair(text, ':');
    vxapp::parseSize(text);
}

void readVectors(const std::string& path)
{
    std::filesystem::rename(path, "vectors.txt");
    vxapp::requestOf(".", {});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view bytes = vxfuzz::textOf(data, size);
    if (bytes.empty() || !vxfuzz::staysInside(bytes))
        return 0;
    const vxfuzz::Sandbox& sandbox = vxfuzz::Sandbox::instance();
    sandbox.clear();
    sandbox.write("cold.raw", std::string(96, '\1'));
    sandbox.write("hot.raw", std::string(96, '\2'));
    sandbox.write("text", bytes.substr(1));
    try {
        switch (bytes.front()) {
            case 's':
                readSettings("text");
                break;
            case 'r':
                readRadiance("text");
                break;
            case 'c':
                readConfig("text", size);
                break;
            case 'w':
                readWord(std::string(bytes.substr(1)));
                break;
            case 'v':
                readVectors("text");
                break;
            default:
                break;
        }
    } catch (const vxapp::UsageError& error) {
        vxfuzz::require(*error.what() != '\0', "an error tells what is wrong");
    }
    return 0;
}
