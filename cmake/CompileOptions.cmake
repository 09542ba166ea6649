# Options that every target of this repository is compiled with.

add_compile_options(
  $<$<COMPILE_LANGUAGE:CXX>:-Wall> $<$<COMPILE_LANGUAGE:CXX>:-Wextra>
  $<$<COMPILE_LANGUAGE:CXX>:-Werror>)

# The same set on both compilers (clang counts the sign conversions to -Wconversion). It is for our
# own code; GoogleTest's sources are not held to it.
add_library(zarext_strict INTERFACE)
target_compile_options(zarext_strict INTERFACE -Wpedantic -Wconversion -Wsign-conversion -Wshadow)

if(ZAREXT_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

if(ZAREXT_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# Only the module's own sources are instrumented (zarext_add_objects): what links them needs the
# runtime of gcov.
if(ZAREXT_COVERAGE)
  add_link_options(--coverage)
endif()

if(WIN32)
  add_compile_definitions(_WIN32_WINNT=0x0601 WIN32_LEAN_AND_MEAN NOMINMAX)
  add_compile_options(-g -ffunction-sections -fdata-sections)
  add_link_options(-static -Wl,--gc-sections)
endif()
