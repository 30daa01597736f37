# SPDX-License-Identifier: Apache-2.0
# Where ccache is installed it is used: -DNYXUS_CCACHE=OFF builds without.
option(NYXUS_CCACHE "Use ccache where it is installed" ON)
find_program(NYXUS_CCACHE_PROGRAM ccache)
mark_as_advanced(NYXUS_CCACHE_PROGRAM)
if(NYXUS_CCACHE AND NYXUS_CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # Without the latter it would pass on every file that uses a precompiled header.
  set(launcher ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${NYXUS_CCACHE_PROGRAM})
  set(CMAKE_C_COMPILER_LAUNCHER ${launcher})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${launcher})
endif()

# nyxus_warnings: language level and warnings, for every target.
add_library(nyxus_warnings INTERFACE)
target_compile_features(nyxus_warnings INTERFACE c_std_11 cxx_std_20)
target_compile_options(nyxus_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2 -Wundef
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>)

option(NYXUS_WERROR "Treat warnings as errors (CI)" OFF)
if(NYXUS_WERROR)
  target_compile_options(nyxus_warnings INTERFACE -Werror)
endif()

# nyxus_options: the same with the instrumentation of the preset, for all that is not injected into
# foreign programs.
add_library(nyxus_options INTERFACE)
target_link_libraries(nyxus_options INTERFACE nyxus_warnings)

set(NYXUS_SANITIZE "" CACHE STRING "Value for -fsanitize= (address,undefined or thread)")
if(NYXUS_SANITIZE)
  target_compile_options(nyxus_options INTERFACE
    -fsanitize=${NYXUS_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(nyxus_options INTERFACE -fsanitize=${NYXUS_SANITIZE})
endif()
