// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace halvorapp {

/// What the stream processor takes from the first four sections of a settings file, with the values that hold
/// when the file names no other. The blocks read the sections "Histogram_Parameter" and "Peaking_Parameter"
/// themselves (Histogram::SetParam, Peaking::SetParam).
struct Settings
{
    // [Main_Window]
    std::string fileName;  ///< "file=", one word
    int length = 1000;     ///< "length=", frames to read
    int cols = 160;        ///< "sensor=@Size(160 120)"
    int rows = 120;

    // [TNR_Parameter]
    int tnrMode = 1;      ///< "mode=", 0 bypasses the block
    int tnrAlpha = 60;    ///< "alpha="
    int tnrGlobal = 100;  ///< "global="
    int tnrCGain = 10;    ///< "cgain="

    // [SPR_Parameter]
    int sprEnable = 1;      ///< "spr=", 0 bypasses the block
    int sprThreshold = 26;  ///< "spr_threshold="
    int sprMaxFrame = 18;   ///< "spr_max_frame="
    int sprMaxLine = 12;    ///< "spr_max_line="

    // [SNR_Parameter]
    int snrMode = 1;   ///< "mode=", 0 bypasses the block
    int snrGain = 16;  ///< "gain="
};

/// Reads a settings file in INI form: first all defaults, then what the file names. Keys that a section does
/// not know, and keys ahead of the first section head, are passed over.
///
/// @return false, with the settings as they were, if the file can't be opened
bool readSettings(const char* fileName, Settings& settings);

}  // namespace halvorapp
