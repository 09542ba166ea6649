# The development provider through the real advapi32.
zarext_add_wine_test(provider_contract_test
  SOURCES provider_keys_test.cpp
  LIBS advapi32 crypt32 DEPENDS cpzarvel)
