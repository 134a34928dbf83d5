# SPDX-License-Identifier: Apache-2.0
# vxkit.archive and its command; Python alone. Its tests need python3-distributed and python3-xxhash.

file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR}/vxkit/archive ${package_dir}/archive SYMBOLIC)
install(DIRECTORY vxkit/archive DESTINATION ${VXKIT_PYTHON_DIR}/vxkit COMPONENT vxkit_archive
  FILES_MATCHING PATTERN "*.py" PATTERN __pycache__ EXCLUDE)
install(PROGRAMS vxkit-archive DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT vxkit_archive)
install(FILES vxkit-archive.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT vxkit_archive)

if(VXKIT_BUILD_TESTING)
  add_test(NAME python_archive COMMAND ${Python_EXECUTABLE} -m pytest -q -p no:cacheprovider
    ${CMAKE_CURRENT_SOURCE_DIR}/tests/test_archive.py)
  set_tests_properties(python_archive PROPERTIES TIMEOUT 600 RUN_SERIAL TRUE ENVIRONMENT
    "PYTHONPATH=${PROJECT_BINARY_DIR}/python;PYTHONDONTWRITEBYTECODE=1")
endif()
