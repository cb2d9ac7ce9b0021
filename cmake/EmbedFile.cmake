# aiplc_embed(TARGET INPUT HEADER FUNCTION): adds to TARGET a source file in which FUNCTION, declared by
# HEADER as returning std::string_view within aiplc::tools, returns the bytes of INPUT.
function(aiplc_embed target input header function)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${input})
  file(READ ${input} hex HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
  string(REGEX REPLACE "(0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,)"
         "\\1\n" bytes "${bytes}")
  set(source ${CMAKE_CURRENT_BINARY_DIR}/embedded_${function}.cpp)
  set(text "#include \"${header}\"\n
namespace aiplc::tools {
namespace {
const unsigned char kBytes[] = {\n${bytes}};
}
std::string_view ${function}() {
    return {reinterpret_cast<const char *>(kBytes), sizeof kBytes};
}
}  // namespace aiplc::tools\n")
  file(GENERATE OUTPUT ${source} CONTENT "${text}")
  target_sources(${target} PRIVATE ${source})
endfunction()
