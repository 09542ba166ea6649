# Load, in the short form; script/soak runs the same programs for long.
zarext_add_wine_test(soak_threads
  SOURCES soak_threads_test.cpp soak_provider.cpp soak_worker.cpp soak_key_calls.cpp
    soak_message_calls.cpp soak_store_calls.cpp
  LIBS psapi)
zarext_add_wine_test(soak_processes SOURCES soak_processes_test.cpp LIBS psapi DEPENDS cpzarvel)
