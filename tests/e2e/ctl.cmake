# zarextctl, over a real registration and real containers of the development provider. The second
# program is the tool with the platform's gaps filled.
add_executable(zarextctl_patched ctl_patched_main.cpp)
get_property(ZAREXTCTL_PARTS GLOBAL PROPERTY ZAREXTCTL_PARTS)
target_link_libraries(zarextctl_patched PRIVATE
  ${ZAREXTCTL_PARTS} zarext_framework_patches_objects zarext_process_support)
set_target_properties(zarextctl_patched PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

add_library(ctl_fixture OBJECT ctl_fixture.cpp ctl_screen.cpp)
target_link_libraries(ctl_fixture PRIVATE zarext_strict zarext_test_support)
target_include_directories(ctl_fixture SYSTEM PRIVATE ${CMAKE_BINARY_DIR}/host-headers)
target_compile_definitions(ctl_fixture PRIVATE ZAREXT_GOLDEN="Z:${CMAKE_CURRENT_SOURCE_DIR}/zarextctl")
zarext_compile_as_test(ctl_fixture)

zarext_add_wine_test(ctl_e2e
  SOURCES ctl_access_test.cpp ctl_application_test.cpp ctl_cache_test.cpp ctl_console_test.cpp ctl_register_test.cpp
    ctl_status_test.cpp
  LIBS ctl_fixture ${ZAREXTCTL_PARTS}
  DEPENDS cpzarvel zarext_framework_patches zarextctl zarextctl_patched)
# Its own process never loads the module.
zarext_add_wine_test(ctl_trace_e2e
  SOURCES ctl_trace_test.cpp ctl_unloaded_test.cpp
  LIBS ctl_fixture
  DEPENDS cpzarvel zarext_framework_patches zarextctl zarextctl_patched)
zarext_add_wine_test(ctl_explain_e2e
  SOURCES ctl_explain_test.cpp
  LIBS ctl_fixture
  DEPENDS cpzarvel zarext_framework_patches zarextctl zarextctl_patched)
# Its letters are those of one ANSI code page; Wine takes that from the environment.
zarext_add_wine_test(ctl_cyrillic
  SOURCES ctl_cyrillic_test.cpp
  LIBS ctl_fixture
  DEPENDS cpzarvel zarext_framework_patches zarextctl zarextctl_patched)
foreach(program ctl_e2e ctl_cyrillic ctl_explain_e2e ctl_trace_e2e)
  target_include_directories(${program} SYSTEM PRIVATE ${CMAKE_BINARY_DIR}/host-headers)
endforeach()
set_tests_properties(ctl_cyrillic PROPERTIES ENVIRONMENT LC_ALL=ru_RU.UTF-8)
set_tests_properties(ctl_explain_e2e PROPERTIES ENVIRONMENT LC_ALL=C.UTF-8)
