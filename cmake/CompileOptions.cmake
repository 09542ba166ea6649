# Options that every target of this repository is compiled with.

add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wall> $<$<COMPILE_LANGUAGE:CXX>:-Wextra>)

# Warnings are errors with the compilers that were tried. One that is newer than these may warn of more:
# that is for us to mend, and no reason to stop somebody's first build. CI sets the option.
set(newest_GNU 14)
set(newest_Clang 19)
string(REGEX MATCH "^[0-9]+" major "${CMAKE_CXX_COMPILER_VERSION}")
set(tried OFF)
if(major LESS_EQUAL "${newest_${CMAKE_CXX_COMPILER_ID}}")
  set(tried ON)
endif()
option(ZAREXT_WARNINGS_AS_ERRORS "Warnings are errors" ${tried})
if(ZAREXT_WARNINGS_AS_ERRORS)
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Werror>)
endif()

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

# What is handed out: symbols in a PDB, and nothing of the build machine's folders in any file, so that the
# same commit gives the same octets everywhere. The sources' names come relative or absolute, with and
# without a compiler cache.
if(ZAREXT_RELEASE)
  add_compile_options($<$<COMPILE_LANGUAGE:C,CXX>:-gcodeview> $<$<COMPILE_LANGUAGE:C,CXX>:-gno-codeview-command-line>
    $<$<COMPILE_LANGUAGE:C,CXX>:-ffile-prefix-map=${CMAKE_SOURCE_DIR}=.>
    $<$<COMPILE_LANGUAGE:C,CXX>:-ffile-prefix-map=../..=.> $<$<COMPILE_LANGUAGE:C,CXX>:-fdebug-compilation-dir=.>)
  # For the module's own sources. Some folders are compiled with -O3 instead (src/CMakeLists.txt).
  set(ZAREXT_RELEASE_OPTIONS -Os -flto -fstack-protector-strong)
endif()

# zarext_hand_out(<target>): the PDB beside the file in bin, named in it without a folder, the file stripped.
# The linker keeps its command line in the PDB, so its paths are relative to the build folder; the time in
# the file's header is a hash of the contents.
function(zarext_hand_out target)
  get_target_property(name ${target} OUTPUT_NAME)
  if(NOT name)
    set(name ${target})
  endif()
  target_link_options(${target} PRIVATE -flto -Wl,--icf=all -Wl,--pdb=bin/${name}.pdb
    -Wl,-Xlink=-pdbaltpath:${name}.pdb -Wl,-Xlink=-pdbsourcepath:. -Wl,-Xlink=-Brepro)
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND x86_64-w64-mingw32-strip --strip-all --preserve-dates $<TARGET_FILE:${target}>
    VERBATIM)
endfunction()

if(WIN32)
  add_compile_definitions(_WIN32_WINNT=0x0601 WIN32_LEAN_AND_MEAN NOMINMAX)
  add_compile_options(-g -ffunction-sections -fdata-sections)
  add_link_options(-static -Wl,--gc-sections)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # libstdc++ locks with winpthreads, which clang does not link by itself.
    link_libraries(pthread)
    # Its std::stable_sort uses a function that it deprecates itself.
    add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-deprecated-declarations>)
  endif()
endif()
