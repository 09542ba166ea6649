# Through the DLL, as callers have it.
zarext_add_wine_test(frame_contract
  SOURCES pass_through_test.cpp module_image_test.cpp kept_functions_test.cpp
  LIBS version)
zarext_add_wine_test(frame_load SOURCES module_load_test.cpp)

# The frame's own functions, linked in.
zarext_add_wine_test(frame_internal
  SOURCES text_test.cpp trace_test.cpp export_frame_test.cpp file_log_test.cpp
          file_log_locks_test.cpp file_routines_test.cpp provider_binding_test.cpp scripted_provider_test.cpp
          stack_guard_test.cpp
  LIBS zarext_frame zarext_stack_guard)
set_source_files_properties(stack_guard_test.cpp PROPERTIES COMPILE_OPTIONS -fstack-protector-strong)

# Provider modules for the binding: complete, and with one entry point missing.
foreach(missing none CPAcquireContext CPReleaseContext CPGetProvParam CPGetKeyParam CPSetKeyParam CPGetUserKey)
  set(exports "EXPORTS\n")
  foreach(name CPAcquireContext CPReleaseContext CPGetProvParam CPGetKeyParam CPSetKeyParam CPGetUserKey)
    if(NOT name STREQUAL missing)
      string(APPEND exports "  ${name}\n")
    endif()
  endforeach()
  set(module zarext_provider_without_${missing})
  file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/${module}.def CONTENT "${exports}")
  add_library(${module} SHARED partial_provider.cpp ${CMAKE_CURRENT_BINARY_DIR}/${module}.def)
  target_link_libraries(${module} PRIVATE zarext_strict)
  set_target_properties(${module} PROPERTIES OUTPUT_NAME provider_without_${missing} PREFIX ""
    RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  add_dependencies(frame_internal ${module})
  add_dependencies(frame_load ${module})
endforeach()

# What the language runtime uses of the globals that the module gives it.
zarext_add_wine_test(frame_exception_layout SOURCES exception_layout_test.cpp)
