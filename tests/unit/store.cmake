zarext_add_host_test(store_unit
  SOURCES store_key_record_list_test.cpp store_cache_block_test.cpp store_container_test.cpp
  LIBS zarext_store_core zarext_asn1)
