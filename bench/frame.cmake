if(WIN32)
  add_library(zarext_empty_module SHARED empty_module.cpp)
  set_target_properties(zarext_empty_module PROPERTIES OUTPUT_NAME empty_module PREFIX ""
    RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  zarext_add_program(frame_bench SOURCES frame_bench.cpp LIBS zarext_frame crypt32 advapi32)
  target_include_directories(frame_bench PRIVATE ${PROJECT_SOURCE_DIR})
  set_target_properties(frame_bench PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  add_dependencies(frame_bench zarext zarext_empty_module)
endif()
