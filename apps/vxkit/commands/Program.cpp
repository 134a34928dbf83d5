// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/Program.h"

#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <iomanip>
#include <iostream>
#include <new>
#include <opencv2/core.hpp>
#include <optional>
#include <span>
#include <string>

#include "apps/vxkit/arguments/CommonOptions.h"
#include "apps/vxkit/arguments/KnownWords.h"
#include "apps/vxkit/commands/CompareCommand.h"
#include "apps/vxkit/commands/ConvertCommand.h"
#include "apps/vxkit/commands/DiffCommand.h"
#include "apps/vxkit/commands/DocumentsCommand.h"
#include "apps/vxkit/commands/EnhanceCommand.h"
#include "apps/vxkit/commands/FilterCommand.h"
#include "apps/vxkit/commands/HelpCommand.h"
#include "apps/vxkit/commands/InfoCommand.h"
#include "apps/vxkit/commands/PsfCommand.h"
#include "apps/vxkit/commands/SelfcheckCommand.h"
#include "apps/vxkit/commands/ShowCommand.h"
#include "apps/vxkit/commands/SimulateCommand.h"
#include "apps/vxkit/commands/SuperresCommand.h"
#include "apps/vxkit/commands/VectorsCommand.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/Versions.h"
#include "core/diagnostics/StopWatch.h"

namespace vxapp {

namespace {

/// The program with its commands and what they have in common.
class Program
{
public:
    Program();
    int run(int argc, const char* const* argv);

private:
    void parse(int argc, const char* const* argv);
    void begin();

    CLI::App app_{"Image enhancement for thermal cameras", "vxkit"};
    CommonOptions options_;
    std::optional<VerbosityScope> scope_;
};

const char* const footer =
    R"(vxkit help COMMAND tells about a command; each has a manual page, for example vxkit-superres(1).

Settings files (--config):
  Every option of a command, by its long name without dashes, in a section named after the command. What the
  command line gives wins. Lines that begin with # are remarks. Recordings may be pipes; settings, calibration, maps
and images that go with them must be regular files.

    [superres]
    scale=0.01
    offset=-273.15
    camera="k325 FOV25"
    report=true

Exit status:
  0  everything was done
  1  an engine failed, a check did not pass, or a result could not be written: one line on the standard
     error stream tells so
  2  bad input: one line on the standard error stream names it

Files that are written:
  A result appears under its name when it is whole; until then, and whatever goes wrong, an earlier file stays as it
  is. --force replaces regular files, which keep their modes; the file behind a symbolic link is replaced and the
  link stays. Pipes and devices are written through. No file that a command reads is ever replaced.
  Files with numbers come with a list, NAME.sha256, which tells which of them belong together; sha256sum -c checks
  it. It is taken away before the first of them is replaced and written after the last.)";

// Each command registers its options and a callback, which runs after the whole line has been parsed.
Program::Program()
{
    addCompareCommand(app_);
    addConvertCommand(app_);
    addDiffCommand(app_);
    addEnhanceCommand(app_);
    addFilterCommand(app_);
    addInfoCommand(app_);
    addPsfCommand(app_);
    addSelfcheckCommand(app_);
    addShowCommand(app_);
    addSimulateCommand(app_);
    addSuperresCommand(app_);
    addVectorsCommand(app_);
    addHelpCommand(app_);
    addDocumentsCommand(app_);
    addCommonOptions(app_, options_);
    app_.require_subcommand(1);
    app_.set_version_flag("--version", versionText, "Tell the versions of the program and its libraries");
    app_.footer(footer);
    app_.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string("vxkit: ") + error.what() + " (vxkit --help tells more)\n";
    });
    app_.parse_complete_callback([this] { begin(); });
}

// Runs when the options are known and the command has not begun.
void Program::begin()
{
    const CLI::App& command = *app_.get_subcommands().front();
    const CLI::Option* json = command.get_option_no_throw("--json");
    const bool printsJson = json != nullptr && json->count() > 0;
    if (options_.quiet && options_.verbose)
        throw UsageError("--quiet and --verbose: expected one of them");
    const Verbosity verbosity = options_.verbosity();
    scope_.emplace(verbosity, verbosity != Verbosity::quiet && !printsJson);
    if (verbosity == Verbosity::verbose)
        std::cerr << invocationText(command) << std::flush;
}

void Program::parse(int argc, const char* const* argv)
{
    if (argc < 2)
        throw UsageError("expected a command (vxkit --help lists them)");
    requireKnownWords(app_, {argv + 1, static_cast<std::size_t>(argc - 1)});
    app_.parse(argc, argv);
}

const char* const outOfMemory =
    "out of memory; expected smaller frames, a part of the recording (--frames) or more memory";

int report(const std::string& message, ExitStatus status)
{
    std::cerr << "vxkit: " << message << '\n';
    return status;
}

int Program::run(int argc, const char* const* argv)
{
    try {
        parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app_.exit(error) == 0 ? exitSuccess : exitUsage;
    } catch (const UsageError& error) {
        return report(error.what(), exitUsage);
    } catch (const WriteError& error) {
        return report(error.what(), exitEngine);
    } catch (const EngineError& error) {
        return report(error.what(), exitEngine);
    } catch (const std::bad_alloc&) {
        return report(outOfMemory, exitEngine);
    } catch (const cv::Exception& error) {
        const bool isMemory = error.code == cv::Error::StsNoMem;
        return report(isMemory ? outOfMemory : "unexpected failure: " + error.err, exitEngine);
    } catch (const std::exception& error) {
        return report(std::string("unexpected failure: ") + error.what(), exitEngine);
    }
    return exitSuccess;
}

void tellCost(double seconds)
{
    struct rusage usage
    {};
    ::getrusage(RUSAGE_SELF, &usage);
    std::cerr << std::fixed << std::setprecision(2) << seconds << " s, at most " << usage.ru_maxrss / 1024
              << " MiB of memory" << std::endl;
}

}  // namespace

int runProgram(int argc, const char* const* argv)
{
    halvor::vx::StopWatch watch;
    watch.start();
    Program program;
    const int status = program.run(argc, argv);
    watch.stop();
    if (isVerbose())
        tellCost(watch.timeElapsed());
    return status;
}

}  // namespace vxapp
