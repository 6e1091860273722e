"""The examples of a card session: each language's host has the same conversation with the card and says the same."""
import os
import subprocess
import sys
import unittest

from bench import PATIENCE, Simulator, card

EXAMPLES = os.environ["QV_EXAMPLES"]
LIBRARY = os.environ["QV_LIBRARY"]
SANITIZED = os.environ["QV_SANITIZED"] == "1"

SAID = """\
ATR: 3B680000515653494D2D4443
select: ErrCode: 9000: 成功执行
label: QV DEBIT
languages: zhen
log: file 11, 10 records
challenge: 3A915CE7084DB2F6
record 3: ErrCode: 6A83: 该记录未找到
"""
SENT = ["00 A4 04 00 08 A0 00 00 03 33 01 01 01 00", "00 84 00 00 08", "00 B2 03 14 00"]
APDU = " APDU to slot 0: "


class ExampleSession:
    """What holds for the example of every language."""

    def run_host(self, port):
        environment = {**os.environ, "LC_ALL": "C", "PYTHONIOENCODING": "utf-8"}
        return subprocess.run(self.command(port), stdout=subprocess.PIPE, env=environment, timeout=3 * PATIENCE)

    def with_card(self, *cards):
        simulator = Simulator(*cards)
        self.addCleanup(simulator.close)
        return simulator

    def test_the_conversation_is_the_one_that_the_example_shows(self):
        simulator = self.with_card("--card", "0=" + card("debit-credit"))
        result = self.run_host(simulator.path)
        self.assertEqual(result.stdout.decode("utf-8"), SAID)
        self.assertEqual(result.returncode, 0)
        sent = [line.partition(APDU)[2] for line in simulator.trace() if APDU in line]
        self.assertEqual(sent, SENT)

    def test_the_card_is_powered_down_at_the_end(self):
        simulator = self.with_card("--card", "0=" + card("debit-credit"))
        self.run_host(simulator.path)
        self.assertRegex(simulator.state("slot 0"), "^unpowered ")
        self.assertEqual(sum(" power off slot 0" in line for line in simulator.trace()), 1)

    def test_another_card_s_refusal_is_shown_and_ends_the_conversation(self):
        simulator = self.with_card("--card", "0=" + card("purse"))
        result = self.run_host(simulator.path)
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stdout.decode("utf-8").splitlines()[1:], ["select: ErrCode: 6A82: 该文件未找到"])

    def test_a_port_that_is_not_there_is_told_with_the_library_s_code(self):
        result = self.run_host("/dev/no-such-port")
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stdout.decode("utf-8"), "no answer to reset, result -51\n")


class C(ExampleSession, unittest.TestCase):
    @staticmethod
    def command(port):
        return os.path.join(EXAMPLES, "card_session"), port


class Cpp(ExampleSession, unittest.TestCase):
    @staticmethod
    def command(port):
        return os.path.join(EXAMPLES, "card_session_cpp"), port


@unittest.skipIf(SANITIZED, "an instrumented library works only in a program that was built the same way")
class Python(ExampleSession, unittest.TestCase):
    @staticmethod
    def command(port):
        source = os.path.join(os.environ["QV_EXAMPLE_SOURCES"], "card_session.py")
        return sys.executable, "-B", source, port, LIBRARY


if __name__ == "__main__":
    unittest.main()
