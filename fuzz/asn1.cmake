# The codec against its naive counterpart: reading and writing an image, editing, object identifiers.
set(comparison differential oracle oracle_image oracle_values)
list(TRANSFORM comparison REPLACE "(.+)" "${PROJECT_SOURCE_DIR}/tests/unit/asn1/\\1.cpp")
foreach(pair image:CompareImage script:CompareScript oid:CompareOid)
  string(REPLACE ":" ";" pair ${pair})
  list(GET pair 0 kind)
  list(GET pair 1 function)
  zarext_add_fuzz_target(asn1_${kind} FUNCTION zarext::${function}
    HEADER unit/asn1/differential.h SOURCES ${comparison} LIBS zarext_asn1)
endforeach()
# What is new to the search is what the codec does, not what its counterpart or the comparison does.
set_source_files_properties(${comparison}
  PROPERTIES COMPILE_OPTIONS -fno-sanitize=fuzzer,fuzzer-no-link)
