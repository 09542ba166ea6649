# Where the platforms differ, and what only a run on Windows can settle.
zarext_add_wine_test(platform_e2e
  SOURCES framework_gaps_test.cpp platform_facts_test.cpp
  LIBS zarext_framework_patches_objects crypt32 advapi32
  DEPENDS cpzarvel)
