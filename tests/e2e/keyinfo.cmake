# Keys in certificate form through the real framework, with the development provider.
zarext_add_wine_test(keyinfo_e2e
  SOURCES keyinfo_certificate_test.cpp keyinfo_framework_test.cpp keyinfo_private_key_test.cpp
    keyinfo_setup.cpp
  LIBS zarext_framework_patches_objects
  DEPENDS cpzarvel)
