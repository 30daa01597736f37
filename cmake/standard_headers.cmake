# SPDX-License-Identifier: Apache-2.0
# The headers of the standard library that most files of the programs include, compiled once for all
# of them. Every file still includes what it uses: clang-tidy reads them without.
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/standard_headers.cpp CONTENT "")
add_library(nyxus_standard_headers OBJECT ${PROJECT_BINARY_DIR}/standard_headers.cpp)
target_link_libraries(nyxus_standard_headers PRIVATE nyxus_options)
target_precompile_headers(nyxus_standard_headers PRIVATE
  <algorithm> <array> <chrono> <cstdint> <filesystem> <functional> <map> <memory> <mutex> <optional> <span>
  <string> <string_view> <variant> <vector>)

# nyxus_use_standard_headers(TARGET...)
function(nyxus_use_standard_headers)
  foreach(target IN LISTS ARGN)
    target_precompile_headers(${target} REUSE_FROM nyxus_standard_headers)
  endforeach()
endfunction()
