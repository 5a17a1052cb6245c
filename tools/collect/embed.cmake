# Writes a header with the content of files: cmake -DOUTPUT=HEADER -DFILES=A;B -P embed.cmake

set(text "// Written by embed.cmake.\n#pragma once\n\n#include <array>\n#include <string_view>\n\n")
string(APPEND text "namespace vantamo::tools::collect::page_data {\n")
foreach(file IN LISTS FILES)
  get_filename_component(name ${file} NAME)
  string(REPLACE "." "_" name ${name})
  file(READ ${file} bytes HEX)
  string(LENGTH "${bytes}" size)
  math(EXPR size "${size} / 2")
  string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${bytes}")
  string(APPEND text
    "\ninline constexpr std::array<char, ${size}> ${name}_bytes = {${bytes}};\n")
  string(APPEND text
    "inline constexpr std::string_view ${name}(${name}_bytes.data(), ${name}_bytes.size());\n")
endforeach()
string(APPEND text "\n}  // namespace vantamo::tools::collect::page_data\n")
file(WRITE ${OUTPUT} "${text}")
