// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pybind11/pybind11.h>

// The parts of the module, one source each.
namespace vxpy {

namespace py = pybind11;

void addRecording(py::module_& module);
void addWriter(py::module_& module);
void addSuperres(py::module_& module);
void addEnhancement(py::module_& module);
void addMeasures(py::module_& module);
void addObjects(py::module_& module);

}  // namespace vxpy
