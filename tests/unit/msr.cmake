# The stripe side, from the open record up to the application functions: a scripted reader behind every tty name.

qv_add_test(msr_open FAKE_SLEEP SOURCES msr_open.cpp msr_open_channel.cpp msr_calls.cpp)
qv_add_test(msr_open_usb FAKE_CLOCK FAKE_SLEEP FAKE_USB SOURCES msr_open_usb.cpp)
qv_add_test(msr_device FAKE_CLOCK SOURCES msr_device.cpp msr_calls.cpp)
qv_add_test(msr_device_exchange FAKE_CLOCK SOURCES msr_device_exchange.cpp msr_calls.cpp LABELS threads)
qv_add_test(msr_messages SOURCES msr_messages.cpp LABELS small)
qv_add_test(msr_app FAKE_CLOCK SOURCES msr_app_read.cpp msr_app_write.cpp msr_calls.cpp)
qv_add_test(msr_app_others FAKE_CLOCK FAKE_SLEEP FAKE_USB SOURCES msr_app_others.cpp msr_calls.cpp)
qv_add_test(msr_app_cancel FAKE_CLOCK FAKE_SLEEP SOURCES msr_app_cancel.cpp msr_calls.cpp LABELS threads)
qv_add_test(msr_app_ms FAKE_CLOCK FAKE_USB SOURCES msr_app_ms.cpp msr_app_ms_log.cpp msr_calls.cpp)

# The track engine of the magnetic-stripe head.

qv_add_test(msr_tracks_texts SOURCES msr_tracks_texts.cpp msr_tracks_table.cpp msr_tracks_ends.cpp LABELS small)
qv_add_test(msr_tracks_read FAKE_CLOCK FAKE_SLEEP SOURCES msr_tracks_read.cpp msr_tracks_read_replies.cpp
            msr_tracks_read_all.cpp stripe_line.cpp)
qv_add_test(msr_tracks_write FAKE_CLOCK FAKE_SLEEP SOURCES msr_tracks_write.cpp msr_tracks_write_results.cpp
            stripe_line.cpp)
qv_add_test(msr_tracks_setup FAKE_CLOCK FAKE_SLEEP SOURCES msr_tracks_setup.cpp stripe_line.cpp)
qv_add_test(msr_tracks_steps FAKE_CLOCK FAKE_SLEEP SOURCES msr_tracks_steps.cpp stripe_line.cpp)
qv_add_test(msr_tracks_log FAKE_CLOCK FAKE_SLEEP SOURCES msr_tracks_log.cpp stripe_line.cpp)
# A second thread cancels each wait of a read and of a write.
qv_add_test(msr_tracks_cancel FAKE_CLOCK SOURCES msr_tracks_cancel.cpp cancel_point.cpp LABELS threads)
