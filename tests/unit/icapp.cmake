# The application layer: the BER-TLV toolkit and the lettered text of card data.

qv_add_test(tlv_scanner SOURCES tlv_scanner.cpp tlv_tables.cpp LABELS small)
qv_add_test(tlv_items SOURCES tlv_items.cpp LABELS small)
qv_add_test(tlv_arrays SOURCES tlv_arrays.cpp tlv_pack.cpp LABELS small)
qv_add_test(lettered_text SOURCES lettered_text.cpp LABELS small)
