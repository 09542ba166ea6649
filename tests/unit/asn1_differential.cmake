zarext_add_host_test(asn1_differential
  SOURCES asn1/differential_test.cpp asn1/corpus_test.cpp asn1/differential.cpp
    asn1/openssl_test.cpp asn1/oracle.cpp asn1/oracle_image.cpp asn1/oracle_values.cpp
  LIBS zarext_asn1)
target_compile_definitions(asn1_differential PRIVATE ZAREXT_CORPUS="${PROJECT_SOURCE_DIR}/fuzz/corpus")
