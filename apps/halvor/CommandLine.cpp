// SPDX-License-Identifier: Apache-2.0
#include "apps/halvor/CommandLine.h"

#include <cstddef>
#include <cstdio>
#include <memory>

#include "apps/halvor/Help.h"
#include "apps/halvor/StreamProcessor.h"
#include "apps/halvor/Version.h"

namespace halvorapp {

namespace {

void printGreeting()
{
    std::printf("*********************************\n");
    std::printf("Halvor Stream Processor %s\n", versionText);
    std::printf("*********************************\n\n");
}

void printUsage()
{
    std::printf("%s", usageLine);
}

}  // namespace

std::string defaultSettingsPath(const std::string& program)
{
    std::size_t end = program.rfind('\\');
    if (end == std::string::npos)
        end = program.rfind('/');
    const std::string folder = end != std::string::npos ? program.substr(0, end + 1) : std::string();
    return folder + "Marlo-Works/Halvor.ini";
}

int runHalvor(int argc, const char* const* argv)
{
    const std::string first = argc > 1 ? argv[1] : "";
    if (first == "--help" || first == "--version") {
        if (first == "--help")
            std::printf("%s\n%s", usageLine, helpText().c_str());
        else
            std::printf("halvor %s\n", versionText);
        return 0;
    }
    printGreeting();
    std::string settingsPath = defaultSettingsPath(argc > 0 ? argv[0] : "");
    auto processor = std::make_unique<StreamProcessor>(settingsPath.c_str());
    bool isWhole = true;
    if (argc < 2)
        isWhole = processor->process(settingsPath.c_str(), nullptr);
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        // Always the first argument, whichever is being looked at.
        if (std::string(argv[1]) == "-h") {
            printUsage();
            return 0;
        }
        if (argument != "-s") {
            isWhole = processor->process(settingsPath.c_str(), argv[i]) && isWhole;
            continue;
        }
        if (++i == argc) {
            printUsage();
            return 1;
        }
        settingsPath = argv[i];
        std::printf("main: %s\n", settingsPath.c_str());
        processor.reset();
        processor = std::make_unique<StreamProcessor>(settingsPath.c_str());
    }
    std::printf("main: finished\n");
    return isWhole ? 0 : 1;
}

}  // namespace halvorapp
