"""The commands that need a reader but no card, against a small reader on a pseudo-terminal."""
import os
import select
import termios
import threading
import tty

import bench

RECORD = (b"VXTA-1".ljust(32) + b"SN 0042".ljust(32) + bytes.fromhex("15032420 04030201 00000000 0D0C0B0A")
          + b"\0" * 6)
SPEEDS = {termios.B9600: 9600, termios.B38400: 38400, termios.B115200: 115200}


def halves(data):
    return b"".join(bytes((0x30 + (b >> 4), 0x30 + (b & 15))) for b in data)


def frame(head, end, data):
    check = 0
    for byte in data:
        check ^= byte
    return bytes([head]) + halves(len(data).to_bytes(2, "big") + data + bytes([check])) + bytes([end])


class PtyReader:
    """Answers framed commands as told (status word and body); others, and those at another speed, get no answer."""

    ENDS = {1: 4, 2: 3}

    def __init__(self, answers, baud=9600):
        self.answers = {bytes.fromhex(key): bytes.fromhex(value) for key, value in answers.items()}
        self.baud = baud
        self.asked = []
        self.master, self.slave = os.openpty()
        self.path = os.ttyname(self.slave)
        tty.setraw(self.slave)
        self.wake, self.stop = os.pipe()
        self.thread = threading.Thread(target=self._serve, daemon=True)
        self.thread.start()

    def _serve(self):
        pending = b""
        while self.wake not in select.select([self.master, self.wake], [], [])[0]:
            pending += os.read(self.master, 1024)
            while pending and pending[0] not in self.ENDS:
                if pending[:2] == b"\x1b0":
                    self.asked.append(b"\x1b0")
                pending = pending[1:]
            if not pending or self.ENDS[pending[0]] not in pending:
                continue
            end = pending.index(self.ENDS[pending[0]])
            whole, pending = pending[:end + 1], pending[end + 1:]
            data = bytes((whole[n] & 15) << 4 | whole[n + 1] & 15 for n in range(5, len(whole) - 3, 2))
            self.asked.append(data)
            speed = SPEEDS.get(termios.tcgetattr(self.slave)[5])
            if speed == self.baud and data in self.answers and whole == frame(whole[0], whole[-1], data):
                os.write(self.master, frame(whole[0], whole[-1], self.answers[data]))

    def close(self):
        os.write(self.stop, b"x")
        self.thread.join()
        for fd in (self.master, self.slave, self.wake, self.stop):
            os.close(fd)


class Device(bench.ToolTest):
    def reader(self, answers, **options):
        reader = PtyReader(answers, **options)
        self.addCleanup(reader.close)
        return reader

    def run_on(self, answers, *arguments, code=0):
        self.last = self.reader(answers)
        run = self.run_tool("--json", "--timeout", "1", *arguments, port=self.last.path)
        self.check_exit(run, code)
        return run.json()

    def test_a_sign_of_life_is_any_frame(self):
        for answer in ("0000", "0000 01", "F001"):
            with self.subTest(answer=answer):
                self.assertTrue(self.run_on({"3111": answer}, "present")["present"])

    def test_no_sign_of_life(self):
        told = self.run_on({}, "present", code=5)
        self.assertEqual((told["present"], told["error"]["name"]), (False, "no-answer"))

    def test_the_device_record(self):
        told = self.run_on({"1101": "0000" + RECORD.hex()}, "info")
        self.assertEqual([told[key] for key in ("model", "serial", "date", "version", "version2")],
                         ["VXTA-1", "SN 0042", "2024-03-15", "1.02.03.04", "a.0b.0c.0d"])
        self.assertNotIn("mac", told)

    def test_a_reader_that_refuses_and_one_that_is_silent_are_told_apart(self):
        for arguments, command in ((("info",), "1101"), (("led", "1"), "111101"), (("beep", "300", "2"), "8015012C02")):
            with self.subTest(arguments=arguments):
                told = self.run_on({command: "F001"}, *arguments, code=6)
                self.assertEqual(told["error"]["readerStatus"], "F001")
                self.run_on({}, *arguments, code=5)

    def test_leds_and_buzzer_send_their_numbers(self):
        for arguments, command in ((("led", "0x0F"), "11110F"), (("led", "1", "255"), "111401FF"),
                                   (("beep", "300", "2"), "8015012C02")):
            with self.subTest(arguments=arguments):
                self.run_on({command: "0000"}, *arguments)
                self.assertEqual(self.last.asked, [bytes.fromhex(command)])

    def test_reset_is_sent_as_it_stands(self):
        self.run_on({}, "reset")
        bench.wait_until(lambda: self.last.asked == [b"\x1b0"], "the reset came")

    def test_detection_tells_the_kind_and_the_tracks(self):
        self.assertEqual(self.run_on({"32300001": "0000 02"}, "detect")["kind"], "contactless")
        told = self.run_on({"32300001": "0000 03" + b"1234=5678|9999xx".hex()}, "detect")
        self.assertEqual((told["kind"], told["track2"], told["track3"]), ("magnetic", "1234=5678", "9999"))
        self.assertEqual(self.run_on({"3232000105": "0000 04"}, "detect", "--kind", "5")["kind"], "identity")

    def test_detection_without_a_card(self):
        self.run_on({"32300001": "1005"}, "detect", code=4)

    def test_numbers_out_of_range_are_refused(self):
        for arguments in (("led", "256"), ("led", "x"), ("beep", "65536", "1"), ("beep", "1"),
                          ("detect", "--kind", "0x100")):
            with self.subTest(arguments=arguments):
                self.check_exit(self.run_tool(*arguments, port="x"), 2)


if __name__ == "__main__":
    bench.main()
