# Writes page_parts.cpp: the parts of a page as string literals.
#   cmake -DOUTPUT=FILE -DTEMPLATE=... -DSTYLE=... -DSCRIPTS=a;b -DLIBRARY_FOLDER=report/node_modules -P embed.cmake
# Without LIBRARY_FOLDER every part is empty.

# A raw literal that ends at a mark which no part holds.
function(append_part name)
  set(text "")
  foreach(file IN LISTS ARGN)
    file(READ "${file}" piece)
    string(APPEND text "${piece}")
  endforeach()
  if(text MATCHES "\\)tavo_part\"")
    message(FATAL_ERROR "${name}: holds the mark that ends it")
  endif()
  if(NOT name STREQUAL kPageTemplate AND text MATCHES "</[sS][cC][rR][iI][pP][tT]")
    message(FATAL_ERROR "${name}: would end the script element that it stands in")
  endif()
  file(APPEND "${OUTPUT}.new" "const std::string_view ${name} = R\"tavo_part(${text})tavo_part\";\n")
endfunction()

file(WRITE "${OUTPUT}.new" "#include \"report/page_parts.h\"\n")
if(LIBRARY_FOLDER)
  file(READ "${LIBRARY_FOLDER}/echarts/package.json" package)
  string(JSON version GET "${package}" version)
  append_part(kPageTemplate "${TEMPLATE}")
  append_part(kPageStyle "${STYLE}")
  append_part(kPageScript ${SCRIPTS})
  append_part(kPlotLibrary "${LIBRARY_FOLDER}/echarts/dist/echarts.min.js")
  append_part(kPlotLicences "${LIBRARY_FOLDER}/echarts/NOTICE" "${LIBRARY_FOLDER}/echarts/LICENSE"
              "${LIBRARY_FOLDER}/echarts/licenses/LICENSE-d3" "${LIBRARY_FOLDER}/zrender/LICENSE"
              "${LIBRARY_FOLDER}/tslib/LICENSE.txt")
  file(APPEND "${OUTPUT}.new" "const std::string_view kPlotLibraryVersion = \"${version}\";\n")
else()
  foreach(name kPageTemplate kPageStyle kPageScript kPlotLibrary kPlotLicences kPlotLibraryVersion)
    file(APPEND "${OUTPUT}.new" "const std::string_view ${name};\n")
  endforeach()
endif()
file(RENAME "${OUTPUT}.new" "${OUTPUT}")
