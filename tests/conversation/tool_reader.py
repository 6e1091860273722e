"""The commands that need no card, against the simulated reader: what they do there is what its state shows."""
import os
import shutil
import tempfile
import termios
import unittest

import bench
from bench import card

POWER_ON_USER_SLOT = "02 30303035 33323232 30303030 3030 3130 03"  # 32 22 00 00 00: at once
TRACK2 = "6225000011112222=2912"
TRACK3 = "996225000011112222=156"


class Peripherals(bench.ToolTest):
    def test_led_and_beep_do_in_the_reader_what_was_said(self):
        sim = self.simulator()
        rows = (
            (("led", "0x0F"), "led", "0F, pair 00 00"),
            (("led", "1", "255"), "led", "0F, pair 01 FF"),
            (("led", "0"), "led", "00, pair 01 FF"),
            (("beep", "300", "2"), "buzzer", "1, last 01 2C 02"),
            (("beep", "0xFFFF", "0"), "buzzer", "2, last FF FF 00"),
        )
        for arguments, key, state in rows:
            with self.subTest(arguments=arguments):
                run = self.run_tool(*arguments, port=sim.path)
                self.check_exit(run, 0)
                self.assertEqual((run.out, run.err), ("done\n", ""))
                self.assertEqual(sim.state(key), state)

    def test_info_shows_the_readers_record(self):
        sim = self.simulator("--device", "model=TL900-X")
        for field, value in (("serial", "BOX-17"), ("date", "20240315"), ("version", "1.2.3.4"),
                             ("version2", "a.b.c.d"), ("mac", "0A0B0C0D0E0F")):
            sim.command("device %s %s" % (field, value))
        run = self.run_tool("--json", "info", port=sim.path)
        self.check_exit(run, 0)
        told = run.json()
        self.assertEqual([told[key] for key in ("model", "serial", "date", "version", "version2", "mac")],
                         ["TL900-X", "BOX-17", "2024-03-15", "1.02.03.04", "a.0b.0c.0d", "0A0B0C0D0E0F"])
        self.assertNotIn("answer", told)
        sim.command("device model QV 2")
        run = self.run_tool("info", port=sim.path)
        self.check_exit(run, 0)
        self.assertRegex(run.out, r"(?m)^model +QV 2$")
        self.assertNotIn("MAC", run.out)

    def test_present_finds_the_reader(self):
        sim = self.simulator("--baud", "38400")
        run = self.run_tool("--json", "--baud", "38400", "present", port=sim.path)
        self.check_exit(run, 0)
        self.assertTrue(run.json()["present"])
        self.check_exit(self.run_tool("--timeout", "1", "present", port=sim.path), 5)

    def test_reset_takes_the_power_from_a_card(self):
        sim = self.simulator("--card", "0=" + card("purse"))
        line = os.open(sim.path, os.O_RDWR | os.O_NOCTTY)
        self.addCleanup(os.close, line)
        os.write(line, bytes.fromhex(POWER_ON_USER_SLOT))
        bench.wait_until(lambda: sim.state("slot 0").startswith("powered"), "the card has power")
        termios.tcflush(line, termios.TCIFLUSH)
        run = self.run_tool("reset", port=sim.path)
        self.check_exit(run, 0)
        self.assertIn("no answer", run.out)
        bench.wait_until(lambda: sim.state("slot 0").startswith("unpowered"), "the card has lost power")

    @unittest.skipUnless(os.geteuid() == 0, "a link in /dev takes root")
    def test_info_on_a_numbered_port_shows_the_json_answer(self):
        link = "/dev/COM%d" % (100000 + os.getpid())
        self.addCleanup(lambda: self.assertFalse(os.path.lexists(link)))
        folder = tempfile.mkdtemp(prefix="qvtool-")  # the JSON call makes a folder for logs beside the library
        self.addCleanup(shutil.rmtree, folder)
        shutil.copy(os.environ["QV_LIBRARY"], os.path.join(folder, "libqvreader.so.1"))
        sim = self.simulator("--link", link, "--device", "model=VXTA-1", "--device", "date=20240315")
        run = self.run_tool("--json", "info", port=link, environment={"LD_LIBRARY_PATH": folder})
        self.check_exit(run, 0)
        answer = bench.json.loads(run.json()["answer"])
        self.assertEqual((answer["ErrorCode"], answer["DeviceModel"], answer["DeviceSN"], answer["ProductionDate"]),
                         ("0", "RDZ-7350", "SIM00000001", "2024.3.15"))
        self.assertEqual(run.json()["model"], "VXTA-1")
        self.assertEqual(sim.state("frames"), "2")  # one for each way of asking
        self.assertTrue(os.path.isdir(os.path.join(folder, "log")))


class Detection(bench.ToolTest):
    def detected(self, sim, *arguments, code=0):
        run = self.run_tool("--json", "--timeout", "1", "detect", *arguments, port=sim.path)
        self.check_exit(run, code)
        told = run.json()
        return tuple(told.get(key) for key in ("kind", "kindNumber", "track2", "track3"))

    def test_each_kind_of_card_is_told(self):
        sim = self.simulator()
        rows = (
            ("insert 0 " + card("purse"), "remove 0", ("contact", 1, None, None)),
            ("insert 255 " + card("purse"), "remove 255", ("contactless", 2, None, None)),
            ("swipe %s %s" % (TRACK2, TRACK3), "state", ("magnetic", 3, TRACK2, TRACK3)),
            ("swipe %s -" % TRACK2, "state", ("magnetic", 3, TRACK2, None)),
            ("swipe - %s" % TRACK3, "state", ("magnetic", 3, None, TRACK3)),
            ("identity on", "identity off", ("identity", 4, None, None)),
        )
        for put, take, expected in rows:
            with self.subTest(card=put):
                sim.command(put)
                self.assertEqual(self.detected(sim), expected)
                sim.command(take)
        self.assertEqual(self.detected(sim, code=4), (None, None, None, None))

    def test_one_kind_is_asked_for(self):
        sim = self.simulator("--card", "0=" + card("purse"))
        sim.command("identity on")
        self.assertEqual(self.detected(sim, "--kind", "4")[0], "identity")
        self.assertEqual(self.detected(sim, "--kind", "1")[0], "contact")
        self.detected(sim, "--kind", "2", code=4)
        run = self.run_tool("detect", "--kind", "9", port=sim.path)
        self.check_exit(run, 6)
        self.assertIn("F003: the reader knows no such kind of card", run.err)

    def test_a_card_that_comes_while_it_waits_is_told(self):
        for put, kind in (("insert 0 " + card("purse"), "contact"), ("swipe %s -" % TRACK2, "magnetic")):
            with self.subTest(card=put):
                sim = self.simulator()
                tool = self.start("--timeout", "60", "detect", port=sim.path)
                tool.wait_for("waiting for a card, up to 60 s (Ctrl-C cancels)")
                bench.wait_until(lambda sim=sim: self.waits(sim), "the reader waits")
                sim.command(put)
                run = tool.finish()
                self.check_exit(run, 0)
                self.assertRegex(run.out, r"^kind +%s\n" % kind)

    def waits(self, sim):
        return any(line.startswith("waits for any card") for line in sim.command("state"))

    def test_nothing_gets_power_from_being_detected(self):
        sim = self.simulator("--card", "0=" + card("purse"))
        self.detected(sim)
        self.assertTrue(sim.state("slot 0").startswith("unpowered"))

    def test_a_card_that_was_detected_and_pulled_out_is_gone(self):
        sim = self.simulator("--card", "0=" + card("purse"))
        self.assertEqual(self.detected(sim)[0], "contact")
        sim.command("remove 0")
        self.check_exit(self.run_tool("--timeout", "1", "atr", port=sim.path), 4)
        self.detected(sim, code=4)


class Neighbours(bench.ToolTest):
    def test_a_second_tool_is_told_that_the_first_is_at_work(self):
        sim = self.simulator()
        first = self.start("--timeout", "60", "detect", port=sim.path)
        first.wait_for("waiting for a card")
        for arguments in (("present",), ("info",), ("detect",), ("led", "1"), ("beep", "1", "1"), ("reset",)):
            with self.subTest(arguments=arguments):
                run = self.run_tool("--json", *arguments, port=sim.path)
                self.check_exit(run, 3)
                self.assertIn("is busy: another qvreader is at work on it", run.json()["error"]["text"])
        run = self.run_tool("doctor", port=sim.path)
        self.check_exit(run, 3)
        self.assertRegex(run.out, r"(?m)^WRONG port .*is busy: another qvreader .*-> end that program, or wait for it$")
        self.assertIn("(process %d)" % first.process.pid, run.out)
        sim.command("identity on")
        self.check_exit(first.finish(), 0)


if __name__ == "__main__":
    bench.main()
