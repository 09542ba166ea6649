# Every export with each call into the platform failing in turn.
zarext_add_wine_test(anomaly_contract
  SOURCES anomaly_keyinfo_test.cpp anomaly_msgkeys_test.cpp anomaly_msgkeys_generate_test.cpp
          anomaly_registration_test.cpp
          anomaly_store_test.cpp anomaly_store_callbacks_test.cpp anomaly_system_stores_test.cpp
          anomaly_effects.cpp anomaly_loop.cpp anomaly_scenario.cpp
          anomaly_crypto_points.cpp anomaly_import.cpp anomaly_points.cpp anomaly_system_points.cpp
          recording_framework.cpp)
