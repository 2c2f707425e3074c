# Writes the files of a folder as a table of C++:
#   cmake -DFOLDER=... -DOUT=... -P assets.cmake
set(type_of_html "text/html; charset=utf-8")
set(type_of_css "text/css; charset=utf-8")
set(type_of_js "text/javascript; charset=utf-8")
set(type_of_svg image/svg+xml)
set(type_of_png image/png)
set(type_of_json application/json)

set(arrays)
set(rows)
file(GLOB files RELATIVE ${FOLDER} ${FOLDER}/*)
foreach(file IN LISTS files)
  string(REGEX REPLACE "^.*\\." "" extension ${file})
  if(NOT DEFINED type_of_${extension})
    message(FATAL_ERROR "${FOLDER}/${file}: no Content-Type is known for .${extension}")
  endif()
  string(MAKE_C_IDENTIFIER "kAsset_${file}" name)
  file(READ ${FOLDER}/${file} bytes HEX)
  string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${bytes}")
  # The zero at the end belongs to nothing: an empty file has to have a byte, too.
  string(APPEND arrays "constexpr char ${name}[] = {${bytes}'\\0'};\n")
  set(path /${file})
  if(file STREQUAL index.html)
    set(path /)
  endif()
  string(APPEND rows
    "    {\"${path}\", \"${type_of_${extension}}\", {${name}, sizeof ${name} - 1}},\n")
endforeach()

file(WRITE ${OUT} "#include \"panel/assets.h\"

namespace vb::panel {

namespace {

${arrays}
constexpr Asset kAssets[] = {
${rows}};

} // namespace

const Asset* find_asset(std::string_view path) {
    for (const Asset& asset : kAssets) {
        if (asset.path == path) {
            return &asset;
        }
    }
    return nullptr;
}

} // namespace vb::panel
")
