// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/VectorsCommand.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/vectors/VectorSet.h"

namespace vxapp {

namespace {

constexpr int smallestSide = 32;
constexpr int largestSide = 1024;
constexpr int mostFrames = 1000;

struct VectorsOptions
{
    std::string folder;
    std::string check;
    std::string size = "64x48";
    VectorRequest request;
    bool force = false;
};

VectorRequest checkedRequest(const VectorRequest& request)
{
    const auto fits = [](int side) { return side >= smallestSide && side <= largestSide; };
    if (!fits(request.size.width) || !fits(request.size.height))
        throw UsageError("--size " + std::to_string(request.size.width) + "x" +
                         std::to_string(request.size.height) + ": expected sides of " +
                         std::to_string(smallestSide) + " to " + std::to_string(largestSide) + " pixels");
    if (request.frames < 1 || request.frames > mostFrames)
        throw UsageError("--frames " + std::to_string(request.frames) + ": expected 1 to " +
                         std::to_string(mostFrames));
    return request;
}

std::string joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : ", ") + word;
    return text;
}

void check(const std::string& folder, const VectorRequest& usual)
{
    if (!std::filesystem::is_directory(folder))
        throw UsageError(folder + ": no such folder");
    const VectorRequest request = checkedRequest(requestOf(folder, usual));
    const VectorComparison found = compareVectors(folder, allVectors(request));
    if (found.equal.empty() && found.faults.empty())
        throw UsageError(folder + ": holds no output of a block; expected BLOCK/out/NAME.FORMAT.raw");
    if (!found.equal.empty())
        std::cout << "equal: " << joined(found.equal) << '\n';
    if (!found.absent.empty())
        std::cout << "not compared, for no output is there: " << joined(found.absent) << '\n';
    if (found.faults.empty()) {
        std::cout << found.equal.size() << " of " << found.equal.size() + found.absent.size()
                  << " blocks compared, all equal (seed " << request.seed << ")\n";
        return;
    }
    for (const std::string& fault : found.faults)
        std::cout << fault << '\n';
    throw EngineError(folder + ": " + std::to_string(found.faults.size()) +
                      (found.faults.size() == 1 ? " file differs" : " files differ") +
                      " from what is expected");
}

void runVectors(const VectorsOptions& options)
{
    VectorRequest request = options.request;
    request.size = parseSize(options.size);
    if (!options.check.empty() && !options.folder.empty())
        throw UsageError("OUT and --check: expected one of them");
    if (!options.check.empty()) {
        check(options.check, request);
        return;
    }
    if (options.folder.empty())
        throw UsageError("expected OUT, a folder for the vectors, or --check DIR");
    const std::vector<VectorCase> cases = allVectors(checkedRequest(request));
    writeVectors(options.folder, request, cases, options.force);
    std::cout << options.folder << ": vectors of " << cases.size() << " blocks (seed " << request.seed
              << "); sizes, formats and settings in vectors.txt\n";
}

const char* const footer =
    R"(A bench reads BLOCK/in/NAME.FORMAT.raw of the inputs that vectors.txt lists, and writes BLOCK/out/NAME.FORMAT.raw
of the outputs into a folder of its own. A copy of vectors.txt in it tells seed and size to --check; else the options do.
Blocks of which the folder holds no output are told, not compared. Status 1: something differs.

Examples:
  vxkit vectors bench
  vxkit vectors --check answers)";

}  // namespace

void addVectorsCommand(CLI::App& program)
{
    const auto options = std::make_shared<VectorsOptions>();
    CLI::App& command = *program.add_subcommand(
        "vectors", "Write test vectors of the fixed-point engine and the chain for a firmware bench");
    command.add_option("OUT", options->folder, "Folder for the vectors; made if there is none");
    command
        .add_option("--check", options->check,
                    "Compare the outputs in this folder with the expected ones, to the bit")
        ->type_name("DIR");
    command.add_option("--seed", options->request.seed, "Seed of all images")->capture_default_str();
    command.add_option("--size", options->size, "Size of a frame")
        ->type_name("WIDTHxHEIGHT")
        ->capture_default_str();
    command
        .add_option("--frames", options->request.frames, "Frames for blocks that learn from frame to frame")
        ->capture_default_str();
    command.add_flag("--force", options->force, "Replace existing files");
    command.footer(footer);
    command.callback([options] { runVectors(*options); });
}

}  // namespace vxapp
