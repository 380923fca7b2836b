# SPDX-License-Identifier: Apache-2.0
# What every target of the project shares, and the two ways to declare one.

include(GNUInstallDirs)
include(CheckCXXCompilerFlag)
include(CheckIPOSupported)
include(CheckPIESupported)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

add_library(flow_options INTERFACE)
# Where files are compiled together, clang takes a constant of another one for hidden by a function's own.
target_compile_options(flow_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion
                       $<$<NOT:$<AND:$<BOOL:${FLOW_UNITY}>,$<CXX_COMPILER_ID:Clang>>>:-Wshadow>
                       $<$<BOOL:${FLOW_WERROR}>:-Werror>)
set(optimised $<NOT:$<CONFIG:Debug>>)
if(FLOW_SANITIZE)
  set(optimised 0)
endif()
# GCC 12 at -O3 takes std::string's operator+ for an overlapping copy (GCC bug 105329).
target_compile_options(flow_options INTERFACE
                       $<$<AND:$<CXX_COMPILER_ID:GNU>,${optimised}>:-Wno-restrict>)
# The inliner may let the whole library grow by so many per cent. Its own 40 are used up by what is
# read once, and then small functions on the road of a record are called that had better be part of it.
target_compile_options(flow_options INTERFACE
                       $<$<AND:$<CXX_COMPILER_ID:GNU>,${optimised}>:--param=inline-unit-growth=80>)
# Unique symbols would keep the plug-in in memory until the process ends.
target_compile_options(flow_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
target_compile_definitions(flow_options INTERFACE FLOW_BUILDS_LIBRARY)
target_include_directories(flow_options INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include
                                                  ${PROJECT_BINARY_DIR}/include)

configure_file(${PROJECT_SOURCE_DIR}/include/flowhandlers/version.h.in
               ${PROJECT_BINARY_DIR}/include/flowhandlers/version.h @ONLY)

# flow_revision.h has the revision that is built, looked up with every build.
set(FLOW_REVISION "" CACHE STRING "The revision of sources that are no git clone")
set(revision_header ${PROJECT_BINARY_DIR}/revision/flow_revision.h)
add_custom_target(flow_revision_header BYPRODUCTS ${revision_header}
                  COMMAND ${CMAKE_COMMAND} -DSOURCE=${PROJECT_SOURCE_DIR} -DOUT=${revision_header}
                          -DREVISION=${FLOW_REVISION}
                          -P ${PROJECT_SOURCE_DIR}/cmake/flow_revision.cmake)
add_library(flow_revision INTERFACE)
target_include_directories(flow_revision INTERFACE ${PROJECT_BINARY_DIR}/revision)
add_dependencies(flow_revision flow_revision_header)
if(FLOW_SANITIZE)
  # The host side declares the interfaces on its own, so run-time type checks across the border
  # would be false alarms.
  target_compile_options(flow_options INTERFACE -fsanitize=${FLOW_SANITIZE} -fno-sanitize=vptr
                                                -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(flow_options INTERFACE -fsanitize=${FLOW_SANITIZE})
endif()
if(FLOW_FUZZ)
  target_compile_options(flow_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# Whatever is neither for a debugger nor under a sanitizer, which sees more, is hardened: datagrams are
# strangers'.
check_pie_supported(LANGUAGES CXX)
if(NOT FLOW_SANITIZE AND NOT FLOW_FUZZ)
  set(hardening -fstack-protector-strong)
  foreach(flag -fstack-clash-protection -fcf-protection -mbranch-protection=standard)
    string(MAKE_C_IDENTIFIER "flow_has${flag}" has_flag)
    check_cxx_compiler_flag(${flag} ${has_flag})
    if(${has_flag})
      list(APPEND hardening ${flag})
    endif()
  endforeach()
  target_compile_options(flow_options INTERFACE
                         "$<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3;${hardening}>")
  target_link_options(flow_options INTERFACE
                      "$<$<NOT:$<CONFIG:Debug>>:-Wl,-z,relro,-z,now,-z,noexecstack>")
endif()

# flow_room(NAME SOURCE...): one room of the house, linked into the library and into the tests that
# look inside it.
function(flow_room name)
  add_library(${name} OBJECT ${ARGN})
  target_link_libraries(${name} PUBLIC flow_options)
  flow_optimised(${name})
endfunction()

# flow_optimised(TARGET): under the sanitizers, where tests compile in a third of the time without
# optimisation, code that runs often enough to be worth it. Fuzz targets have all of it anyway.
function(flow_optimised target)
  if(FLOW_SANITIZE AND NOT FLOW_FUZZ)
    target_compile_options(${target} PRIVATE -O1)
  endif()
endfunction()

# flow_watched_threads(TARGET): a program with librdkafka, for the thread sanitizer.
function(flow_watched_threads target)
  if(FLOW_SANITIZE MATCHES thread)
    target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support/c11_threads.cpp)
  endif()
endfunction()

# So many times the time that tests have elsewhere: under the thread sanitizer they are that slow.
set(flow_times 1)
if(FLOW_SANITIZE MATCHES thread)
  set(flow_times 4)
endif()

# flow_patience(): the tests of this folder have so much time.
function(flow_patience)
  get_property(names DIRECTORY PROPERTY TESTS)
  foreach(name IN LISTS names)
    get_test_property(${name} TIMEOUT seconds)
    if(seconds)
      math(EXPR seconds "${flow_times} * ${seconds}")
      set_tests_properties(${name} PROPERTIES TIMEOUT ${seconds})
    endif()
  endforeach()
endfunction()

# flow_whole(TARGET...): what is optimised as a whole when it is linked.
function(flow_whole)
  if(FLOW_SANITIZE)
    return()
  endif()
  check_ipo_supported(RESULT flow_has_ipo OUTPUT flow_ipo_output LANGUAGES CXX)
  if(flow_has_ipo)
    set_target_properties(${ARGN} PROPERTIES INTERPROCEDURAL_OPTIMIZATION ON
                                             INTERPROCEDURAL_OPTIMIZATION_DEBUG OFF)
  endif()
endfunction()

# flow_exports(TARGET MAP): a shared library that exports what the linker's version script names, and
# finds all that it needs.
function(flow_exports target map)
  target_link_options(${target} PRIVATE -Wl,--version-script=${map})
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
  if(NOT FLOW_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,-z,defs -Wl,--gc-sections)
  endif()
endfunction()

# flow_test(NAME LABEL... SOURCES FILE... ROOMS ROOM...): a GoogleTest program; the label names the
# room that it tests.
function(flow_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "LABEL" "SOURCES;LINK")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE flow_options ${arg_LINK} GTest::gtest_main GTest::gmock)
  math(EXPR seconds "${flow_times} * 300")
  gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60
                       PROPERTIES LABELS "${arg_LABEL}" TIMEOUT ${seconds}
                       # For a reason that is told: none is where a suite could not be set up.
                       SKIP_REGULAR_EXPRESSION "Skipped.[a-z]"
                       WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
endfunction()
