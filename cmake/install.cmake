# SPDX-License-Identifier: Apache-2.0
# What an installed tree has beside the programs and libraries, which each folder installs itself:
# the files by which other builds find the library, the udev rule, man pages and completions.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/nyxus)
configure_package_config_file(cmake/nyxus-config.cmake.in ${PROJECT_BINARY_DIR}/nyxus-config.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/nyxus-config-version.cmake
  VERSION ${NYXUS_LIBRARY_VERSION} COMPATIBILITY SameMajorVersion)
install(EXPORT nyxus-targets NAMESPACE nyxus:: DESTINATION ${package_dir})
install(FILES ${PROJECT_BINARY_DIR}/nyxus-config.cmake
              ${PROJECT_BINARY_DIR}/nyxus-config-version.cmake
  DESTINATION ${package_dir})

# pkg-config's file names folders below the prefix, so that it can be moved with the tree; where a
# packager has chosen folders elsewhere, it names those.
foreach(folder libdir includedir)
  string(TOUPPER CMAKE_INSTALL_${folder} variable)
  set(pc_${folder} ${${variable}})
  cmake_path(IS_ABSOLUTE pc_${folder} is_absolute)
  if(NOT is_absolute)
    string(PREPEND pc_${folder} "\${prefix}/")
  endif()
endforeach()
# The prefix itself is known only when it is installed: cmake --install BUILD --prefix FOLDER.
set(pc_prefix @CMAKE_INSTALL_PREFIX@)
foreach(package nyxus nyxus-engine)
  set(pc_file ${PROJECT_BINARY_DIR}/${package}.pc)
  configure_file(cmake/${package}.pc.in ${pc_file}.in @ONLY)
  install(CODE "configure_file(\"${pc_file}.in\" \"${pc_file}\" @ONLY)")
  install(FILES ${pc_file} DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

# udev looks into lib/udev, whatever the architecture's folder for libraries.
install(FILES packaging/udev/70-nyxus.rules DESTINATION lib/udev/rules.d)

add_subdirectory(docs/man)
