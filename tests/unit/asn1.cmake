zarext_add_host_test(asn1_unit
  SOURCES asn1/edit_test.cpp asn1/load_test.cpp asn1/node_test.cpp asn1/oid_test.cpp
    asn1/parse_test.cpp asn1/read_test.cpp asn1/small_stack_test.cpp
  LIBS zarext_asn1)

# Counts and refuses the codec's allocations, and looks at what is given back.
zarext_add_host_test(asn1_memory_unit
  SOURCES asn1/memory_test.cpp asn1/allocation_failure_test.cpp asn1/wipe_test.cpp
    asn1/counted_memory.cpp
  LIBS zarext_asn1)
target_link_options(asn1_memory_unit PRIVATE
  -Wl,--wrap=malloc,--wrap=calloc,--wrap=free,--wrap=_Znwm,--wrap=_Znam)
