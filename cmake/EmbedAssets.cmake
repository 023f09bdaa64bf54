# cmake -DOUTPUT=FILE -DFOLDER=DIR -P EmbedAssets.cmake
#
# Writes a C++ source that holds every file below DIR as bytes, in the order of their names ("live/app.js").
file(GLOB_RECURSE files LIST_DIRECTORIES false RELATIVE "${FOLDER}" "${FOLDER}/*")
list(SORT files)
set(arrays "")
set(table "")
set(index 0)
foreach(file IN LISTS files)
  file(READ "${FOLDER}/${file}" hex HEX)
  string(REGEX REPLACE "(..)" "0x\\1," bytes "${hex}")
  string(APPEND arrays "constexpr unsigned char kFile${index}[] = {${bytes}0};\n")
  string(APPEND table "    {\"${file}\", Text(kFile${index})},\n")
  math(EXPR index "${index} + 1")
endforeach()
file(WRITE "${OUTPUT}" "// Made by EmbedAssets.cmake; do not edit.
#include \"host/html/page.h\"

namespace host {
namespace {

${arrays}
// Without the zero at the end, which keeps an empty file from being an empty array.
template <std::size_t N>
std::string_view Text(const unsigned char (&bytes)[N]) {
    return {reinterpret_cast<const char*>(bytes), N - 1};
}

} // namespace

std::span<const Asset> Assets() noexcept {
    static const Asset assets[] = {
${table}    };
    return assets;
}

} // namespace host
")
