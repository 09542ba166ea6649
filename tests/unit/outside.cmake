# The module's Windows sources that digest what others return, around a fake platform.
set(sources ${PROJECT_SOURCE_DIR}/src)
zarext_add_objects(zarext_hosted
  fake_advapi32.cpp fake_answers.cpp fake_crypt32.cpp fake_frame.cpp fake_kernel32.cpp
  fake_platform.cpp fake_provider.cpp outside_properties.cpp
  ${sources}/frame/export_frame.cpp ${sources}/frame/guarded.cpp
  ${sources}/frame/text.cpp
  ${sources}/keyinfo/key_calls.cpp ${sources}/keyinfo/private_key_transfer.cpp
  ${sources}/keyinfo/public_key_conversion.cpp
  ${sources}/keyinfo/public_key_export.cpp ${sources}/keyinfo/public_key_import.cpp
  ${sources}/msgkeys/export_key.cpp ${sources}/msgkeys/generate_key.cpp
  ${sources}/msgkeys/import_key.cpp ${sources}/msgkeys/message_keys.cpp
  ${sources}/store/container_cache.cpp ${sources}/store/key_provider.cpp
  ${sources}/store/load_certificates.cpp ${sources}/store/write_certificate.cpp)
target_include_directories(zarext_hosted PRIVATE ${PROJECT_SOURCE_DIR}/tests)
target_include_directories(zarext_hosted SYSTEM PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/platform)

zarext_add_host_test(outside_unit
  SOURCES outside_corpus_test.cpp
  LIBS zarext_hosted zarext_keyinfo_core zarext_store_core zarext_asn1)
target_compile_definitions(outside_unit PRIVATE ZAREXT_CORPUS="${PROJECT_SOURCE_DIR}/fuzz/corpus")
