// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/arguments/RunArguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <string>

namespace vxapp {

namespace {

// One that is forgotten here can't be written to with --force, which shows at once; the other way round a file would be
// lost.
constexpr std::array outputOptions{
    "--output",           "--preview", "--quality-map", "--confidence", "--contact-sheet",
    "--write-bad-pixels", "--damping", "--picture",     "--csv",        "--trace"};

void readBy(const CLI::App& app, vxfiles::RunFiles& files)
{
    for (const CLI::Option* option : app.get_options())
        if (std::find(outputOptions.begin(), outputOptions.end(), option->get_name()) == outputOptions.end())
            for (const std::string& value : option->results())
                files.reads(value);
}

}  // namespace

std::shared_ptr<vxfiles::RunFiles> filesReadBy(const CLI::App& command)
{
    auto files = std::make_shared<vxfiles::RunFiles>();
    readBy(command, *files);
    if (command.get_parent() != nullptr)
        readBy(*command.get_parent(), *files);
    return files;
}

}  // namespace vxapp
