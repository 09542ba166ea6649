if(WIN32)
  zarext_add_program(registration_bench
    SOURCES registration_bench.cpp ${PROJECT_SOURCE_DIR}/tests/contract/registration_expected.cpp
    LIBS zarext_test_support zarext_framework_patches_objects)
  target_include_directories(registration_bench PRIVATE ${PROJECT_SOURCE_DIR})
  set_target_properties(registration_bench PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  add_dependencies(registration_bench zarext)
endif()
