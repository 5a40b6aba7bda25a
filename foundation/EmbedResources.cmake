# Writes OUTPUT, C++ that holds the files of the list RESOURCES by their paths below FOLDER: those of
# every program, or with OF_PRODUCT those of one. HEADERS is what goes before the names of headers.
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
set(table "const EmbeddedResource resources[] = {
${entries}};")
if(OF_PRODUCT)
  set(body "namespace {

${definitions}
${table}
const ProductResources product(resources);

}  // namespace")
else()
  set(body "namespace {
${definitions}}  // namespace

std::span<const EmbeddedResource> embeddedResources() {
  static ${table}
  return resources;
}")
endif()
file(WRITE ${OUTPUT} "#include \"${HEADERS}foundation/EmbeddedResources.h\"

namespace corvane {

${body}

}  // namespace corvane
")
