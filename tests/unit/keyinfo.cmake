zarext_add_host_test(keyinfo_unit
  SOURCES keyinfo_blob_test.cpp keyinfo_corpus_test.cpp keyinfo_pkcs8_build_test.cpp
    keyinfo_pkcs8_openssl_test.cpp keyinfo_pkcs8_read_test.cpp keyinfo_properties.cpp
  LIBS zarext_keyinfo_core zarext_asn1)
target_compile_definitions(keyinfo_unit PRIVATE ZAREXT_CORPUS="${PROJECT_SOURCE_DIR}/fuzz/corpus")
