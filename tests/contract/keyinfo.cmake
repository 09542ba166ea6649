zarext_add_wine_test(keyinfo_contract
  SOURCES keyinfo_conversion_test.cpp keyinfo_export_test.cpp keyinfo_import_test.cpp
    keyinfo_import_failures_test.cpp keyinfo_private_export_test.cpp
    keyinfo_private_import_test.cpp)

# The private-key functions' own objects, linked in.
zarext_add_wine_test(keyinfo_internal
  SOURCES keyinfo_last_import_test.cpp
  LIBS zarext_keyinfo zarext_keyinfo_core zarext_frame zarext_asn1)
