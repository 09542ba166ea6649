# Headers that many files include, compiled once. Only with g++: clang++ is there for what is handed out, for the fuzzers
# and for clang-tidy, which are to see what a file includes by itself.

# A target that owns headers needs one source file.
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/empty.cpp CONTENT "")

# zarext_precompile(<name> HEADERS ... [OPTIONS ...] [LIBS ...] [FOLDERS ...]): under this name, with these options; who
# uses them has the same ones; -g1 for -g is allowed, another -O is not.
function(zarext_precompile name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "HEADERS;OPTIONS;LIBS;FOLDERS")
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    return()
  endif()
  list(TRANSFORM arg_HEADERS REPLACE "(.+)" "<\\1>")
  add_library(${name} OBJECT EXCLUDE_FROM_ALL ${CMAKE_BINARY_DIR}/empty.cpp)
  target_include_directories(${name} SYSTEM PRIVATE ${arg_FOLDERS})
  target_link_libraries(${name} PRIVATE zarext_strict ${arg_LIBS})
  target_compile_options(${name} PRIVATE ${arg_OPTIONS} -fpch-preprocess)
  target_precompile_headers(${name} PRIVATE ${arg_HEADERS})
endfunction()

function(zarext_use_precompiled target name)
  if(TARGET ${name})
    target_precompile_headers(${target} REUSE_FROM ${name})
    # What was precompiled fills more memory than g++ wants to use before it looks for what it no longer needs,
    # again and again: a tenth of its time. The other option is what ccache asks for.
    target_compile_options(${target} PRIVATE
      $<$<COMPILE_LANGUAGE:CXX>:--param=ggc-min-heapsize=1000000> -fpch-preprocess)
  endif()
endfunction()

# What module, provider and programs include of the platform and of the library: with the preset's options for the
# first two, with ZAREXT_PROGRAM_OPTIONS for what only the tests and the demo need. The optimiser's warnings about the
# library's own code are shown once it is precompiled: -Og gives none, and -O2 was tried with g++ 12 alone. Neither is
# used where the module is compiled with -O0.
set(ZAREXT_PROGRAM_OPTIONS -Og -g1)
if(WIN32)
  set(headers windows.h wincrypt.h algorithm array cstdint cstring map memory optional set span stdexcept string
    string_view utility vector)
  zarext_precompile(zarext_program_headers HEADERS ${headers} OPTIONS ${ZAREXT_PROGRAM_OPTIONS})
  if(CMAKE_BUILD_TYPE STREQUAL Release AND NOT ZAREXT_COVERAGE AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    zarext_precompile(zarext_platform_headers HEADERS ${headers})
  endif()
endif()

# zarext_compile_as_program(<target>): with those options and headers.
function(zarext_compile_as_program target)
  target_compile_options(${target} PRIVATE ${ZAREXT_PROGRAM_OPTIONS})
  zarext_use_precompiled(${target} zarext_program_headers)
endfunction()
