# SPDX-License-Identifier: Apache-2.0
# cmake -DOUTPUT=FILE.cpp -DFOLDER=DIR -DCAMERAS=a,b,... -P embed.cmake
# Turns the description files into the C++ texts that shipped_files.h declares.
function(text_of name result)
  file(READ "${FOLDER}/${name}.toml" text)
  set(${result} "{\"${name}.toml\", R\"__toml__(${text})__toml__\"}" PARENT_SCOPE)
endfunction()

set(code "// Generated from the *.toml files.\n#include \"cameras/shipped_files.h\"\n\n")
string(APPEND code "namespace sim {\n\nstatic const ShippedFile kAll[] = {\n")
string(REPLACE "," ";" cameras "${CAMERAS}")
foreach(camera IN LISTS cameras)
  text_of(${camera} text)
  string(APPEND code "${text},\n")
endforeach()
string(APPEND code "};\nconst std::span<const ShippedFile> kCameraFiles = kAll;\n")
text_of(flash_parts text)
string(APPEND code "const ShippedFile kFlashPartsFile = ${text};\n")
text_of(eeprom_parts text)
string(APPEND code "const ShippedFile kEepromPartsFile = ${text};\n\n} // namespace sim\n")
file(WRITE "${OUTPUT}" "${code}")
