# SPDX-License-Identifier: Apache-2.0
# Stands in for an OpenCV of which only the library's modules are installed. OpenCV_REAL_DIR is the package's own folder.
foreach(component IN LISTS OpenCV_FIND_COMPONENTS)
  if(NOT component MATCHES "^(core|imgproc|video)$")
    message(FATAL_ERROR "a library-only build asks for OpenCV's module ${component}")
  endif()
endforeach()
include(${OpenCV_REAL_DIR}/OpenCVConfig.cmake)
