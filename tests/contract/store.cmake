# The provider store through the DLL.
zarext_add_wine_test(store_contract
  SOURCES store_open_test.cpp store_load_test.cpp store_load_limits_test.cpp store_chain_test.cpp
    store_listing_test.cpp store_cache_test.cpp store_callbacks_test.cpp store_write_test.cpp
    store_write_keys_test.cpp store_late_calls_test.cpp
  DEPENDS zarext_provider_without_CPSetKeyParam zarext_late_caller)

# The store's own objects, linked in.
zarext_add_wine_test(store_internal
  SOURCES store_internal_test.cpp store_binding_test.cpp store_section_test.cpp
  LIBS zarext_store zarext_store_core zarext_frame zarext_asn1
  DEPENDS zarext_provider_without_CPSetKeyParam)

# Without the objects that other processes share: no process of this program but the child may load
# the module.
zarext_add_wine_test(store_objects SOURCES store_objects_test.cpp)

# The system stores and the log file.
zarext_add_wine_test(store_system SOURCES store_system_test.cpp store_system_failures_test.cpp)
