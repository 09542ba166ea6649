# What of zarextctl needs no Windows header.
add_library(zarextctl_properties OBJECT ctl_properties.cpp)
target_include_directories(zarextctl_properties PUBLIC ${PROJECT_SOURCE_DIR}/tests)
target_link_libraries(zarextctl_properties PUBLIC zarextctl_core)

zarext_add_host_test(ctl_unit
  SOURCES ctl_test.cpp
  LIBS zarextctl_properties zarextctl_core zarext_store_core zarext_asn1)
target_compile_definitions(ctl_unit PRIVATE ZAREXT_CORPUS="${PROJECT_SOURCE_DIR}/fuzz/corpus")
