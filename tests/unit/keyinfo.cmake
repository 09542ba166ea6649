zarext_add_host_test(keyinfo_unit
  SOURCES keyinfo_blob_test.cpp keyinfo_pkcs8_build_test.cpp keyinfo_pkcs8_openssl_test.cpp
    keyinfo_pkcs8_read_test.cpp
  LIBS zarext_keyinfo_core zarext_asn1)
