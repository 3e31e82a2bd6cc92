# Turns the two usage text files into a C++ source that holds their bytes unchanged.
function(kw_bytes path var)
  file(READ ${path} hex HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," body "${hex}")
  set(${var} "${body}" PARENT_SCOPE)
endfunction()
kw_bytes(${USAGE} usage)
kw_bytes(${EXTENDED} extended)
file(WRITE ${OUT}.tmp
"// Generated from the usage text files; do not edit.\n#include <string>\nnamespace kw {\n"
"std::string UsageTextBytes() { static const char b[] = {${usage} 0}; return std::string(b, sizeof b - 1); }\n"
"std::string ExtendedUsageTextBytes() { static const char b[] = {${extended} 0}; return std::string(b, sizeof b - 1); }\n"
"}  // namespace kw\n")
file(COPY_FILE ${OUT}.tmp ${OUT} ONLY_IF_DIFFERENT)
