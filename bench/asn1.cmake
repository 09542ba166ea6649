if(ZAREXT_BENCH AND NOT WIN32)
  find_package(OpenSSL 3 REQUIRED)
  zarext_add_program(asn1_bench
    SOURCES asn1_bench.cpp asn1_documents.cpp asn1_floors.cpp asn1_rounds.cpp asn1_tasn1.cpp
            allocation_count.cpp
    LIBS zarext_asn1 OpenSSL::Crypto tasn1)
  target_include_directories(asn1_bench PRIVATE ${PROJECT_SOURCE_DIR})
  # A later release may have another Botan; its column is then empty.
  find_library(ZAREXT_BOTAN botan-2)
  if(ZAREXT_BOTAN)
    target_sources(asn1_bench PRIVATE asn1_botan.cpp)
    target_link_libraries(asn1_bench PRIVATE ${ZAREXT_BOTAN})
    target_include_directories(asn1_bench SYSTEM PRIVATE /usr/include/botan-2)
    target_compile_definitions(asn1_bench PRIVATE ZAREXT_BOTAN)
  endif()
  target_compile_definitions(asn1_bench PRIVATE
    ZAREXT_DEFINITIONS="${CMAKE_CURRENT_SOURCE_DIR}/asn1_documents.asn")
endif()

# The same on Windows, beside its floors alone.
if(WIN32)
  zarext_add_program(asn1_module_bench
    SOURCES asn1_module_bench.cpp asn1_floors.cpp asn1_rounds.cpp LIBS zarext_asn1)
  target_include_directories(asn1_module_bench PRIVATE ${PROJECT_SOURCE_DIR})
  set_target_properties(asn1_module_bench PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
endif()
