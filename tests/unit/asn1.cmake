zarext_add_host_test(asn1_unit
  SOURCES asn1/tasn1_test.cpp
  LIBS zarext_asn1)
