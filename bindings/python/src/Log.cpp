// SPDX-License-Identifier: Apache-2.0
#include "bindings/python/src/Log.h"

#include <string>

#include "apps/vxkit/terminal/Verbosity.h"
#include "bindings/c/vxkit.h"
#include "bindings/python/src/Errors.h"

namespace vxpy {

namespace {

namespace py = pybind11;

// A log that fails must not end what it tells of.
void tell(const char* level, const std::string& text)
{
    const py::gil_scoped_acquire acquired;
    try {
        py::module_::import("logging").attr("getLogger")("vxkit").attr(level)("%s", textOf(text));
    } catch (py::error_already_set& error) {
        error.discard_as_unraisable("the logger vxkit");
    }
}

void takeWarning(const std::string& text)
{
    tell("warning", inPython(text));
}

// Failures are raised, and what classes print helps to find a fault.
void takeLine(void* /*user*/, vxkit_level level, const char* source, const char* text)
{
    if (level != VXKIT_ERROR)
        tell(level == VXKIT_WARNING ? "info" : "debug", std::string(source) + ": " + text);
}

void chooseLevel(const std::string& level)
{
    if (level == "warning")
        vxkit_set_log(nullptr, nullptr, VXKIT_ERROR);
    else if (level == "info")
        vxkit_set_log(takeLine, nullptr, VXKIT_WARNING);
    else if (level == "debug")
        vxkit_set_log(takeLine, nullptr, VXKIT_INFO);
    else if (level == "trace")
        vxkit_set_log(takeLine, nullptr, VXKIT_DEBUG);
    else
        throw py::value_error("level " + level + ": expected warning, info, debug or trace");
}

}  // namespace

void addLog(py::module_& module)
{
    vxapp::setWarningSink(takeWarning);
    module.def("set_log_level", &chooseLevel, py::arg("level"));
    // After the interpreter's end there is no logger.
    py::module_::import("atexit").attr("register")(py::cpp_function([] {
        vxapp::setWarningSink(nullptr);
        vxkit_set_log(nullptr, nullptr, VXKIT_ERROR);
    }));
}

}  // namespace vxpy
