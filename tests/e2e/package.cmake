# What is handed out: made by script/package, unpacked, and used with nothing of the build beside it.
# Alone, because it runs the build tool in this folder.
get_filename_component(preset ${CMAKE_BINARY_DIR} NAME)
add_test(NAME package COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/package_test.sh ${preset})
set_tests_properties(package PROPERTIES TIMEOUT 300 LABELS wine RUN_SERIAL ON)
