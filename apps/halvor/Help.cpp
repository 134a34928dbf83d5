// SPDX-License-Identifier: Apache-2.0
#include "apps/halvor/Help.h"

#include <iomanip>
#include <sstream>

#include "apps/halvor/SettingsTable.h"

namespace halvorapp {

namespace {

const char* const introduction =
    R"(Runs the camera's enhancer chain over raw streams, bit by bit as the hardware does: the reference against which
firmware compares its blocks.

A stream is a headerless sequence of frames of signed 16-bit little-endian samples, in which each frame stands at
least twice, as a capture repeats it; vxkit convert --double makes one. The result, NAME.(BLOCKS_t1.19).proc beside
the stream, holds for each frame its enhanced samples and four lines of the measuring block's data. It replaces an
earlier one when it is whole; pipes and devices of that name get the frames as they come.

Options:
  -s FILE    read the settings from FILE, a regular file; counts for the streams behind it
  -h         print the usage line (as the first argument)
  --help     print this text (as the first argument)
  --version  print the version (as the first argument)

Every other argument is a stream. Without one, the stream that the settings name is processed. Without -s the
settings are Marlo-Works/Halvor.ini in the folder of the program.

Exit status:
  0  every stream was processed whole
  1  a stream or an argument failed; the standard error stream tells what may help

Settings:
)";

const char* const closing = R"(
Files:
  share/vxkit/halvor.ini of the installation is an example with every key and its default.

Examples:
  vxkit convert recording.tif --double -o stream.raw
  halvor -s camera.ini stream.raw
)";

}  // namespace

std::string helpText()
{
    std::ostringstream text;
    text << introduction;
    std::string section;
    for (const SettingsKey& key : settingsTable()) {
        if (section != key.section)
            text << "  [" << key.section << "]\n";
        section = key.section;
        text << "    " << std::left << std::setw(14) << std::string(key.key) + "=" << key.help << "; default "
             << key.value << '\n';
    }
    text << closing;
    return text.str();
}

}  // namespace halvorapp
