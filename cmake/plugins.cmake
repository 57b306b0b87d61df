# Where things are installed, and plug-ins.

if(CMAKE_INSTALL_PREFIX_INITIALIZED_TO_DEFAULT)
  set(CMAKE_INSTALL_PREFIX /usr CACHE PATH "Where to install" FORCE)
endif()

set(PADDOCK_LIBRARY_FOLDER lib/paddock)
set(PADDOCK_BUNDLE_FOLDER share/paddockd/bundles)

# The layer whose folder the current source folder is or stands in; empty for none (tests).
function(paddock_layer_of_folder result)
  file(RELATIVE_PATH here ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  set(${result} "" PARENT_SCOPE)
  foreach(row IN LISTS PADDOCK_LAYERS)
    string(REGEX REPLACE " *\\|.*" "" layer "${row}")
    string(FIND "${here}/" "${PADDOCK_FOLDER_${layer}}/" position)
    if(position EQUAL 0)
      set(${result} ${layer} PARENT_SCOPE)
    endif()
  endforeach()
endfunction()

# paddock_embed_text(TARGET TEXT FUNCTION) adds to the target the C function that returns the text of a file of
# the current folder.
function(paddock_embed_text target text function)
  set(source ${CMAKE_CURRENT_BINARY_DIR}/${function}.cc)
  set(script ${PROJECT_SOURCE_DIR}/cmake/embed_text.cmake)
  add_custom_command(OUTPUT ${source} DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${text} ${script} VERBATIM
    COMMAND ${CMAKE_COMMAND} -D TEXT=${CMAKE_CURRENT_SOURCE_DIR}/${text} -D SOURCE=${source}
            -D FUNCTION=${function} -P ${script})
  target_sources(${target} PRIVATE ${source})
  set_source_files_properties(${source} PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
endfunction()

# paddock_plugin(NAME [SOURCES ...] [USES layers...] [LIBRARIES third-party targets...] [TEST])
# makes the plug-in NAME.so of the sources (every .cc of the current folder but the tests when none
# are named), in bundles/NAME.bundle/Contents of the build tree, and installs it. Its own code is
# hidden but for the C symbols of paddock/plugin.h; the text of the third one is NAME.json of the
# current folder, where there is one. TEST: for tests only, not installed, in
# test_bundles/NAME.bundle/Contents.
function(paddock_plugin name)
  cmake_parse_arguments(arg "TEST" "" "SOURCES;USES;LIBRARIES" ${ARGN})
  paddock_layer_of_folder(layer)
  if(layer)
    paddock_check_edges(${layer} ${arg_USES})
  endif()
  if(NOT arg_SOURCES)
    file(GLOB arg_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cc)
    list(FILTER arg_SOURCES EXCLUDE REGEX "_test\\.cc$")
  endif()
  set(bundles bundles)
  if(arg_TEST)
    set(bundles test_bundles)
  endif()
  add_library(${name} MODULE ${arg_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include
    ${PROJECT_SOURCE_DIR}/plugins)
  # The host library comes first: what it has is taken from it and exists once in the process.
  target_link_libraries(${name} PRIVATE paddock_hostlib)
  foreach(used IN LISTS arg_USES)
    if(NOT used STREQUAL "api")
      target_link_libraries(${name} PRIVATE paddock_${used})
    endif()
  endforeach()
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} paddock_flags)
  file(GLOB description CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}.json)
  if(description)
    paddock_embed_text(${name} ${name}.json paddock_plugin_description)
  endif()
  target_link_options(${name} PRIVATE -Wl,-z,nodelete)
  set_target_properties(${name} PROPERTIES
    PREFIX ""
    CXX_VISIBILITY_PRESET hidden
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/${bundles}/${name}.bundle/Contents
    INSTALL_RPATH "$ORIGIN/../../../../../${PADDOCK_LIBRARY_FOLDER}")
  if(NOT arg_TEST)
    install(TARGETS ${name} LIBRARY DESTINATION ${PADDOCK_BUNDLE_FOLDER}/${name}.bundle/Contents)
  endif()
endfunction()
