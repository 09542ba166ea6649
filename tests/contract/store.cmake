# The provider store through the DLL.
zarext_add_wine_test(store_contract
  SOURCES store_open_test.cpp
  DEPENDS zarext_provider_without_CPSetKeyParam)
