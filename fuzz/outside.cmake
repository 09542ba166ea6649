# Octets that reach the module from other processes and from a provider.
foreach(pair shared_block:CheckSharedBlock key_records:CheckKeyRecords key_blobs:CheckKeyBlobs)
  string(REPLACE ":" ";" pair ${pair})
  list(GET pair 0 name)
  list(GET pair 1 function)
  zarext_add_fuzz_target(${name} FUNCTION zarext::test::${function}
    HEADER unit/outside_properties.h SOURCES
    LIBS zarext_hosted zarext_keyinfo_core zarext_store_core zarext_asn1)
endforeach()
