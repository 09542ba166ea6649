zarext_add_host_test(asn1_property
  SOURCES asn1/property_test.cpp asn1/corpus_test.cpp asn1/comparison.cpp asn1/oracle.cpp
  LIBS zarext_asn1)
target_compile_definitions(asn1_property PRIVATE ZAREXT_CORPUS="${PROJECT_SOURCE_DIR}/fuzz/corpus")
