// SPDX-License-Identifier: Apache-2.0
#include <pybind11/pybind11.h>

#include "apps/vxkit/terminal/QuietStream.h"
#include "bindings/python/src/Bindings.h"
#include "bindings/python/src/Errors.h"
#include "bindings/python/src/Log.h"

PYBIND11_MODULE(_vxkit, module)
{
    module.doc() = "What the package vxkit is made on; not for programs.";
    module.attr("version") = VXKIT_VERSION;
    vxapp::allowQuietStreams(false);
    vxpy::addLog(module);
    vxpy::addErrors(module);
    vxpy::addRecording(module);
    vxpy::addWriter(module);
    vxpy::addSuperres(module);
    vxpy::addEnhancement(module);
    vxpy::addMeasures(module);
    vxpy::addObjects(module);
}
