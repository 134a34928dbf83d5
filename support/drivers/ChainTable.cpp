// SPDX-License-Identifier: Apache-2.0
#include "support/drivers/ChainTable.h"

namespace vxsupport {

namespace {

constexpr std::array<ChainBlock, 5> blocks{{
    {"tnr", "TNR_Parameter]", "Temporal noise reduction", &ChainSettings::tnrBypass},
    {"spr", "SPR_Parameter]", "Static pattern removal", &ChainSettings::sprBypass},
    {"snr", "SNR_Parameter]", "Spatial noise reduction", &ChainSettings::snrBypass},
    {"hist", "Histogram_Parameter]", "Histogram equalisation", &ChainSettings::histMode},
    {"peak", "Peaking_Parameter]", "Peaking", &ChainSettings::peakEnabled},
}};

constexpr int mostPixels = 1 << 26;

constexpr std::array<const char*, 5> modeNames{"off", "linear", "bounded", "plateau", "cumulative"};

// The limits keep the blocks' 32-bit products from wrapping.
constexpr std::array<ChainSetting, 21> settings{{
    {0, "alpha", "alpha", &ChainSettings::tnrAlpha, 0, 100, "%", "Feedback in percent; more filters more"},
    {0, "global", "global", &ChainSettings::tnrGlobal, 0, 1000, "",
     "Motion of the whole picture above which the feedback falls; 100: it never does"},
    {0, "cgain", "cgain", &ChainSettings::tnrCGain, 0, 1000, "1/10",
     "Control gain in tenths; more filters less where a pixel changes"},
    {1, "threshold", "spr_threshold", &ChainSettings::sprThreshold, 0, 32767, "counts",
     "Deviation in counts below which it is learned as pattern"},
    {1, "max-frame", "spr_max_frame", &ChainSettings::sprMaxFrame, 0, 4095, "0.9 counts",
     "Limit of the correction of a pixel, in units of 0.9 counts"},
    {1, "max-line", "spr_max_line", &ChainSettings::sprMaxLine, 0, 4095, "0.9 counts",
     "Limit of the correction of a column, in units of 0.9 counts"},
    {1, "delay", "", &ChainSettings::sprDelay, 0, 2, "px",
     "Columns by which a line correction reaches its neighbours late (0 works as 2)"},
    {2, "gain", "gain", &ChainSettings::snrGain, 0, 32767, "",
     "More smooths more; 0 leaves the picture as it is"},
    {3, "mode", "mode", &ChainSettings::histMode, 0, 4, "",
     "off, linear, bounded, plateau or cumulative; a file has 0 to 4 in this order"},
    {3, "gain", "gain", &ChainSettings::histGain, 0, 1000, "",
     "bounded: weight of a bin between the two ranks"},
    {3, "gainlow", "gainlow", &ChainSettings::histGainLow, 0, mostPixels, "px",
     "bounded: lower rank in pixels (default: 0.1 % of them)"},
    {3, "gainhigh", "gainhigh", &ChainSettings::histGainHigh, 0, mostPixels, "px",
     "bounded: upper rank in pixels (default: 99.9 % of them)"},
    {3, "limit", "limit", &ChainSettings::histLimit, 0, 1 << 20, "1/16 px",
     "plateau: most that a bin counts, in sixteenths of a pixel"},
    {3, "speed", "speed", &ChainSettings::histSpeed, 0, 15, "",
     "The curve takes in a new frame by the weight 1 / 2^speed"},
    {3, "gamma", "gamma", &ChainSettings::histGamma, -100, 100, "1/10",
     "In tenths: exponent 1 + gamma/10, or below 0 its inverse; below 0 brightens"},
    {3, "offset", "offset", &ChainSettings::histOffset, -32768, 32767, "counts",
     "Added to every scaled pixel"},
    {4, "gain", "gain", &ChainSettings::peakGain, 0, 1000, "1/4096", "Boost of detail in units of 1/4096"},
    {4, "coring", "coring", &ChainSettings::peakCoring, 0, 32767, "levels",
     "Differences up to this many levels count as none"},
    {4, "limit", "limit", &ChainSettings::peakLimit, 0, 500, "",
     "Largest detail that is boosted, times 4096"},
    {4, "reduct-thres", "reduct_thres", &ChainSettings::peakReductThres, 0, 128, "",
     "Local contrast above which the boost falls, times 512 levels"},
    {4, "reduct-gain", "reduct_gain", &ChainSettings::peakReductGain, 0, 4096, "1/4096",
     "How fast it falls, in units of 1/4096; 0: not at all"},
}};

}  // namespace

std::span<const ChainBlock> chainBlocks()
{
    return blocks;
}

std::span<const ChainSetting> chainTable()
{
    return settings;
}

std::span<const char* const> histogramModeNames()
{
    return modeNames;
}

std::string nameOf(const ChainSetting& setting)
{
    return std::string(blocks.at(setting.block).prefix) + "-" + setting.option;
}

std::string valueText(const ChainSetting& setting, int value)
{
    return setting.isMode() ? modeNames.at(static_cast<std::size_t>(value)) : std::to_string(value);
}

}  // namespace vxsupport
