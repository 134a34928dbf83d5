// SPDX-License-Identifier: Apache-2.0
#include "bindings/python/src/Log.h"

#include <string>

#include "apps/vxkit/terminal/Verbosity.h"

namespace vxpy {

namespace {

namespace py = pybind11;

// A log that fails must not end what it tells of.
void tell(const char* level, const std::string& text)
{
    const py::gil_scoped_acquire acquired;
    try {
        py::module_::import("logging").attr("getLogger")("vxkit").attr(level)("%s", text);
    } catch (py::error_already_set& error) {
        error.discard_as_unraisable("the logger vxkit");
    }
}

void takeWarning(const std::string& text)
{
    tell("warning", text);
}

}  // namespace

void addLog(py::module_& /*module*/)
{
    vxapp::setWarningSink(takeWarning);
}

}  // namespace vxpy
