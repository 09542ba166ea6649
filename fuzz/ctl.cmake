# Octets that reach zarextctl: files, the shared section, debugger output, the registry.
foreach(pair ctl_file:CheckCertificateFile ctl_listing:CheckListing ctl_trace:CheckTraceText
    ctl_registry:CheckRegistryValue)
  string(REPLACE ":" ";" pair ${pair})
  list(GET pair 0 name)
  list(GET pair 1 function)
  zarext_add_fuzz_target(${name} FUNCTION zarext::test::${function}
    HEADER unit/ctl_properties.h SOURCES
    LIBS zarextctl_properties zarextctl_core zarext_store_core zarext_asn1)
endforeach()
