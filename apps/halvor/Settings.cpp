// SPDX-License-Identifier: Apache-2.0
#include "apps/halvor/Settings.h"

#include "enhancement/ParameterFile.h"

namespace halvorapp {

namespace {

struct Key
{
    const char* section;
    const char* text;
    int Settings::*field;
};

constexpr Key keys[] = {{"Main_Window]", "length=", &Settings::length},
                        {"TNR_Parameter]", "mode=", &Settings::tnrMode},
                        {"TNR_Parameter]", "alpha=", &Settings::tnrAlpha},
                        {"TNR_Parameter]", "global=", &Settings::tnrGlobal},
                        {"TNR_Parameter]", "cgain=", &Settings::tnrCGain},
                        {"SPR_Parameter]", "spr=", &Settings::sprEnable},
                        {"SPR_Parameter]", "spr_threshold=", &Settings::sprThreshold},
                        {"SPR_Parameter]", "spr_max_frame=", &Settings::sprMaxFrame},
                        {"SPR_Parameter]", "spr_max_line=", &Settings::sprMaxLine},
                        {"SNR_Parameter]", "mode=", &Settings::snrMode},
                        {"SNR_Parameter]", "gain=", &Settings::snrGain}};

}  // namespace

bool readSettings(const char* fileName, Settings& settings)
{
    halvor::vx::ParameterFile file(fileName);
    if (!file.isOpen())
        return false;
    settings = Settings{};
    while (file.next()) {
        if (file.inSection("Main_Window]")) {
            file.readWord("file=", settings.fileName);
            file.readDecimalPair("sensor=@Size(", settings.cols, settings.rows);
        }
        for (const Key& key : keys)
            if (file.inSection(key.section))
                file.readDecimal(key.text, settings.*key.field);
    }
    return true;
}

}  // namespace halvorapp
