# What the library does for hosts beside readers. OpenSSL is the peer of the ciphers.
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
qv_add_test(support_des SOURCES support_des.cpp) # the published sets take minutes under valgrind
qv_add_test(support_sha1 SOURCES support_sha1.cpp LABELS small)
# Reads the stack that a call has left: neither a sanitizer nor valgrind lets it.
qv_add_test(support_residue SOURCES support_residue.cpp LABELS plain)
target_compile_definitions(test_support_residue PRIVATE QV_OPTIMISED=$<NOT:$<CONFIG:Debug>>)
# A million inputs: too many under valgrind.
qv_add_test(support_random_peers SOURCES support_random_peers.cpp LABELS plain)
target_link_libraries(test_support_random_peers PRIVATE OpenSSL::Crypto)
qv_add_test(support_hashes SOURCES support_hashes.cpp LABELS small)
qv_add_test(support_hash_table SOURCES support_hash_table.cpp FAKE_CLOCK LABELS small)
qv_add_test(support_hash_growth SOURCES support_hash_growth.cpp LABELS small)
qv_add_test(support_files SOURCES support_files.cpp FAKE_CLOCK LABELS small)
qv_add_test(support_file_failures SOURCES support_file_failures.cpp LABELS small)
qv_add_test(support_file_base64 SOURCES support_file_base64.cpp LABELS small)
qv_add_test(support_file_calls SOURCES support_file_calls.cpp file_calls.cpp LABELS small)
qv_add_test(support_silent_calls SOURCES support_silent_calls.cpp FAKE_CLOCK LABELS small)
if(NOT QV_SANITIZE) # the program has a calloc of its own, as sanitizers and valgrind do
  qv_add_test(support_short_memory SOURCES support_short_memory.cpp short_memory.cpp file_calls.cpp LABELS plain)
endif()
