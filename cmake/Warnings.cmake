# Warnings are errors, and the order of floating-point sums is the source's own.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
                    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast> -Werror -ffp-contract=off)


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
