# Names in the documents, and the order of the folders.
add_test(NAME documents COMMAND python3 ${CMAKE_CURRENT_SOURCE_DIR}/documents_test.py)
