# Enveloped messages through the real framework, with the development provider.
zarext_add_wine_test(envelope_e2e
  SOURCES envelope_message_test.cpp envelope_older_forms_test.cpp envelope_what_works_test.cpp
  LIBS zarext_framework_patches_objects
  DEPENDS cpzarvel)
