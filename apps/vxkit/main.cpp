#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>

#include "apps/vxkit/Failure.h"

// Each command registers its options and stores what is to run; it runs after the whole line has been parsed.
int main(int argc, char** argv)
{
    CLI::App app{"Image enhancement for thermal cameras", "vxkit"};
    app.require_subcommand(1);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int status = app.exit(error);
        return status == 0 ? vxapp::exitSuccess : vxapp::exitUsage;
    } catch (const vxapp::UsageError& error) {
        std::cerr << "vxkit: " << error.what() << '\n';
        return vxapp::exitUsage;
    } catch (const vxapp::EngineError& error) {
        std::cerr << "vxkit: " << error.what() << '\n';
        return vxapp::exitEngine;
    } catch (const std::exception& error) {
        std::cerr << "vxkit: unexpected failure: " << error.what() << '\n';
        return vxapp::exitEngine;
    }
    return vxapp::exitSuccess;
}
