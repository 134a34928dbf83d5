// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/Program.h"

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <string>

#include "apps/vxkit/commands/CompareCommand.h"
#include "apps/vxkit/commands/EnhanceCommand.h"
#include "apps/vxkit/commands/FilterCommand.h"
#include "apps/vxkit/commands/SelfcheckCommand.h"
#include "apps/vxkit/commands/SimulateCommand.h"
#include "apps/vxkit/commands/SuperresCommand.h"
#include "apps/vxkit/commands/VectorsCommand.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

int report(const std::string& message, ExitStatus status)
{
    std::cerr << "vxkit: " << message << '\n';
    return status;
}

}  // namespace

// Each command registers its options and a callback, which runs after the whole line has been parsed.
int runProgram(int argc, const char* const* argv)
{
    CLI::App app{"Image enhancement for thermal cameras", "vxkit"};
    app.require_subcommand(1);
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string("vxkit: ") + error.what() + " (vxkit --help tells more)\n";
    });
    addCompareCommand(app);
    addEnhanceCommand(app);
    addFilterCommand(app);
    addSelfcheckCommand(app);
    addSimulateCommand(app);
    addSuperresCommand(app);
    addVectorsCommand(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? exitSuccess : exitUsage;
    } catch (const UsageError& error) {
        return report(error.what(), exitUsage);
    } catch (const EngineError& error) {
        return report(error.what(), exitEngine);
    } catch (const std::exception& error) {
        return report(std::string("unexpected failure: ") + error.what(), exitEngine);
    }
    return exitSuccess;
}

}  // namespace vxapp
