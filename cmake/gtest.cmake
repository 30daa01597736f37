# SPDX-License-Identifier: Apache-2.0
# Programs of GoogleTest's tests. Its header is compiled once for all of them.
find_package(GTest REQUIRED)
include(GoogleTest)

# GoogleTest's macros are complete statements, whatever GCC thinks of those below an if without
# braces. Fixtures use types of their file's own, also where files are compiled together. The optimiser
# would spend more time on tests than they take.
add_library(nyxus_gtest INTERFACE)
target_link_libraries(nyxus_gtest INTERFACE nyxus_options GTest::gtest)
target_compile_options(nyxus_gtest INTERFACE -Wno-dangling-else $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage> $<$<CONFIG:Release>:-O1>)

file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/gtest_header.cpp CONTENT "")
add_library(nyxus_gtest_header OBJECT ${PROJECT_BINARY_DIR}/gtest_header.cpp)
target_link_libraries(nyxus_gtest_header PRIVATE nyxus_gtest)
target_precompile_headers(nyxus_gtest_header PRIVATE <gtest/gtest.h>)

# nyxus_add_gtest(NAME SOURCE...)
function(nyxus_add_gtest name)
  add_executable(${name})
  target_sources(${name} PRIVATE ${ARGN})
  target_link_libraries(${name} PRIVATE nyxus_gtest GTest::gtest_main)
  target_precompile_headers(${name} REUSE_FROM nyxus_gtest_header)
endfunction()
