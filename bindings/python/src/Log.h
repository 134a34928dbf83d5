// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pybind11/pybind11.h>

namespace vxpy {

/// Sends warnings, and what classes print, to the logger "vxkit" of Python.
void addLog(pybind11::module_& module);

}  // namespace vxpy
