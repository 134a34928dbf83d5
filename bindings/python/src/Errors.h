// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pybind11/pybind11.h>

#include <string>

#include "apps/vxkit/terminal/Failure.h"
#include "bindings/c/vxkit.h"

// How the library's errors reach Python.
namespace vxpy {

namespace py = pybind11;

/// Adds the class vxkit.Error, and makes Python exceptions of what the library throws: bad input a ValueError, shortage
/// of memory a MemoryError, anything else a vxkit.Error.
void addErrors(py::module_& module);

/// A text in which names of files may stand that are no UTF-8; as os.fsdecode() has them.
py::str textOf(const std::string& text);

/// Names of options as Python calls them: "psf_sigma" of "--psf-sigma".
std::string inPython(const std::string& message);

/// Raises what is wrong with a file as an OSError of its kind, and what is wrong with an option as a ValueError.
[[noreturn]] void raiseOfFile(const vxapp::UsageError& error);

/// Raises a vxkit.Error with an engine's code.
[[noreturn]] void raiseError(const std::string& message, int code);

/// Raises what a call of the C interface answers.
[[noreturn]] void raiseStatus(vxkit_status status, const std::string& message);

/// Runs something on files.
template <typename Function>
auto onFiles(Function function)
{
    try {
        return function();
    } catch (const vxapp::UsageError& error) {
        raiseOfFile(error);
    } catch (const vxapp::WriteError& error) {
        PyErr_SetObject(PyExc_OSError, textOf(error.what()).ptr());
        throw py::error_already_set();
    }
}

}  // namespace vxpy
