# The main job from end to end: the module registered with regsvr32, as its users do, the real
# framework and the development provider. What stays of it after regsvr32 /u has a program of its own.
zarext_add_wine_test(flow_e2e
  SOURCES flow_certificates_test.cpp flow_failures_test.cpp flow_maintenance_test.cpp flow_setup.cpp
    flow_store_test.cpp
  DEPENDS cpzarvel zarext_framework_patches)
zarext_add_wine_test(unregistered_e2e
  SOURCES unregistered_test.cpp
  DEPENDS cpzarvel zarext_framework_patches)
