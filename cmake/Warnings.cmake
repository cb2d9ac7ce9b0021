# Warnings are errors, and the order of floating-point sums is the source's own.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
                    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast> -Werror -ffp-contract=off)


if(AIPLC_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
