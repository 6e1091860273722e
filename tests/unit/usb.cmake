# USB readers through libusb and hidapi, on a faked bus and a faked device: no hardware, no waiting.

qv_add_test(transport_usb_open FAKE_CLOCK FAKE_SLEEP FAKE_USB SOURCES transport_usb_open.cpp)
qv_add_test(transport_usb_endpoints FAKE_CLOCK FAKE_SLEEP FAKE_USB SOURCES transport_usb_endpoints.cpp)
qv_add_test(transport_usb_write FAKE_CLOCK FAKE_SLEEP FAKE_USB SOURCES transport_usb_write.cpp)
qv_add_test(transport_usb_read FAKE_CLOCK FAKE_SLEEP FAKE_USB SOURCES transport_usb_read.cpp transport_usb_padding.cpp
            steady_clock.cpp)
qv_add_test(transport_usb_log FAKE_CLOCK FAKE_SLEEP FAKE_USB SOURCES transport_usb_log.cpp)
qv_add_test(transport_usb_pauses FAKE_CLOCK FAKE_SLEEP FAKE_USB SOURCES transport_usb_pauses.cpp steady_clock.cpp)
qv_add_test(transport_usb_bounds FAKE_CLOCK FAKE_SLEEP FAKE_USB SOURCES transport_usb_bounds.cpp)
qv_add_test(transport_usb_storm FAKE_CLOCK FAKE_SLEEP FAKE_USB SOURCES transport_usb_storm.cpp LABELS threads)
qv_add_test(transport_usb_cancel FAKE_CLOCK FAKE_SLEEP FAKE_USB SOURCES transport_usb_cancel.cpp LABELS threads)
qv_add_test(transport_hidapi FAKE_CLOCK FAKE_SLEEP FAKE_USB SOURCES transport_hidapi.cpp)
qv_add_test(transport_hidapi_read FAKE_CLOCK FAKE_SLEEP FAKE_USB SOURCES transport_hidapi_read.cpp steady_clock.cpp)
qv_add_test(transport_hidapi_bounds FAKE_CLOCK FAKE_SLEEP FAKE_USB SOURCES transport_hidapi_bounds.cpp)
qv_add_test(transport_usb_dispatch FAKE_CLOCK FAKE_SLEEP FAKE_USB SOURCES transport_usb_dispatch.cpp)
qv_add_test(transport_usb_failures FAKE_CLOCK FAKE_SLEEP FAKE_USB SOURCES transport_usb_failures.cpp)
qv_add_test(transport_usb_endurance FAKE_CLOCK FAKE_SLEEP FAKE_USB SOURCES transport_usb_endurance.cpp LABELS endurance plain)
qv_add_test(icreader_usb FAKE_CLOCK FAKE_SLEEP FAKE_USB SOURCES icreader_usb.cpp)
