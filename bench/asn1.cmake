if(ZAREXT_BENCH AND NOT WIN32)
  find_package(benchmark REQUIRED)
  find_package(OpenSSL 3 REQUIRED)
  zarext_add_program(asn1_bench
    SOURCES asn1_bench.cpp asn1_documents.cpp asn1_floors.cpp asn1_tasn1.cpp
            allocation_count.cpp
    LIBS zarext_asn1 benchmark::benchmark OpenSSL::Crypto tasn1)
  target_include_directories(asn1_bench PRIVATE ${PROJECT_SOURCE_DIR})
  target_compile_definitions(asn1_bench PRIVATE
    ZAREXT_DEFINITIONS="${CMAKE_CURRENT_SOURCE_DIR}/asn1_documents.asn")
endif()
