# Detection of any kind of card, reader presence, peripherals, and the JSON call.

qv_add_test(icreader_detection FAKE_CLOCK SOURCES icreader_detection.cpp failing_writes.cpp)
qv_add_test(icreader_detection_failures FAKE_CLOCK SOURCES icreader_detection_failures.cpp failing_reads.cpp)
qv_add_test(icreader_port_scan FAKE_CLOCK SOURCES icreader_port_scan.cpp failing_writes.cpp)
qv_add_test(icreader_peripherals FAKE_CLOCK SOURCES icreader_peripherals.cpp failing_writes.cpp LABELS threads)
qv_add_test(devcall_request_text SOURCES devcall_request_text.cpp LABELS small)
qv_add_test(devcall_request FAKE_CLOCK FAKE_USB SOURCES devcall_request.cpp devcall_com_names.cpp)
qv_add_test(devcall_answer FAKE_CLOCK SOURCES devcall_answer.cpp devcall_com_names.cpp failing_reads.cpp)
qv_add_test(devcall_log SOURCES devcall_log.cpp devcall_com_names.cpp failing_writes.cpp)
