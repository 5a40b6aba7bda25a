# Writes OUTPUT, C++ that holds the files of the list RESOURCES by their paths below FOLDER.
set(definitions "")
set(entries "")
set(index 0)
foreach(resource IN LISTS RESOURCES)
  file(RELATIVE_PATH path ${FOLDER} ${resource})
  file(READ ${resource} bytes HEX)
  string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
  string(REGEX REPLACE "((0x..,){16})" "\\1\n" bytes "${bytes}")
  string(APPEND definitions "constexpr unsigned char resource${index}[] = {\n${bytes}};\n")
  string(APPEND entries "    {\"${path}\", std::as_bytes(std::span(resource${index}))},\n")
  math(EXPR index "${index} + 1")
endforeach()
file(WRITE ${OUTPUT} "#include \"foundation/EmbeddedResources.h\"

namespace corvane {

namespace {
${definitions}}  // namespace

std::span<const EmbeddedResource> embeddedResources() {
  static const EmbeddedResource resources[] = {
${entries}  };
  return resources;
}

}  // namespace corvane
")
