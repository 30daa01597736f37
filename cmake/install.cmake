# SPDX-License-Identifier: Apache-2.0
# What an installed tree has beside the programs and libraries, which each folder installs itself:
# the files by which other builds find the library, the udev rule, man pages and completions.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/nyxus)
configure_package_config_file(cmake/nyxus-config.cmake.in ${PROJECT_BINARY_DIR}/nyxus-config.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/nyxus-config-version.cmake
  COMPATIBILITY SameMajorVersion)
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
configure_file(cmake/nyxus.pc.in ${PROJECT_BINARY_DIR}/nyxus.pc.in @ONLY)
install(CODE "configure_file(\"${PROJECT_BINARY_DIR}/nyxus.pc.in\" \"${PROJECT_BINARY_DIR}/nyxus.pc\" @ONLY)")
install(FILES ${PROJECT_BINARY_DIR}/nyxus.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# udev looks into lib/udev, whatever the architecture's folder for libraries.
install(FILES packaging/udev/70-nyxus.rules DESTINATION lib/udev/rules.d)

# Some manual pages are written by hand, others follow from what the programs say of themselves.
set(man_sections 1 3 5)
if(EXISTS ${PROJECT_SOURCE_DIR}/docs/man/generate.py AND NYXUS_TOOLS AND NYXUS_SIMULATOR)
  find_package(Python3 REQUIRED COMPONENTS Interpreter)
  set(generated_man ${PROJECT_BINARY_DIR}/man)
  file(MAKE_DIRECTORY ${generated_man})
  file(GLOB man_sources CONFIGURE_DEPENDS docs/man/generate.py docs/man/parts/*)
  add_custom_command(OUTPUT ${generated_man}/nyxus.1
    COMMAND Python3::Interpreter ${PROJECT_SOURCE_DIR}/docs/man/generate.py
            $<TARGET_FILE_DIR:nyxus_tool> ${generated_man}
    DEPENDS nyxus_tool nyxus-sim ${man_sources} VERBATIM)
  add_custom_target(man_pages ALL DEPENDS ${generated_man}/nyxus.1)
endif()
foreach(section IN LISTS man_sections)
  file(GLOB pages CONFIGURE_DEPENDS docs/man/*.${section})
  install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
  if(generated_man)
    install(DIRECTORY ${generated_man}/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section}
      FILES_MATCHING PATTERN *.${section})
  endif()
endforeach()
