#include "apps/vxkit/ChainSettings.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstddef>
#include <sstream>

#include "apps/halvor/Settings.h"
#include "apps/vxkit/Failure.h"
#include "enhancement/ParameterFile.h"

namespace vxapp {

namespace {

using Field = int ChainSettings::*;

// A block of the chain: how options, files and people call it, and the field that is 0 when it is bypassed.
struct Block
{
    const char* prefix;
    const char* section;
    const char* name;
    Field enabled;
};

constexpr std::array<Block, 5> blocks{{
    {"tnr", "TNR_Parameter]", "Temporal noise reduction", &ChainSettings::tnrBypass},
    {"spr", "SPR_Parameter]", "Static pattern removal", &ChainSettings::sprBypass},
    {"snr", "SNR_Parameter]", "Spatial noise reduction", &ChainSettings::snrBypass},
    {"hist", "Histogram_Parameter]", "Histogram equalisation", &ChainSettings::histMode},
    {"peak", "Peaking_Parameter]", "Peaking", &ChainSettings::peakEnabled},
}};

struct Setting
{
    std::size_t block;
    const char* option;  // behind the block's prefix
    const char* key;     // of a settings file; empty where files have none
    Field field;
    int low;
    int high;
    const char* help;
};

constexpr int mostPixels = 1 << 26;

constexpr std::array<const char*, 5> modeNames{"off", "linear", "bounded", "plateau", "cumulative"};
constexpr int linearMode = 1;
constexpr int measuredWidth = 8;
constexpr int running = 2;  // of a bypass setting

// The limits keep the blocks' 32-bit products from wrapping.
constexpr std::array<Setting, 21> settingsTable{{
    {0, "alpha", "alpha", &ChainSettings::tnrAlpha, 0, 100, "Feedback in percent; more filters more"},
    {0, "global", "global", &ChainSettings::tnrGlobal, 0, 1000,
     "Motion of the whole picture above which the feedback falls; 100: it never does"},
    {0, "cgain", "cgain", &ChainSettings::tnrCGain, 0, 1000,
     "Control gain in tenths; more filters less where a pixel changes"},
    {1, "threshold", "spr_threshold", &ChainSettings::sprThreshold, 0, 32767,
     "Deviation in counts below which it is learned as pattern"},
    {1, "max-frame", "spr_max_frame", &ChainSettings::sprMaxFrame, 0, 4095,
     "Limit of the correction of a pixel, in units of 0.9 counts"},
    {1, "max-line", "spr_max_line", &ChainSettings::sprMaxLine, 0, 4095,
     "Limit of the correction of a column, in units of 0.9 counts"},
    {1, "delay", "", &ChainSettings::sprDelay, 0, 2,
     "Columns by which a line correction reaches its neighbours late (0 works as 2)"},
    {2, "gain", "gain", &ChainSettings::snrGain, 0, 32767,
     "More smooths more; 0 leaves the picture as it is"},
    {3, "mode", "mode", &ChainSettings::histMode, 0, 4,
     "off, linear, bounded, plateau or cumulative; a file has 0 to 4 in this order"},
    {3, "gain", "gain", &ChainSettings::histGain, 0, 1000, "bounded: weight of a bin between the two ranks"},
    {3, "gainlow", "gainlow", &ChainSettings::histGainLow, 0, mostPixels,
     "bounded: lower rank in pixels (default: 0.1 % of them)"},
    {3, "gainhigh", "gainhigh", &ChainSettings::histGainHigh, 0, mostPixels,
     "bounded: upper rank in pixels (default: 99.9 % of them)"},
    {3, "limit", "limit", &ChainSettings::histLimit, 0, 1 << 20,
     "plateau: most that a bin counts, in sixteenths of a pixel"},
    {3, "speed", "speed", &ChainSettings::histSpeed, 0, 15,
     "The curve takes in a new frame by the weight 1 / 2^speed"},
    {3, "gamma", "gamma", &ChainSettings::histGamma, -100, 100,
     "In tenths: exponent 1 + gamma/10, or below 0 its inverse; below 0 brightens"},
    {3, "offset", "offset", &ChainSettings::histOffset, -32768, 32767, "Added to every scaled pixel"},
    {4, "gain", "gain", &ChainSettings::peakGain, 0, 1000, "Boost of detail in units of 1/4096"},
    {4, "coring", "coring", &ChainSettings::peakCoring, 0, 32767,
     "Differences up to this many levels count as none"},
    {4, "limit", "limit", &ChainSettings::peakLimit, 0, 500, "Largest detail that is boosted, times 4096"},
    {4, "reduct-thres", "reduct_thres", &ChainSettings::peakReductThres, 0, 128,
     "Local contrast above which the boost falls, times 512 levels"},
    {4, "reduct-gain", "reduct_gain", &ChainSettings::peakReductGain, 0, 4096,
     "How fast it falls, in units of 1/4096; 0: not at all"},
}};

std::string optionOf(const Setting& setting)
{
    return std::string("--") + blocks.at(setting.block).prefix + "-" + setting.option;
}

std::string valueText(const Setting& setting, int value)
{
    return setting.field == &ChainSettings::histMode ? modeNames.at(static_cast<std::size_t>(value))
                                                     : std::to_string(value);
}

// Modes by their names or numbers; the number is what stays.
CLI::Validator modeCheck()
{
    return CLI::Validator(
        [](std::string& text) {
            std::string expected;
            for (std::size_t mode = 0; mode < modeNames.size(); ++mode) {
                if (text == modeNames[mode])
                    text = std::to_string(mode);
                if (text == std::to_string(mode))
                    return std::string();
                expected += std::string(mode > 0 ? ", " : "") + modeNames[mode];
            }
            return text + ": expected one of " + expected;
        },
        "");
}

void addSetting(CLI::App& command, const Setting& setting, std::optional<int>& value)
{
    const bool isMode = setting.field == &ChainSettings::histMode;
    const bool isRank = setting.high == mostPixels;
    std::string help = setting.help;
    if (!isRank)
        help += " (default: " + valueText(setting, ChainSettings{}.*setting.field) + ")";
    CLI::Option* option = command.add_option(optionOf(setting), value, help);
    if (isMode)
        option->transform(modeCheck());
    else
        option->check(CLI::Range(setting.low, setting.high).description(""));
    option->type_name(isMode ? "MODE" : std::to_string(setting.low) + ".." + std::to_string(setting.high));
    option->group(blocks.at(setting.block).name);
}

void addBlock(CLI::App& command, const Block& block, std::optional<bool>& isOn)
{
    const std::string name = block.prefix;
    const auto set = [&isOn, name](bool value) {
        if (isOn == !value)
            throw UsageError("--" + name + " and --no-" + name + ": expected one of them");
        isOn = value;
    };
    command
        .add_flag_callback(
            "--no-" + name, [set] { set(false); }, "Bypass the block")
        ->group(block.name);
    command
        .add_flag_callback(
            "--" + name, [set] { set(true); }, "Run the block even if the settings file bypasses it")
        ->group(block.name);
}

// A file of another kind would pass as one that names nothing.
void requireSettingsFile(const std::string& path)
{
    halvor::vx::ParameterFile file(path.c_str());
    if (!file.isOpen())
        throw UsageError(path + ": can't be read; expected a settings file");
    while (file.next())
        for (const Block& block : blocks)
            if (file.inSection(block.section))
                return;
    throw UsageError(path + ": names no setting of a block; expected sections like [" + blocks[0].section);
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
    settings.histMode =
        param.mode >= 0 && param.mode < static_cast<int>(modeNames.size()) ? param.mode : linearMode;
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
    for (const Setting& setting : settingsTable) {
        const int value = settings.*setting.field;
        if (value < setting.low || value > setting.high)
            throw UsageError(path + ": [" + blocks.at(setting.block).section + " " + setting.key + "=" +
                             std::to_string(value) + ": expected " + std::to_string(setting.low) + " to " +
                             std::to_string(setting.high));
    }
    if (settings.histWidth != measuredWidth)
        throw UsageError(path + ": [Histogram_Parameter] width=" + std::to_string(settings.histWidth) +
                         ": expected 8, with which the chain measures");
}

ChainSettings usualSettings(cv::Size frameSize)
{
    ChainSettings settings;
    takeRanks(Histogram(frameSize.width, frameSize.height).param, settings);
    return settings;
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

}  // namespace

void addChainOptions(CLI::App& command, ChainOptions& options)
{
    options.values.resize(settingsTable.size());
    options.blocks.resize(blocks.size());
    command
        .add_option("--settings", options.file,
                    "Settings file of the stream processor; options on the command line win over it")
        ->type_name("FILE");
    for (std::size_t block = 0; block < blocks.size(); ++block) {
        addBlock(command, blocks[block], options.blocks[block]);
        for (std::size_t i = 0; i < settingsTable.size(); ++i)
            if (settingsTable[i].block == block)
                addSetting(command, settingsTable[i], options.values[i]);
    }
}

ChainSettings chainSettings(const ChainOptions& options, cv::Size frameSize)
{
    ChainSettings settings =
        options.file.empty() ? usualSettings(frameSize) : settingsOfFile(options.file, frameSize);
    for (std::size_t i = 0; i < options.values.size(); ++i)
        if (options.values[i])
            settings.*settingsTable.at(i).field = *options.values[i];
    for (std::size_t block = 0; block < options.blocks.size(); ++block) {
        const Field enabled = blocks.at(block).enabled;
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

std::string settingsText(const ChainSettings& settings)
{
    std::ostringstream text;
    for (std::size_t block = 0; block < blocks.size(); ++block) {
        text << blocks[block].name << ':';
        const char* separator = " ";
        if (settings.*blocks[block].enabled == 0)
            text << " off";
        else
            for (const Setting& setting : settingsTable)
                if (setting.block == block) {
                    text << separator << setting.option << ' ' << valueText(setting, settings.*setting.field);
                    separator = ", ";
                }
        text << '\n';
    }
    return text.str();
}

halvor::vx::MARLOImageEnhancer openChain(const ChainSettings& settings, cv::Size frameSize)
{
    halvor::vx::MARLOImageEnhancer chain(frameSize.width, frameSize.height, &settings);
    chain.histSetSpeed(settings.histSpeed);
    chain.histSetGamma(settings.histGamma);
    chain.histSetOffset(settings.histOffset);
    // The delay takes effect when a change of the bypass rebuilds the block.
    chain.sprSetBypass(settings.sprBypass == 0 ? running : 0);
    chain.sprSetBypass(settings.sprBypass);
    return chain;
}

}  // namespace vxapp
