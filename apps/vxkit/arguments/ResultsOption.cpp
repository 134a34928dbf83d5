// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/arguments/ResultsOption.h"

#include <CLI/CLI.hpp>

namespace vxapp {

std::shared_ptr<Results> addResultsOption(CLI::App& command)
{
    auto results = std::make_shared<Results>(command.get_name());
    command.add_flag_callback(
        "--json", [results] { results->setJson(true); },
        "Print the results as one JSON object, and no remarks");
    return results;
}

}  // namespace vxapp
