# Octets that reach the key code from outside: key documents and the bit strings of public keys.
set(properties ${PROJECT_SOURCE_DIR}/tests/unit/keyinfo_properties.cpp)
zarext_add_fuzz_target(key_document FUNCTION zarext::test::CheckKeyDocument
  HEADER unit/keyinfo_properties.h SOURCES ${properties} LIBS zarext_keyinfo_core zarext_asn1)
zarext_add_fuzz_target(key_extraction FUNCTION zarext::test::CheckKeyExtraction
  HEADER unit/keyinfo_properties.h SOURCES ${properties} LIBS zarext_keyinfo_core zarext_asn1)
