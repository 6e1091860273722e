#!/usr/bin/env python3
"""The conversation of card_session.c, with ctypes.

    card_session.py PORT [LIBRARY]
"""
import ctypes
import sys
from ctypes import POINTER, byref, c_char_p, c_int32, c_uint8, c_uint32

SPEED = 9600
CARD_SECONDS = 20
ANSWER_SECONDS = 10
DONE, NO_RECORD = 0x9000, 0x6A83
BYTES = POINTER(c_uint8)
LENGTH = POINTER(c_uint32)

# Results and arguments of what is used here. Without them ctypes takes every argument for an int.
PROTOTYPES = {
    "QV_APP_SetPowerOnTimeout": (c_int32, [c_int32]),
    "QV_APP_PowerOn": (c_int32, [c_char_p, c_char_p, c_int32, c_char_p, LENGTH, c_char_p]),
    "QV_APP_OpenPort": (c_int32, [c_char_p, c_char_p, c_int32]),
    "QV_APP_ClosePort": (c_int32, [c_char_p, c_char_p, c_int32]),
    "QV_APP_SendCommandOnly": (c_int32, [c_char_p, c_uint32, c_char_p, LENGTH, BYTES]),
    "Cmd_Ic_PbocSelect_Aid": (c_uint32, [c_int32, c_char_p, c_uint32, BYTES, LENGTH]),
    "Cmd_Ic_PbocReadRecord": (c_uint32, [c_uint8, c_uint8, BYTES, LENGTH]),
    "COMM_Rdz_ChageReadTimeOut": (c_int32, [c_uint32]),
    "Dev_Rdz_Ic_PowerOff": (c_int32, []),
    # as a pointer, so that the GBK text can be taken out of the buffer at once
    "ICC_CardCmdShowErrMsg": (ctypes.c_void_p, [c_uint32]),
    "quorvan_get_tag_value": (c_int32, [c_char_p, c_int32, c_char_p, c_int32, BYTES, POINTER(c_int32)]),
}


class Failure(Exception):
    pass


def load(path):
    library = ctypes.CDLL(path)
    for name, (result, arguments) in PROTOTYPES.items():
        function = getattr(library, name)
        function.restype, function.argtypes = result, arguments
    return library


class CardSession:
    """An open reader with a powered card. The library has one reader a process, and one caller at a time."""

    def __init__(self, library, port):
        self.library, self.port = library, port
        result = library.QV_APP_OpenPort(port, None, SPEED)
        if result != 0:
            raise Failure("%s does not open, result %d" % (port.decode(), result))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._renew_time()
        self.library.Dev_Rdz_Ic_PowerOff()
        self.library.QV_APP_ClosePort(self.port, None, SPEED)

    def _renew_time(self):
        """Reads share a budget."""
        self.library.COMM_Rdz_ChageReadTimeOut(ANSWER_SECONDS)

    def _exchange(self, call):
        """What call returned, and the whole answer of the card."""
        self._renew_time()
        response = (c_uint8 * 1024)()
        length = c_uint32(0)
        result = call(response, byref(length))
        return result, bytes(response[: length.value])

    def _command(self, builder):
        """A builder returns the card's status word, or the reader's failure, and then there is no answer."""
        status, answer = self._exchange(builder)
        if not answer:
            raise Failure("no answer, result %d" % c_int32(status).value)
        return status, answer[:-2]

    def select(self, aid):
        return self._command(
            lambda out, length: self.library.Cmd_Ic_PbocSelect_Aid(0, aid, len(aid), out, length))

    def read_record(self, file, record):
        return self._command(
            lambda out, length: self.library.Cmd_Ic_PbocReadRecord(file, record, out, length))

    def send(self, command):
        """Any other command, as bytes."""
        result, answer = self._exchange(
            lambda out, length: self.library.QV_APP_SendCommandOnly(b"1", len(command), command, length, out))
        if result != 0 or len(answer) < 2:
            raise Failure("no answer, result %d" % result)
        return int.from_bytes(answer[-2:], "big"), answer[:-2]

    def meaning(self, status):
        """What a status word means; the library keeps it in GBK, in a buffer that the next call overwrites."""
        return ctypes.string_at(self.library.ICC_CardCmdShowErrMsg(status)).decode("gbk", "replace")

    def value(self, tag, data):
        """The value of a tag, inside templates too."""
        out = (c_uint8 * (len(data) + 1))()
        length = c_int32(0)
        # A length of 0 would mean that the data end by themselves.
        if not data or self.library.quorvan_get_tag_value(tag, len(tag), data, len(data), out, byref(length)) != 0:
            raise Failure("an object is missing in the card's answer")
        return bytes(out[: length.value])


def power_up(library, port):
    """Opens the reader, powers the card up, and closes again; the card stays powered."""
    text = ctypes.create_string_buffer(1025)
    length = c_uint32(0)
    library.QV_APP_SetPowerOnTimeout(CARD_SECONDS)
    result = library.QV_APP_PowerOn(port, None, SPEED, b"1", byref(length), text)
    if result != 0:
        raise Failure("no answer to reset, result %d" % result)
    return text.value.decode("ascii")


def converse(card):
    status, answer = card.select(bytes.fromhex("A000000333010101"))
    print("select:", card.meaning(status))
    if status != DONE:
        return False
    print("label:", card.value(b"\x50", answer).decode("ascii"))
    print("languages:", card.value(b"\x5F\x2D", answer).decode("ascii"))
    file, records = card.value(b"\x9F\x4D", answer)
    print("log: file %d, %d records" % (file, records))
    status, challenge = card.send(bytes.fromhex("0084000008"))
    print("challenge:", challenge.hex().upper())
    status, _ = card.read_record(2, 3)
    print("record 3:", card.meaning(status))
    return status == NO_RECORD


def main():
    if len(sys.argv) not in (2, 3):
        print("usage: card_session.py PORT [LIBRARY]", file=sys.stderr)
        return 2
    port = sys.argv[1].encode()
    try:
        library = load(sys.argv[2] if len(sys.argv) == 3 else "libqvreader.so.1")
        print("ATR:", power_up(library, port))
        with CardSession(library, port) as card:
            return 0 if converse(card) else 1
    except (Failure, OSError) as error:
        print(error)
        return 1


if __name__ == "__main__":
    sys.exit(main())
