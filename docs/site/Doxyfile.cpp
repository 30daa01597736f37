# The reference of the C++ layer, in the manner of the C API's.
@INCLUDE               = docs/site/Doxyfile
PROJECT_BRIEF          = "C++17 layer over libNYXUS.so.2"
INPUT                  = include/nyxus/nyxus.hpp include/nyxus/cpp docs/site/api-cpp.dox
FILE_PATTERNS          = *.hpp *.dox
OPTIMIZE_OUTPUT_FOR_C  = NO
BUILTIN_STL_SUPPORT    = YES
HIDE_UNDOC_RELATIONS   = YES
# What a name says is not said again.
WARN_IF_UNDOCUMENTED   = NO
WARN_IF_INCOMPLETE_DOC = NO
EXTRACT_ALL            = YES
