# SPDX-License-Identifier: Apache-2.0
# vxkit_api_docs: HTML from the docstrings of the installed headers. A public member without one is an error.
find_package(Doxygen QUIET)
if(NOT DOXYGEN_FOUND)
  return()
endif()

set(VXKIT_API_DOCS ${PROJECT_BINARY_DIR}/api-docs)
get_target_property(headers vxkit HEADER_SET)
list(JOIN headers "\" \\\n    \"" VXKIT_API_HEADERS)
configure_file(docs/api/Doxyfile.in ${VXKIT_API_DOCS}/Doxyfile @ONLY)
add_custom_command(OUTPUT ${VXKIT_API_DOCS}/done
  COMMAND ${CMAKE_COMMAND} -E rm -rf ${VXKIT_API_DOCS}/html
  COMMAND Doxygen::doxygen ${VXKIT_API_DOCS}/Doxyfile
  COMMAND ${CMAKE_COMMAND} -E touch ${VXKIT_API_DOCS}/done
  DEPENDS ${headers} ${VXKIT_API_DOCS}/Doxyfile ${PROJECT_SOURCE_DIR}/docs/api/mainpage.md
  COMMENT "Writing the reference of the public headers"
  VERBATIM)
add_custom_target(vxkit_api_docs DEPENDS ${VXKIT_API_DOCS}/done)
install(DIRECTORY ${VXKIT_API_DOCS}/html DESTINATION ${CMAKE_INSTALL_DOCDIR} OPTIONAL)
