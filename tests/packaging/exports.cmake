execute_process(COMMAND ${NM} -D --defined-only -C ${LIBRARY} OUTPUT_VARIABLE symbols
                COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE "[0-9a-f]+ [A-Z] ([^\n]*)@@AIPLC_1" "\\1" symbols "${symbols}")
string(REGEX REPLACE "[0-9a-f]+ A AIPLC_1(@@AIPLC_1)?\n" "" symbols "${symbols}")
string(REGEX REPLACE "\n$" "" symbols "${symbols}")
string(REPLACE "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >"
       "string" symbols "${symbols}")
string(REPLACE
       "std::__cxx11::basic_string<wchar_t, std::char_traits<wchar_t>, std::allocator<wchar_t> >"
       "wstring" symbols "${symbols}")
string(REPLACE "\n" ";" symbols "${symbols}")
list(REMOVE_DUPLICATES symbols)
list(SORT symbols)
file(STRINGS ${EXPECTED} expected)
list(SORT expected)
if(NOT symbols STREQUAL expected)
  set(extra ${symbols})
  set(missing ${expected})
  list(REMOVE_ITEM extra ${expected})
  list(REMOVE_ITEM missing ${symbols})
  message(FATAL_ERROR "exports differ; unexpected: ${extra}; missing: ${missing}")
endif()
