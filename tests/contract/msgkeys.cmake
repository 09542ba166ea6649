zarext_add_wine_test(msgkeys_contract
  SOURCES msgkeys_generate_test.cpp msgkeys_generate_wrapping_test.cpp
    msgkeys_generate_older_test.cpp msgkeys_export_test.cpp msgkeys_export_sender_test.cpp
    msgkeys_export_older_test.cpp msgkeys_import_test.cpp
    msgkeys_import_older_test.cpp)
