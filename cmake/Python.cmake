# SPDX-License-Identifier: Apache-2.0
# Whether the Python package is built, and with which interpreter: that of the system, for which Debian has numpy and
# pybind11, unless Python_EXECUTABLE names another.

if(VXKIT_BUILD_APPS)
  if(NOT Python_EXECUTABLE)
    find_program(Python_EXECUTABLE python3 PATHS /usr/bin NO_DEFAULT_PATH)
  endif()
  find_package(Python 3.9 COMPONENTS Interpreter Development.Module NumPy)
  if(Python_Development.Module_FOUND AND Python_NumPy_FOUND)
    find_package(pybind11 2.10)
  endif()
endif()
set(python_default OFF)
if(PROJECT_IS_TOP_LEVEL AND pybind11_FOUND AND NOT VXKIT_SANITIZE)
  set(python_default ON)
endif()
option(VXKIT_PYTHON "Build the Python package, on pybind11" ${python_default})
if(VXKIT_PYTHON AND NOT pybind11_FOUND)
  message(FATAL_ERROR "VXKIT_PYTHON is on, but the programs are off, or Python's development files, numpy or pybind11 were not found")
endif()
