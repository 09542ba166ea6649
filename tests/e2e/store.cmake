# The provider store through the real framework: with a provider that the test describes, and with
# the development provider's real containers.
zarext_add_wine_test(store_framework SOURCES store_framework_test.cpp LIBS psapi)
zarext_add_wine_test(store_e2e SOURCES store_containers_test.cpp DEPENDS cpzarvel)
