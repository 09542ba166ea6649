zarext_add_host_test(keyinfo_unit
  SOURCES keyinfo_blob_test.cpp keyinfo_corpus_test.cpp keyinfo_pkcs8_build_test.cpp
    keyinfo_pkcs8_codes_test.cpp keyinfo_pkcs8_encrypted_test.cpp keyinfo_pkcs8_openssl_test.cpp
    keyinfo_pkcs8_random_test.cpp keyinfo_pkcs8_read_test.cpp keyinfo_properties.cpp
  LIBS zarext_keyinfo_core zarext_asn1)
target_compile_definitions(keyinfo_unit PRIVATE ZAREXT_CORPUS="${PROJECT_SOURCE_DIR}/fuzz/corpus")

# Looks at memory as it is released.
zarext_add_host_test(keyinfo_wipe_unit
  SOURCES keyinfo_wipe_test.cpp
  LIBS zarext_keyinfo_core zarext_asn1)
target_link_options(keyinfo_wipe_unit PRIVATE -Wl,--wrap=free,--wrap=_ZdlPv,--wrap=_ZdlPvm,--wrap=_ZdaPv)
