# GoogleTest from Debian's sources, and the two kinds of test executable.
#
# One executable is one CTest entry; it leaves its GoogleTest report in
# <build>/results/<name>.xml, from which script/test counts the single tests.

enable_testing()
set(ZAREXT_RESULTS ${CMAKE_BINARY_DIR}/results)
file(MAKE_DIRECTORY ${ZAREXT_RESULTS})

set(INSTALL_GTEST OFF)
set(CMAKE_POLICY_DEFAULT_CMP0077 NEW)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)

# Tests are compiled far more often than they run; what they test keeps the preset's options. Under
# mingw-w64 the linker's time grows with the number of functions left to it, and some inlining
# leaves a third of them.
set(ZAREXT_TEST_OPTIONS $<IF:$<BOOL:${WIN32}>,-Og,-O0> -g1)
foreach(library gtest gmock gtest_main)
  target_compile_options(${library} PRIVATE $<$<BOOL:${WIN32}>:-Og> -g0 $<$<BOOL:${ZAREXT_SANITIZE}>:-fno-sanitize=all>)
endforeach()

set(headers gmock/gmock.h gtest/gtest.h algorithm array atomic filesystem functional map memory mutex random set span
  stdexcept string string_view thread vector)
if(WIN32)
  list(PREPEND headers windows.h wincrypt.h)
endif()
zarext_precompile(zarext_test_headers HEADERS ${headers} OPTIONS ${ZAREXT_TEST_OPTIONS} LIBS GTest::gmock)

# zarext_compile_as_test(<target>): a test's options and the common headers; the target links GTest::gmock.
function(zarext_compile_as_test target)
  target_compile_options(${target} PRIVATE ${ZAREXT_TEST_OPTIONS})
  zarext_use_precompiled(${target} zarext_test_headers)
endfunction()

# The executable itself, without a CTest entry (helpers that a test starts).
function(zarext_add_program name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBS")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE zarext_strict ${arg_LIBS})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests)
endfunction()

function(zarext_add_gtest name timeout)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "SOURCES;LIBS;LABELS;ENVIRONMENT")
  zarext_add_program(${name} SOURCES ${arg_SOURCES} LIBS ${arg_LIBS} GTest::gmock)
  zarext_compile_as_test(${name})
  add_test(NAME ${name} COMMAND ${name} --gtest_output=xml:results/${name}.xml
           WORKING_DIRECTORY ${CMAKE_BINARY_DIR})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${timeout} LABELS "${arg_LABELS}"
                       ENVIRONMENT "${arg_ENVIRONMENT}")
endfunction()

# zarext_add_host_test(<name> SOURCES ... LIBS ...): runs on the host, under the sanitizers of the preset.
function(zarext_add_host_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBS")
  zarext_add_gtest(${name} 300 SOURCES ${arg_SOURCES} LIBS ${arg_LIBS} GTest::gtest_main LABELS host
    ENVIRONMENT ASAN_OPTIONS=hard_rss_limit_mb=4000:detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1)
endfunction()

# zarext_add_wine_test(<name> SOURCES ... LIBS ... [DEPENDS targets]): runs under Wine, in a
# throw-away prefix of its own, beside ZAREXT.dll.
function(zarext_add_wine_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBS;DEPENDS")
  zarext_add_gtest(${name} 300 SOURCES ${arg_SOURCES} LIBS ${arg_LIBS} zarext_test_support LABELS wine)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  add_dependencies(${name} zarext ${arg_DEPENDS})
endfunction()
