# Detection of any kind of card, reader presence, peripherals, and the JSON call.

qv_add_test(icreader_detection FAKE_CLOCK SOURCES icreader_detection.cpp)
qv_add_test(icreader_peripherals FAKE_CLOCK SOURCES icreader_peripherals.cpp LABELS threads)
qv_add_test(devcall_request_text SOURCES devcall_request_text.cpp LABELS small)
qv_add_test(devcall_request FAKE_CLOCK SOURCES devcall_request.cpp)
qv_add_test(devcall_answer FAKE_CLOCK SOURCES devcall_answer.cpp)
