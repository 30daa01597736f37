# SPDX-License-Identifier: Apache-2.0
# nyxus_compile_by_room(TARGET): the files of one folder are compiled together; folders may use one
# name for two things.
function(nyxus_compile_by_room target)
  set_target_properties(${target} PROPERTIES UNITY_BUILD_MODE GROUP)
  get_target_property(sources ${target} SOURCES)
  foreach(source IN LISTS sources)
    cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR} NORMALIZE OUTPUT_VARIABLE path)
    cmake_path(GET path PARENT_PATH folder)
    cmake_path(GET folder FILENAME room)
    set_source_files_properties(${source} PROPERTIES UNITY_GROUP ${room})
  endforeach()
endfunction()
