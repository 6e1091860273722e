"""host.py - a Python host: host.py LIBRARY PORT. ctypes loads the library with local scope."""
import ctypes
import struct
import sys

RESPONSE = 1031
RESPONSE_LENGTH = 2056
RECORD_SIZE = 2060


class IccCardCmd(ctypes.Structure):
    _fields_ = [
        ("cla", ctypes.c_uint8), ("ins", ctypes.c_uint8), ("p1", ctypes.c_uint8), ("p2", ctypes.c_uint8),
        ("lc", ctypes.c_uint8), ("data", ctypes.c_uint8 * 1024), ("lePresent", ctypes.c_uint8),
        ("le", ctypes.c_uint8), ("response", ctypes.c_uint8 * 1024), ("responseLen", ctypes.c_uint32),
    ]


def check(holds, what):
    if not holds:
        sys.exit("does not hold: " + what)


def check_record():
    check(IccCardCmd.response.offset == RESPONSE, "response stands at 1031")
    check(IccCardCmd.responseLen.offset == RESPONSE_LENGTH, "responseLen stands at 2056")
    check(ctypes.sizeof(IccCardCmd) == RECORD_SIZE, "the record has 2060 bytes")


def power_up(library):
    atr = ctypes.create_string_buffer(512)
    length = ctypes.c_uint32(0)
    library.Dev_Rdz_SetPowerOnTime(3)
    check(library.Dev_Rdz_IccPowerOn(ord("1"), atr, ctypes.byref(length)) == 0, "power-up works")
    check(atr.raw[:length.value] == b"\x3B\x68\x00\x00QVSIM-DC", "the card's ATR comes")
    timeout = ctypes.c_uint32.in_dll(library, "g_nPowerOnTimeout")
    check(timeout.value == 3, "g_nPowerOnTimeout is what was set")


def with_a_structure(library):
    record = IccCardCmd(ins=0x84, lePresent=1, le=8)
    library.COMM_Rdz_ChageReadTimeOut(5)
    check(library.ICC_CardCmd(ctypes.byref(record)) == 0, "ICC_CardCmd works")
    response = bytes(record.response[:record.responseLen])
    check(response == bytes.fromhex("3A915CE7084DB2F69000"), "the challenge comes: " + response.hex())
    check(library.ICC_CardCmdGetErrCode() == 0x9000, "the last status word is 9000")


def with_bare_offsets(library):
    raw = (ctypes.c_uint8 * RECORD_SIZE)()
    raw[1], raw[2], raw[4] = 0xA4, 0x04, 5
    raw[5:10] = bytes.fromhex("A000000999")
    library.COMM_Rdz_ChageReadTimeOut(5)
    check(library.ICC_CardCmd(raw) == 0, "ICC_CardCmd works")
    (length,) = struct.unpack_from("=I", raw, RESPONSE_LENGTH)
    check(bytes(raw[RESPONSE:RESPONSE + length]) == bytes.fromhex("6A82"), "6A82 stands at 1031")


def check_json(library):
    library.cJSON_Parse.restype = ctypes.c_void_p
    library.cJSON_Parse.argtypes = [ctypes.c_char_p]
    library.cJSON_Delete.argtypes = [ctypes.c_void_p]
    root = library.cJSON_Parse(b'{"a": 1}')
    check(root is not None, "cJSON_Parse is found through the library")
    library.cJSON_Delete(root)


def main():
    library = ctypes.CDLL(sys.argv[1])
    port = sys.argv[2].encode()
    check_record()
    check(library.Dev_Rdz_Ic_OpenPort(port, None, 1, 0, 9600) == 0, "the port opens")
    power_up(library)
    with_a_structure(library)
    with_bare_offsets(library)
    check(library.Dev_Rdz_Ic_PowerOff() == 0, "power-down works")
    check(library.Dev_Rdz_Ic_ClosePort() == 0, "the port closes")
    check_json(library)
    print("done")


main()
