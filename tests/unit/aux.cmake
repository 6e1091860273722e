# The aux port of a thin-client terminal; the terminal is a pseudo-terminal on standard output.

qv_add_test(transport_aux_sequences SOURCES transport_aux_sequences.cpp LABELS small)
qv_add_test(transport_aux SOURCES transport_aux.cpp aux_terminal.cpp)
qv_add_test(transport_aux_exchange SOURCES transport_aux_exchange.cpp aux_terminal.cpp)
qv_add_test(transport_aux_dispatcher SOURCES transport_aux_dispatcher.cpp aux_terminal.cpp)
