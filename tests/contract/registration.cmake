# Against recording fakes, and against the real framework with regsvr32.
zarext_add_wine_test(registration_contract
  SOURCES registration_calls_test.cpp registration_expected.cpp recording_framework.cpp)
zarext_add_wine_test(registration_framework
  SOURCES registration_framework_test.cpp registration_expected.cpp registration_processes.cpp
    registration_registry.cpp
  LIBS zarext_framework_patches_objects
  DEPENDS zarext_framework_patches)
