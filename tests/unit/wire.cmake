# The wire, from the serial port up to the IC reader: scripted conversations over pseudo-terminals.

qv_add_test(transport_dispatcher FAKE_CLOCK FAKE_USB SOURCES transport_dispatcher.cpp transport_dispatcher_budget.cpp
            transport_dispatcher_log.cpp)
qv_add_test(transport_serial RUN_SERIAL SOURCES transport_serial.cpp transport_serial_settings.cpp
            transport_serial_write.cpp transport_serial_single_shots.cpp transport_serial_calls.cpp)
qv_add_test(transport_serial_read SOURCES transport_serial_read.cpp)
qv_add_test(transport_serial_timeouts FAKE_CLOCK SOURCES transport_serial_timeouts.cpp)
qv_add_test(transport_serial_cancel SOURCES transport_serial_cancel.cpp LABELS threads)
qv_add_test(protocol_packet SOURCES protocol_packet.cpp LABELS small)
qv_add_test(protocol_ic_commands SOURCES protocol_ic_commands.cpp LABELS small)
qv_add_test(protocol_stripe_commands SOURCES protocol_stripe_commands.cpp LABELS small)
qv_add_test(protocol_exchange FAKE_CLOCK SOURCES protocol_exchange.cpp)
qv_add_test(protocol_read_write SOURCES protocol_read_write.cpp)
qv_add_test(icreader_open FAKE_USB RUN_SERIAL SOURCES icreader_open.cpp icreader_open_usb.cpp icreader_open_speed.cpp
            icreader_open_box.cpp icreader_open_calls.cpp)
qv_add_test(icreader_power FAKE_CLOCK SOURCES icreader_power.cpp icreader_power_by_type.cpp)
qv_add_test(icreader_apdu FAKE_CLOCK SOURCES icreader_apdu.cpp)
qv_add_test(icreader_send_command FAKE_CLOCK FAKE_USB SOURCES icreader_send_command.cpp
            icreader_send_command_raw.cpp failing_writes.cpp)
qv_add_test(icreader_follow_up FAKE_CLOCK SOURCES icreader_follow_up.cpp)
qv_add_test(icreader_slots FAKE_CLOCK SOURCES icreader_slots.cpp)
qv_add_test(icreader_reply_rooms SOURCES icreader_reply_rooms.cpp)
qv_add_test(icreader_log SOURCES icreader_log.cpp icreader_log_whole.cpp)

# A kernel: loaded while the program runs, or the program's own.
add_library(qv_test_kernel MODULE kernel_stub.cpp)
target_link_libraries(qv_test_kernel PRIVATE qv_warnings)
qv_add_test(icreader_kernel_in_program SOURCES icreader_kernel_in_program.cpp kernel_stub.cpp)
qv_add_test(icreader_kernel SOURCES icreader_kernel.cpp)
# The search alone; the program exports a function of its own.
qv_add_test(kernel_link SOURCES kernel_link.cpp ${PROJECT_SOURCE_DIR}/src/support/kernel_link.cpp)
target_include_directories(test_kernel_link PRIVATE ${PROJECT_SOURCE_DIR}/src/support/shared)
set_target_properties(test_kernel_link PROPERTIES ENABLE_EXPORTS ON)
foreach(sName IN ITEMS icreader_kernel icreader_kernel_in_program kernel_link)
  target_compile_definitions(test_${sName} PRIVATE QV_KERNEL="$<TARGET_FILE:qv_test_kernel>")
  add_dependencies(test_${sName} qv_test_kernel)
endforeach()

# A second thread cancels each call that waits for the reader.
foreach(sName IN ITEMS icreader_cancel detection_cancel)
  qv_add_test(${sName} FAKE_CLOCK SOURCES ${sName}.cpp cancel_point.cpp LABELS threads)
endforeach()
