# Every name of the sources in these documents is there.
add_test(NAME documents COMMAND python3 ${CMAKE_CURRENT_SOURCE_DIR}/documents_test.py)
