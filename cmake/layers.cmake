# Who may know whom. A layer is a folder; the list behind it names the layers that its code may
# include and link. Configuring fails on an edge that is not here, and the test
# "layering" reads every #include against this same table. There is no allow-list.
#
#   layer | folder | may use
#
# A file belongs to the layer with the longest folder that it lies below. NAME_* stands for the layers whose names
# begin with NAME_.

set(PADDOCK_LAYERS
  "base            | src/base             |"
  "api             | include/paddock      | base"
  "protocol        | src/protocol         |"
  "configuration   | src/configuration    | base"
  "samba           | src/samba            | base"
  "platform        | src/platform         | base protocol"
  "exports         | src/exports          | platform api base protocol"
  "privileges      | src/privileges       | platform api base protocol"
  "volumes         | src/volumes          | platform api base protocol"
  "store           | src/store            | exports privileges volumes platform api base protocol"
  "handler         | src/handler          | store exports privileges volumes platform api base protocol"
  "wire            | src/wire             | base"
  "hostlib         | src/hostlib          | api base"
  "openapi         | src/openapi          | wire api base"
  "linux_process   | src/platform/linux/process    | platform base protocol"
  "linux_files     | src/platform/linux/files      | platform base protocol"
  "linux_quotas    | src/platform/linux/quotas     | linux_files platform base protocol"
  "linux_dnssd     | src/platform/linux/dnssd      | linux_process platform base protocol"
  "linux_database  | src/platform/linux/database   | linux_process platform base protocol"
  "linux_accounts  | src/platform/linux/accounts   | linux_database linux_files linux_process platform base protocol"
  "linux_acl       | src/platform/linux/acl        | linux_accounts linux_database linux_process platform base protocol"
  "linux_privileges| src/platform/linux/privileges | linux_acl linux_accounts linux_files linux_process platform base protocol"
  "linux_ldap      | src/platform/linux/ldap       | linux_accounts linux_files linux_process platform base protocol"
  "linux_directory | src/platform/linux/directory  | linux_ldap linux_accounts linux_database linux_files linux_process platform base protocol"
  "platform_linux  | src/platform/linux   | linux_* platform base protocol"
  "platform_host   | src/platform/host    | hostlib platform api base protocol"
  "platform_testing| src/platform/testing | platform base protocol"
  "module          | src/module           | handler store exports privileges volumes platform_linux linux_* platform_host hostlib wire platform api base protocol"
  "daemon          | src/daemon           | configuration openapi wire hostlib api base protocol"
  "plugins         | plugins              | store exports samba hostlib platform_linux linux_* platform_host platform api base protocol"
  "apps_paddockd   | apps/paddockd        | daemon base"
  "keelhouse_core  | apps/keelhouse/core  | samba wire base protocol"
  "apps_keelhouse  | apps/keelhouse       | keelhouse_core samba wire base protocol"
  "apps_frame      | apps/frame           | base"
  "apps_quotascan  | apps/quotascan       | apps_frame volumes platform_linux linux_* platform base protocol"
  "apps_copyprivs  | apps/copyprivs       | apps_frame privileges platform_linux linux_* configuration wire platform api base protocol"
  "apps_effectiveprivs | apps/effectiveprivs | apps_frame exports samba privileges platform_linux linux_* configuration wire platform api base protocol"
  "apps_synchronize_shares | apps/synchronize-shares | apps_frame store platform_linux linux_* configuration platform samba api base protocol"
)

# Layers whose code includes the standard library, POSIX and this project, nothing else.
set(PADDOCK_PLAIN_LAYERS base api protocol platform exports privileges volumes store handler)

foreach(row IN LISTS PADDOCK_LAYERS)
  string(REPLACE "|" ";" fields "${row}")
  list(GET fields 0 layer)
  list(GET fields 1 folder)
  list(GET fields 2 uses)
  string(STRIP "${layer}" layer)
  string(STRIP "${folder}" folder)
  string(STRIP "${uses}" uses)
  string(REPLACE "*" "[a-z_]*" uses "${uses}")
  string(REPLACE " " "|" uses "${uses}")
  set(PADDOCK_FOLDER_${layer} "${folder}")
  set(PADDOCK_MAY_USE_${layer} "^(${uses})$")
endforeach()

# Fails unless `layer` may use each of the layers behind it.
function(paddock_check_edges layer)
  foreach(used IN LISTS ARGN)
    if(NOT used MATCHES "${PADDOCK_MAY_USE_${layer}}")
      message(FATAL_ERROR "layer ${layer} may not use ${used} (cmake/layers.cmake)")
    endif()
  endforeach()
endfunction()

# The files of the current folder, and of the folders below it that are named, that match the pattern.
function(paddock_files result pattern)
  set(patterns ${CMAKE_CURRENT_SOURCE_DIR}/${pattern})
  foreach(folder IN LISTS ARGN)
    list(APPEND patterns ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/${pattern})
  endforeach()
  file(GLOB found CONFIGURE_DEPENDS ${patterns})
  set(${result} "${found}" PARENT_SCOPE)
endfunction()

# paddock_layer(LAYER [SHARED] [FOLDERS folders...] [USES layers...] [LIBRARIES third-party targets...])
# makes the library paddock_LAYER of every .cc but the tests and *_main.cc of the current folder and of the
# FOLDERS below it.
function(paddock_layer layer)
  cmake_parse_arguments(arg "SHARED" "" "FOLDERS;USES;LIBRARIES" ${ARGN})
  paddock_check_edges(${layer} ${arg_USES})
  paddock_files(arg_SOURCES *.cc ${arg_FOLDERS})
  list(FILTER arg_SOURCES EXCLUDE REGEX "(_test|_main)\\.cc$")
  if(arg_SHARED)
    add_library(paddock_${layer} SHARED ${arg_SOURCES})
  else()
    add_library(paddock_${layer} STATIC ${arg_SOURCES})
  endif()
  target_include_directories(paddock_${layer} PUBLIC ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include)
  target_link_libraries(paddock_${layer} PUBLIC paddock_flags)
  target_precompile_headers(paddock_${layer} REUSE_FROM paddock_precompiled)
  foreach(used IN LISTS arg_USES)
    if(TARGET paddock_${used})
      target_link_libraries(paddock_${layer} PUBLIC paddock_${used})
    elseif(NOT used STREQUAL "api")
      message(FATAL_ERROR "layer ${layer} uses ${used}, which has no library")
    endif()
  endforeach()
  target_link_libraries(paddock_${layer} PRIVATE ${arg_LIBRARIES})
endfunction()

# paddock_test(NAME [SOURCES ...] [FOLDERS ...] LINKS targets... [TIMEOUT s] [ENVIRONMENT ...]) makes a
# GoogleTest program of the sources (every *_test.cc of the current folder and the FOLDERS below it when none are
# named), whose tests run under ctest as NAME/SUITE.TEST. Tests may use any layer.
function(paddock_test name)
  cmake_parse_arguments(arg "" "TIMEOUT" "SOURCES;FOLDERS;LINKS;ENVIRONMENT" ${ARGN})
  if(NOT BUILD_TESTING)
    return()
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  if(NOT arg_SOURCES)
    paddock_files(arg_SOURCES *_test.cc ${arg_FOLDERS})
  endif()
  # Nothing is advertised on the network of this machine.
  list(APPEND arg_ENVIRONMENT "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent/bus")
  add_executable(${name} ${arg_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${arg_LINKS} paddock_flags GTest::gmock GTest::gtest_main)
  target_precompile_headers(${name} REUSE_FROM paddock_precompiled_tests)
  # What a test checks is compiled with optimisation; its own code is not worth the time.
  if(CMAKE_BUILD_TYPE STREQUAL Debug)
    target_compile_options(${name} PRIVATE -O0)
  endif()
  gtest_discover_tests(${name} TEST_PREFIX "${name}/" NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${arg_TIMEOUT} ENVIRONMENT "${arg_ENVIRONMENT}")
endfunction()
