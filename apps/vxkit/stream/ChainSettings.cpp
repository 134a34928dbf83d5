// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/ChainSettings.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <sstream>

#include "apps/halvor/Settings.h"
#include "apps/vxkit/input/RegularFile.h"
#include "apps/vxkit/stream/Look.h"
#include "apps/vxkit/terminal/Failure.h"
#include "enhancement/ParameterFile.h"
#include "support/drivers/ChainTable.h"

namespace vxapp {

namespace {

using vxsupport::ChainBlock;
using vxsupport::chainBlocks;
using vxsupport::ChainField;
using vxsupport::ChainSetting;
using vxsupport::chainTable;
using vxsupport::histogramModeNames;

constexpr int linearMode = 1;
constexpr int measuredWidth = 8;
constexpr int running = 2;  // of a bypass setting
constexpr const char* deviceLook = "device";

// A file of another kind would pass as one that names nothing.
void requireSettingsFile(const std::string& path)
{
    requireRegularFile(path, "a settings file");
    halvor::vx::ParameterFile file(path.c_str());
    if (!file.isOpen())
        throw UsageError(path + ": can't be read; expected a settings file");
    while (file.next())
        for (const ChainBlock& block : chainBlocks())
            if (file.inSection(block.section))
                return;
    throw UsageError(path + ": names no setting of a block; expected sections like [" +
                     chainBlocks()[0].section);
}

void takeFirstSections(const std::string& path, ChainSettings& settings)
{
    halvorapp::Settings file;
    halvorapp::readSettings(path.c_str(), file);
    settings.tnrBypass = file.tnrMode != 0 ? running : 0;
    settings.tnrAlpha = file.tnrAlpha;
    settings.tnrGlobal = file.tnrGlobal;
    settings.tnrCGain = file.tnrCGain;
    settings.sprBypass = file.sprEnable != 0 ? running : 0;
    settings.sprThreshold = file.sprThreshold;
    settings.sprMaxFrame = file.sprMaxFrame;
    settings.sprMaxLine = file.sprMaxLine;
    settings.snrBypass = file.snrMode != 0 ? running : 0;
    settings.snrGain = file.snrGain;
}

void takeHistogram(const HistogramParam& param, ChainSettings& settings)
{
    settings.histMode = param.mode >= 0 && param.mode < static_cast<int>(histogramModeNames().size())
                            ? param.mode
                            : linearMode;
    settings.histWidth = param.width;
    settings.histGain = param.gain;
    settings.histLimit = param.limit;
    settings.histSpeed = param.speed;
    settings.histGamma = param.gamma;
    settings.histOffset = param.offset;
}

// Those that the chain presets are meant for 160 by 120 pixels.
void takeRanks(const HistogramParam& param, ChainSettings& settings)
{
    settings.histGainLow = param.gainlow;
    settings.histGainHigh = param.gainhigh;
}

void takePeaking(const PeakingParam& param, ChainSettings& settings)
{
    settings.peakEnabled = param.enabled;
    settings.peakGain = param.gain;
    settings.peakCoring = param.coring;
    settings.peakLimit = param.limit;
    settings.peakReductThres = param.reductThres;
    settings.peakReductGain = param.reductGain;
}

void checkFile(const std::string& path, const ChainSettings& settings)
{
    for (const ChainSetting& setting : chainTable()) {
        const int value = settings.*setting.field;
        if (value < setting.low || value > setting.high)
            throw UsageError(path + ": [" + chainBlocks()[setting.block].section + " " + setting.key + "=" +
                             std::to_string(value) + ": expected " + std::to_string(setting.low) + " to " +
                             std::to_string(setting.high));
    }
    if (settings.histWidth != measuredWidth)
        throw UsageError(path + ": [Histogram_Parameter] width=" + std::to_string(settings.histWidth) +
                         ": expected 8, with which the chain measures");
}

ChainSettings settingsOfFile(const std::string& path, cv::Size frameSize)
{
    requireSettingsFile(path);
    ChainSettings settings;
    takeFirstSections(path, settings);
    Histogram histogram(frameSize.width, frameSize.height);
    histogram.SetParam(path.c_str());
    takeHistogram(histogram.param, settings);
    takeRanks(histogram.param, settings);
    Peaking peaking(frameSize.width, frameSize.height);
    peaking.SetParam(path.c_str());
    takePeaking(peaking.param, settings);
    checkFile(path, settings);
    return settings;
}

const Look& chosenLook(const ChainOptions& options)
{
    if (options.file.empty())
        return lookNamed(options.look);
    if (!options.look.empty() && options.look != deviceLook)
        throw UsageError("--look " + options.look +
                         ": expected no look beside --settings, which names the settings of all blocks");
    return lookNamed(deviceLook);
}

bool namesEqualiser(const ChainOptions& options)
{
    const auto isOfEqualiser = [](std::size_t block) {
        return chainBlocks()[block].enabled == &ChainSettings::histMode;
    };
    for (std::size_t i = 0; i < options.values.size(); ++i)
        if (options.values[i] && isOfEqualiser(chainTable()[i].block))
            return true;
    for (std::size_t block = 0; block < options.blocks.size(); ++block)
        if (options.blocks[block] && isOfEqualiser(block))
            return true;
    return false;
}

}  // namespace

ChainSettings chainSettings(const ChainOptions& options, cv::Size frameSize, double noise)
{
    const Look& look = chosenLook(options);
    ChainSettings settings = options.file.empty() ? vxsupport::usualChainSettings(frameSize)
                                                  : settingsOfFile(options.file, frameSize);
    applyLook(look, noise, settings);
    for (std::size_t i = 0; i < options.values.size(); ++i)
        if (options.values[i])
            settings.*chainTable()[i].field = *options.values[i];
    for (std::size_t block = 0; block < options.blocks.size(); ++block) {
        const ChainField enabled = chainBlocks()[block].enabled;
        if (options.blocks[block] == false)
            settings.*enabled = 0;
        else if (options.blocks[block] == true && settings.*enabled == 0)
            settings.*enabled = ChainSettings{}.*enabled;
    }
    if (settings.histGainLow > settings.histGainHigh)
        throw UsageError("--hist-gainlow " + std::to_string(settings.histGainLow) +
                         ": expected at most the upper rank, " + std::to_string(settings.histGainHigh));
    return settings;
}

std::optional<ToneSettings> toneSettings(const ChainOptions& options)
{
    return namesEqualiser(options) ? std::nullopt : chosenLook(options).tone;
}

std::string settingsText(const ChainSettings& settings, const std::optional<ToneSettings>& tone)
{
    std::ostringstream text;
    for (std::size_t block = 0; block < chainBlocks().size(); ++block) {
        text << chainBlocks()[block].name << ':';
        const char* separator = " ";
        if (tone && chainBlocks()[block].enabled == &ChainSettings::histMode)
            text << " of the look: " << toneText(*tone);
        else if (settings.*chainBlocks()[block].enabled == 0)
            text << " off";
        else
            for (const ChainSetting& setting : chainTable())
                if (setting.block == block) {
                    text << separator << setting.option << ' ' << valueText(setting, settings.*setting.field);
                    separator = ", ";
                }
        text << '\n';
    }
    return text.str();
}

}  // namespace vxapp
