# SPDX-License-Identifier: Apache-2.0
# vxkit.archive and its command; Python alone. Its tests need python3-distributed and python3-xxhash.

foreach(part archive _archive_program.py)
  file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR}/vxkit/${part} ${package_dir}/${part} SYMBOLIC)
endforeach()
if(IS_ABSOLUTE "${CMAKE_INSTALL_BINDIR}" OR IS_ABSOLUTE "${VXKIT_PYTHON_DIR}")
  cmake_path(ABSOLUTE_PATH VXKIT_PYTHON_DIR BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} OUTPUT_VARIABLE bin_to_python)
else()
  file(RELATIVE_PATH bin_to_python /${CMAKE_INSTALL_BINDIR} /${VXKIT_PYTHON_DIR})
endif()
configure_file(vxkit-archive.in vxkit-archive @ONLY)
install(DIRECTORY vxkit/archive DESTINATION ${VXKIT_PYTHON_DIR}/vxkit COMPONENT vxkit_archive
  FILES_MATCHING PATTERN "*.py" PATTERN __pycache__ EXCLUDE)
install(FILES vxkit/_archive_program.py DESTINATION ${VXKIT_PYTHON_DIR}/vxkit COMPONENT vxkit_archive)
install(PROGRAMS ${CMAKE_CURRENT_BINARY_DIR}/vxkit-archive DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT vxkit_archive)
install(FILES vxkit-archive.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT vxkit_archive)

if(VXKIT_BUILD_TESTING)
  add_test(NAME python_archive COMMAND ${Python_EXECUTABLE} -m pytest -q -p no:cacheprovider
    ${CMAKE_CURRENT_SOURCE_DIR}/tests/test_archive.py)
  set_tests_properties(python_archive PROPERTIES TIMEOUT 600 RUN_SERIAL TRUE ENVIRONMENT
    "PYTHONPATH=${PROJECT_BINARY_DIR}/python;PYTHONDONTWRITEBYTECODE=1")
endif()
