# Every export with each call into the platform failing in turn.
zarext_add_wine_test(anomaly_contract
  SOURCES anomaly_loop.cpp anomaly_points.cpp anomaly_keyinfo_test.cpp anomaly_msgkeys_test.cpp
          anomaly_registration_test.cpp anomaly_store_test.cpp anomaly_system_stores_test.cpp
          recording_framework.cpp)
