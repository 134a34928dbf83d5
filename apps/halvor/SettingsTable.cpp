// SPDX-License-Identifier: Apache-2.0
#include "apps/halvor/SettingsTable.h"

#include <array>

namespace halvorapp {

namespace {

constexpr std::array<SettingsKey, 31> table{{
    {"Main_Window", "file", "(none)", "Stream to process if the command line names none; one word"},
    {"Main_Window", "length", "1000", "Frames to read; one less is processed"},
    {"Main_Window", "sensor", "@Size(160 120)", "Columns and rows of a frame"},
    {"TNR_Parameter", "mode", "1", "Temporal noise reduction; 0 bypasses it"},
    {"TNR_Parameter", "alpha", "60", "Feedback in percent; more filters more"},
    {"TNR_Parameter", "global", "100",
     "Motion of the whole picture above which the feedback falls; 100: never"},
    {"TNR_Parameter", "cgain", "10", "Control gain in tenths; more filters less where a pixel changes"},
    {"SPR_Parameter", "spr", "1", "Static pattern removal; 0 bypasses it"},
    {"SPR_Parameter", "spr_threshold", "26", "Deviation in counts below which it is learned as pattern"},
    {"SPR_Parameter", "spr_max_frame", "18", "Limit of the correction of a pixel, in units of 0.9 counts"},
    {"SPR_Parameter", "spr_max_line", "12", "Limit of the correction of a column, in units of 0.9 counts"},
    {"SNR_Parameter", "mode", "1", "Spatial noise reduction; 0 bypasses it"},
    {"SNR_Parameter", "gain", "16", "More smooths more; 0 leaves the picture as it is"},
    {"Histogram_Parameter", "mode", "3", "Equalisation: 0 off, 1 linear, 2 bounded, 3 plateau, 4 cumulative"},
    {"Histogram_Parameter", "width", "8", "Bits of a bin's number; the chain measures with 8"},
    {"Histogram_Parameter", "range", "8", "No effect in the chain"},
    {"Histogram_Parameter", "offset", "0", "Added to every scaled pixel"},
    {"Histogram_Parameter", "speed", "1", "The curve takes in a new frame by the weight 1 / 2^speed"},
    {"Histogram_Parameter", "gamma", "0", "In tenths: exponent 1 + gamma/10, or below 0 its inverse"},
    {"Histogram_Parameter", "rangedis", "0", "No effect in the chain"},
    {"Histogram_Parameter", "poffdis", "0", "No effect in the chain"},
    {"Histogram_Parameter", "limit", "8", "Mode 3: most that a bin counts, in sixteenths of a pixel"},
    {"Histogram_Parameter", "gain", "4", "Mode 2: weight of a bin between the two ranks"},
    {"Histogram_Parameter", "gainlow", "(0.1 % of the pixels)", "Mode 2: lower rank, in pixels"},
    {"Histogram_Parameter", "gainhigh", "(99.9 % of the pixels)", "Mode 2: upper rank, in pixels"},
    {"Peaking_Parameter", "enable", "0", "Peaking; 0 bypasses it"},
    {"Peaking_Parameter", "gain", "14", "Boost of detail in units of 1/4096"},
    {"Peaking_Parameter", "coring", "22", "Differences up to this many levels count as none"},
    {"Peaking_Parameter", "limit", "130", "Largest detail that is boosted, times 4096"},
    {"Peaking_Parameter", "reduct_thres", "20",
     "Local contrast above which the boost falls, times 512 levels"},
    {"Peaking_Parameter", "reduct_gain", "30", "How fast it falls, in units of 1/4096; 0: not at all"},
}};

}  // namespace

std::span<const SettingsKey> settingsTable()
{
    return table;
}

// A line that no key begins is passed over, and so are these remarks.
std::string exampleSettings()
{
    std::string text =
        "; Settings of the stream processor halvor: copy, change, and name the copy by halvor -s FILE.\n"
        "; Values are the defaults. A key counts in its section alone, and from the line's first column.\n";
    std::string section;
    for (const SettingsKey& key : settingsTable()) {
        if (section != key.section)
            text += std::string("\n[") + key.section + "]\n";
        section = key.section;
        text += std::string("; ") + key.help + (key.hasValue() ? "" : std::string(" ") + key.value) + "\n" +
                (key.hasValue() ? "" : "; ") + key.line() + "\n";
    }
    return text;
}

}  // namespace halvorapp
