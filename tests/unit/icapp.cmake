# The application layer: the BER-TLV toolkit and the lettered text of card data.

qv_add_test(tlv_scanner SOURCES tlv_scanner.cpp tlv_tables.cpp LABELS small)
qv_add_test(tlv_items SOURCES tlv_items.cpp LABELS small)
qv_add_test(tlv_arrays SOURCES tlv_arrays.cpp tlv_pack.cpp LABELS small)
qv_add_test(lettered_text SOURCES lettered_text.cpp LABELS small)

# Card commands and status texts, options, the callbacks and the session calls of a host without a kernel.
qv_add_test(card_commands SOURCES card_commands.cpp card_sender.cpp)
qv_add_test(status_text SOURCES status_text.cpp LABELS small)
qv_add_test(app_options SOURCES app_options.cpp LABELS small)
qv_add_test(app_callbacks SOURCES app_callbacks.cpp app_callback_tables.cpp)
qv_add_test(app_session FAKE_CLOCK SOURCES app_session_power.cpp app_session_reader.cpp app_session_commands.cpp
            app_session_peripherals.cpp app_session_detection.cpp)
