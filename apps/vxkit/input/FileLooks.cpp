// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

#include "apps/vxkit/input/FrameFileParts.h"

namespace vxapp {

namespace {

using namespace std::string_view_literals;

struct Look
{
    std::size_t place;
    std::string_view bytes;
    std::string_view text;
};

// What people have on their disks beside the formats of the table.
constexpr std::array looks{
    Look{0, "GIF8"sv, "a GIF picture"},
    Look{0, "BM"sv, "a BMP picture"},
    Look{8, "WEBP"sv, "a WebP picture"},
    Look{8, "AVI "sv, "an AVI video"},
    Look{4, "ftyp"sv, "an MP4 or QuickTime video"},
    Look{0, "\x1A\x45\xDF\xA3"sv, "a Matroska video"},
    Look{0, "\x1F\x8B"sv, "a gzip archive"},
    Look{0, "PK\x03\x04"sv, "a ZIP archive, as .npz and spreadsheets are"},
    Look{0, "%PDF"sv, "a PDF document"},
    Look{0, "MATLAB"sv, "a MATLAB file"},
    Look{0, "P1"sv, "a PBM bitmap"},
    Look{0, "P3"sv, "a PPM picture in colours"},
    Look{0, "P4"sv, "a PBM bitmap"},
    Look{0, "P6"sv, "a PPM picture in colours"},
    Look{0, "SIMPLE  ="sv, "a FITS file, which this build does not read"},
    Look{0, "\x89HDF"sv, "an HDF5 file, which this build does not read"},
    Look{0, "\xFF\xFE"sv, "text in UTF-16"},
    Look{0, "\xFE\xFF"sv, "text in UTF-16"},
};

}  // namespace

std::string looksOf(std::string_view start)
{
    for (const Look& look : looks)
        if (start.size() >= look.place && start.substr(look.place).starts_with(look.bytes))
            return "looks like " + std::string(look.text);
    const bool isText = std::all_of(start.begin(), start.end(), [](unsigned char c) {
        return std::isprint(c) != 0 || std::isspace(c) != 0 || c >= 0x80;
    });
    return isText ? "looks like text, but not a table of numbers"
                  : "its first bytes are those of no known format";
}

}  // namespace vxapp
