# SPDX-License-Identifier: Apache-2.0
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/VxKit)

install(TARGETS vxkit EXPORT VxKitTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vxkit)
install(EXPORT VxKitTargets NAMESPACE VxKit:: DESTINATION ${package_dir})
install(TARGETS vxkit_c EXPORT VxKitCTargets)
install(EXPORT VxKitCTargets NAMESPACE VxKit:: DESTINATION ${package_dir})

configure_package_config_file(cmake/VxKitConfig.cmake.in VxKitConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(VxKitConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/VxKitConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/VxKitConfigVersion.cmake
  DESTINATION ${package_dir})

# Relative to the file itself, so that an install tree may be moved.
file(RELATIVE_PATH VXKIT_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" VXKIT_PC_TO_PREFIX "${VXKIT_PC_TO_PREFIX}")
foreach(package vxkit vxkit-c)
  configure_file(cmake/${package}.pc.in ${package}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${package}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
