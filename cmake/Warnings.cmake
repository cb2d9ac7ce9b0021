# Floating-point sums have the order and the precision of the source.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
                    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast> $<$<BOOL:${AIPLC_WERROR}>:-Werror>
                    -ffp-contract=off)

# 32-bit x86 would compute sums in the 80 bits of the x87 and so get other results.
if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND CMAKE_SYSTEM_PROCESSOR MATCHES "^(i.86|x86|x86_64|AMD64)$")
  add_compile_options(-msse2 -mfpmath=sse)
endif()

if(AIPLC_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
if(AIPLC_BUILD_FUZZERS)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "the fuzzers need clang and its libFuzzer: cmake --preset fuzz")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
