zarext_add_host_test(store_unit
  SOURCES store_key_record_list_test.cpp store_cache_block_test.cpp store_container_test.cpp
  LIBS zarext_store_core zarext_asn1)

# Refuses the list's allocations.
zarext_add_host_test(store_memory_unit
  SOURCES store_memory_test.cpp
  LIBS zarext_store_core zarext_asn1)
target_link_options(store_memory_unit PRIVATE
  -Wl,--wrap=_ZnwmRKSt9nothrow_t,--wrap=_ZnamRKSt9nothrow_t)
