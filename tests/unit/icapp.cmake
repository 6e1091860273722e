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

# Card sessions with the kernel of the tests as a part of the program.
add_library(qv_test_kernel_object OBJECT ${PROJECT_SOURCE_DIR}/tests/support/test_kernel.cpp)
target_include_directories(qv_test_kernel_object PUBLIC ${PROJECT_SOURCE_DIR}/tests/support)
target_link_libraries(qv_test_kernel_object PUBLIC qvreader PRIVATE qv_warnings)
qv_add_test(app_kernel FAKE_CLOCK SOURCES app_kernel_setup.cpp app_kernel_conversion.cpp app_kernel_success.cpp)
qv_add_test(app_card_data SOURCES app_card_data_info.cpp app_card_data_select.cpp app_card_data_records.cpp
            app_card_data_slots.cpp app_card_data_order.cpp)
qv_add_test(app_transaction SOURCES app_transaction_arqc.cpp app_transaction_completion.cpp
            app_transaction_issuer.cpp app_transaction_detail.cpp)
foreach(sName IN ITEMS app_kernel app_card_data app_transaction)
  target_link_libraries(test_${sName} PRIVATE qv_test_kernel_object)
endforeach()

# No kernel at all; a kernel, or a part of one, that is loaded while the program runs.
qv_add_test(app_kernel_absent SOURCES app_kernel_absent.cpp)
qv_add_test(app_kernel_loaded SOURCES app_kernel_loaded.cpp app_kernel_partial.cpp)
add_library(qv_whole_kernel MODULE ${PROJECT_SOURCE_DIR}/tests/support/test_kernel.cpp)
target_include_directories(qv_whole_kernel PRIVATE ${PROJECT_SOURCE_DIR}/tests/support)
add_library(qv_converting_kernel MODULE kernel_parts.cpp)
target_compile_definitions(qv_converting_kernel PRIVATE QV_CONVERTS)
add_library(qv_starting_kernel MODULE kernel_parts.cpp)
foreach(sKernel IN ITEMS whole converting starting)
  target_link_libraries(qv_${sKernel}_kernel PRIVATE qvreader qv_warnings)
  string(TOUPPER ${sKernel} sUpper)
  target_compile_definitions(test_app_kernel_loaded PRIVATE QV_${sUpper}_KERNEL="$<TARGET_FILE:qv_${sKernel}_kernel>")
  add_dependencies(test_app_kernel_loaded qv_${sKernel}_kernel)
endforeach()
# Kernels that lack one function: it has another name in them.
foreach(sFunction IN ITEMS PackAidList TY_DealAidList SetRead5AFlag SetTVR TY_SaveData Emv_SaveData Emv_QV_End
                           TY_ConvertErr)
  add_library(kernel_without_${sFunction} MODULE ${PROJECT_SOURCE_DIR}/tests/support/test_kernel.cpp)
  set_target_properties(kernel_without_${sFunction} PROPERTIES PREFIX "")
  target_include_directories(kernel_without_${sFunction} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support)
  target_compile_definitions(kernel_without_${sFunction} PRIVATE ${sFunction}=no_${sFunction})
  target_link_libraries(kernel_without_${sFunction} PRIVATE qvreader qv_warnings)
  add_dependencies(test_app_kernel_loaded kernel_without_${sFunction})
endforeach()
target_compile_definitions(test_app_kernel_loaded
                           PRIVATE QV_KERNEL_WITHOUT="${CMAKE_CURRENT_BINARY_DIR}/kernel_without_")
