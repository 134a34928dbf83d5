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

# Relative to the file itself, so that an install tree may be moved; not where a folder is named absolutely.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(VXKIT_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
else()
  file(RELATIVE_PATH pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
  string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
  set(VXKIT_PC_PREFIX \${pcfiledir}/${pc_to_prefix})
endif()
foreach(folder LIBDIR INCLUDEDIR)
  set(VXKIT_PC_${folder} ${CMAKE_INSTALL_${folder}})
  if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_${folder}}")
    set(VXKIT_PC_${folder} \${prefix}/${CMAKE_INSTALL_${folder}})
  endif()
endforeach()
foreach(package vxkit vxkit-c)
  configure_file(cmake/${package}.pc.in ${package}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${package}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

# Licence and pages, for who has not the tree at hand
if(PROJECT_IS_TOP_LEVEL)
  install(FILES LICENSE README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
  install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} PATTERN api EXCLUDE)
endif()

# Last, since it lists what the other rules have installed
find_package(Python3 QUIET COMPONENTS Interpreter)
option(VXKIT_CONTENTS "Install a list of what was installed (SPDX), with what it was built with" ${PROJECT_IS_TOP_LEVEL})
if(VXKIT_CONTENTS AND Python3_FOUND)
  configure_file(cmake/ListContents.cmake.in ListContents.cmake @ONLY)
  install(SCRIPT ${CMAKE_CURRENT_BINARY_DIR}/ListContents.cmake)
endif()
