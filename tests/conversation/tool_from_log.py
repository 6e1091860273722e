"""A log that the library has written becomes a card, which then holds the same conversation."""
import os
import shutil
import subprocess
import tempfile

import bench
from bench import card

CONVERSATIONS = (
    # slot, card, commands: follow-ups, repeated commands with changing answers, unknown ones, ordered sections
    ("0", "follow-up", ("00A40400023F00", "00A408000000", "00B2010C00", "00C0000010", "00B2010C00")),
    ("psam0", "debit-credit", ("00A404000E315041592E5359532E4444463031", "00B2010C00", "0084000008", "0084000008")),
    ("contactless", "purse", ("00A4040009515650555253452E31", "805C000204", "805001020B" + "00" * 11,
                              "805401000F" + "00" * 15, "805C000204", "00FF0000")),
)
CODES = {"0": 0, "psam0": 16, "contactless": 255}


class FromLog(bench.ToolTest):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="qvtool-")
        self.addCleanup(shutil.rmtree, self.folder)
        shutil.copy(os.environ["QV_LIBRARY"], os.path.join(self.folder, "libqvreader.so.1"))
        self.log = os.path.join(self.folder, "Alg_debug.log")
        with open(os.path.join(self.folder, "QVConfig.ini"), "w") as file:
            file.write("[QuorvanLog]\nLogFlag=1\n")

    def exchanges(self, sim, slot, commands):
        """ATR and (command, data, status word) of each command, talked with the library that logs."""
        run = self.run_tool("--slot", slot, "--json", "apdu", *commands, port=sim.path,
                            environment={"LD_LIBRARY_PATH": self.folder})
        told = run.json()
        return told["atr"], [(x["command"], x["data"], x["sw"]) for x in told["exchanges"]]

    def from_log(self, *arguments):
        return subprocess.run([bench.SIM, *arguments], capture_output=True, text=True, timeout=60)

    def card_of(self, slot, *logs):
        path = os.path.join(self.folder, "slot-%d.card" % slot)
        files = [word for log in logs for word in ("--from-log", log)]
        run = self.from_log(*files, "--slot", str(slot), "--record", path)
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "", ""))
        return "script:" + path

    def simulator_that_expects(self, *arguments):
        """The simulator leaves with 0 only if its whole card file has been played."""
        sim = self.simulator("--expect", *arguments)
        return sim, lambda: self.assertEqual(sim.command("expect"), [])

    def test_every_slot_of_a_log_is_a_card_that_answers_the_same(self):
        real = self.simulator(*[word for slot, name, _ in CONVERSATIONS
                                for word in ("--card", "%d=%s" % (CODES[slot], card(name)))])
        heard = [self.exchanges(real, slot, commands) for slot, _, commands in CONVERSATIONS]
        for (_, exchanges), (_, _, commands) in zip(heard, CONVERSATIONS):
            self.assertEqual(len(exchanges), len(commands))
        self.assertIn("choose one", self.from_log("--from-log", self.log).stderr)

        cards = [word for slot, _, _ in CONVERSATIONS
                 for word in ("--card", "%d=%s" % (CODES[slot], self.card_of(CODES[slot], self.log)))]
        again, check_all_played = self.simulator_that_expects(*cards)
        for (slot, _, commands), expected in zip(CONVERSATIONS, heard):
            self.assertEqual(self.exchanges(again, slot, commands), expected)
        check_all_played()
        again.process.terminate()
        self.assertEqual(again.process.wait(bench.PATIENCE), 0)

    def test_a_card_that_answered_otherwise_at_each_power_on_does_so_again(self):
        path = os.path.join(self.folder, "counter.card")
        with open(path, "w") as file:
            for n, head in enumerate(("atr 3B 00", "power", "power\natr 3B 02", "power")):
                file.write("%s\n> 00 84 00 00 02\n< 00 %02d 90 00\n< 01 %02d 90 00\n" % (head, n, n))
        real = self.simulator("--card", "0=script:" + path)
        talks = [("0084000002",), ("0084000002", "0084000002"), ("0084000002",), ("0084000002", "0084000002")]
        heard = [self.exchanges(real, "0", commands) for commands in talks]
        self.assertEqual([atr for atr, _ in heard], ["3B00", "3B00", "3B02", "3B02"])
        self.assertEqual(heard[3][1], [("0084000002", "0003", "9000"), ("0084000002", "0103", "9000")])

        again, check_all_played = self.simulator_that_expects("--card", "0=" + self.card_of(0, self.log))
        self.assertEqual([self.exchanges(again, "0", commands) for commands in talks], heard)
        check_all_played()

    def test_a_log_that_was_cut_in_two_is_read_as_one(self):
        real = self.simulator("--card", "0=" + card("follow-up"))
        slot, _, commands = CONVERSATIONS[0]
        heard = self.exchanges(real, slot, commands)
        with open(self.log, "rb") as file:
            lines = file.readlines()
        middle = next(n for n, line in enumerate(lines) if b"C_APDU" in line and b"00B2010C00" in line) + 1
        parts = []
        for name, content in (("QV_20261120.log", lines[:middle]), ("QV_20261121.log", lines[middle:])):
            parts.append(os.path.join(self.folder, name))
            with open(parts[-1], "wb") as file:
                file.writelines(content)
        again = self.simulator("--card", "0=" + self.card_of(0, *parts))
        self.assertEqual(self.exchanges(again, slot, commands), heard)

    def test_what_the_library_asked_in_vain_is_left_out(self):
        real = self.simulator("--card-patience", "200", "--card", "0=" + card("follow-up"))
        run = self.run_tool("--slot", "3", "--timeout", "1", "atr", port=real.path,
                            environment={"LD_LIBRARY_PATH": self.folder})
        self.check_exit(run, 4)
        self.assertIn("no card has answered in this log", self.from_log("--from-log", self.log).stderr)
        self.run_tool("apdu", "00C0000009", port=real.path, environment={"LD_LIBRARY_PATH": self.folder})
        printed = self.from_log("--from-log", self.log)
        self.assertEqual(printed.stdout, "name recorded in slot 0\natr 3B 68 00 00 51 56 53 49 4D 2D 46 55\n"
                                         "> 00 C0 00 00 09\n< silence\n")


if __name__ == "__main__":
    bench.main()
