# What only a run on Windows can settle.
zarext_add_wine_test(platform_e2e SOURCES platform_facts_test.cpp LIBS crypt32 advapi32 DEPENDS cpzarvel)
