# The portable half of the development provider.
zarext_add_host_test(provider_unit_test
  SOURCES provider_algorithms_test.cpp provider_blobs_test.cpp provider_ciphers_test.cpp
    provider_openssl_test.cpp provider_records_test.cpp provider_wrapped_keys_test.cpp
  LIBS zarext_provider_core)
target_compile_definitions(provider_unit_test PRIVATE ZAREXT_FIXTURES="${PROJECT_SOURCE_DIR}/tests/fixtures")
