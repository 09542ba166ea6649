# The development provider through the real advapi32.
zarext_add_wine_test(provider_contract_test
  SOURCES provider_concurrency_test.cpp provider_containers_test.cpp provider_contexts_test.cpp
    provider_damaged_containers_test.cpp provider_keys_test.cpp provider_messages_test.cpp
    provider_wrapping_test.cpp
  LIBS advapi32 crypt32 DEPENDS cpzarvel)
