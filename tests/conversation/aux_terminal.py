"""A host whose standard output is a thin-client terminal, with the simulated reader on the terminal's aux port."""
import os
import subprocess
import termios

import bench
from bench import card

HOST = os.environ["QV_AUX_HOST"]
STAR, GW, GG, WYSE = 1, 2, 3, 5
FAMILIES = {STAR: "star", GW: "gw", GG: "gg", WYSE: "wyse"}
ATR = "3B 68 00 00 51 56 53 49 4D 2D 44 43"
WHOLE = ["mode 0", "open 0", "power 0 " + ATR, "apdu 0 3A 91 5C E7 08 4D B2 F6 90 00", "off 0", "close 0"]
KEEP_SCREEN = "1B 5B 32 68"
RELEASE_SCREEN = "1B 5B 32 6C"


class AuxTerminal(bench.ToolTest):
    def terminal(self, family, *arguments):
        return self.simulator("--terminal", family, "--card", "0=" + card("debit-credit"), *arguments)

    def host(self, sim, term_type, port=1, baud=9600, prefix=0, mode=1):
        """What the host says on standard error, line by line; the terminal's settings are as they were."""
        line = os.open(sim.path, os.O_RDWR | os.O_NOCTTY)
        try:
            before = termios.tcgetattr(line)
            run = subprocess.run([HOST, *map(str, (term_type, port, baud, prefix, mode))], stdin=subprocess.DEVNULL,
                                 stdout=line, stderr=subprocess.PIPE, text=True, timeout=60)
            self.assertEqual(termios.tcgetattr(line), before)
        finally:
            os.close(line)
        return run.stderr.splitlines()

    def bytes_of(self, sim, mark):
        """What came by, as one text: the line cuts it as it likes."""
        rows = (line.split(" ", 2)[2] for line in sim.trace())
        return " ".join(row[5:] for row in rows if row.startswith(mark.ljust(5)))

    def is_off(self, sim, port=1, shown=0):
        text = "%s, reader at aux port %d, off, %d bytes shown" % (sim.family, port, shown)
        bench.wait_until(lambda: sim.state("terminal") == text, text)

    def start(self, term_type, *arguments):
        sim = self.terminal(FAMILIES[term_type], *arguments)
        sim.family = FAMILIES[term_type]
        return sim

    def test_a_card_answers_through_every_family(self):
        for term_type in FAMILIES:
            for prefix in (0, 1):
                with self.subTest(family=FAMILIES[term_type], prefix=prefix):
                    sim = self.start(term_type)
                    self.assertEqual(self.host(sim, term_type, prefix=prefix), WHOLE)
                    self.is_off(sim)
                    self.assertEqual(sim.state("frames"), "3")
                    self.assertEqual(sim.state("garbage"), "0")
                    sent = self.bytes_of(sim, "host")
                    self.assertEqual(sent.startswith(KEEP_SCREEN), prefix == 1)
                    self.assertEqual(sent.endswith(RELEASE_SCREEN), prefix == 1)

    def test_the_reader_hears_the_same_bytes_in_every_family(self):
        heard = set()
        for term_type in FAMILIES:
            sim = self.start(term_type)
            self.host(sim, term_type)
            self.is_off(sim)
            heard.add(self.bytes_of(sim, "in"))
        self.assertEqual(len(heard), 1, heard)

    def test_an_unknown_type_is_a_star(self):
        for term_type in (0, 4, 6, 99):
            with self.subTest(type=term_type):
                sim = self.start(STAR)
                self.assertEqual(self.host(sim, term_type, prefix=1), WHOLE)
                self.is_off(sim)

    def test_every_port(self):
        for term_type in FAMILIES:
            for port in (1, 2, 3, 4):
                with self.subTest(family=FAMILIES[term_type], port=port):
                    sim = self.start(term_type, "--aux-port", str(port))
                    self.assertEqual(self.host(sim, term_type, port=port), WHOLE)
                    self.is_off(sim, port)

    def test_every_speed_that_the_family_can_tell(self):
        for term_type, speeds in ((STAR, (600, 19200, 38400, 115200, 230400)), (GG, (1200, 19200, 38400, 115200))):
            for baud in speeds:
                with self.subTest(family=FAMILIES[term_type], baud=baud):
                    sim = self.start(term_type, "--baud", str(baud))
                    self.assertEqual(self.host(sim, term_type, baud=baud), WHOLE)
                    self.assertIn("terminal: aux port 1 on at %d" % baud, "\n".join(sim.trace()))

    def test_without_aux_mode_only_the_families_that_do_not_wrap_get_through(self):
        for term_type in (GW, WYSE):
            with self.subTest(family=FAMILIES[term_type]):
                sim = self.start(term_type)
                self.assertEqual(self.host(sim, term_type, mode=0), WHOLE)
                self.assertIn(", port 1 on at 9600,", sim.state("terminal"))  # a close sends nothing then
        for term_type in (STAR, GG):
            with self.subTest(family=FAMILIES[term_type]):
                sim = self.start(term_type)
                said = self.host(sim, term_type, mode=0)
                self.assertEqual(said[:3], ["mode 0", "open 0", "power -56"])
                self.assertEqual(sim.state("frames"), "0")
                self.assertIn(", port 1 on at 9600, 18 bytes shown", sim.state("terminal"))

    def test_a_reader_at_another_port_or_speed_does_not_answer(self):
        sim = self.start(GG, "--aux-port", "2")
        self.assertEqual(self.host(sim, GG, port=1)[2], "power -56")
        self.assertIn("aux port 1, where no reader is", "\n".join(sim.trace()))
        self.assertEqual(sim.state("frames"), "0")
        sim = self.start(STAR, "--baud", "19200")
        self.assertEqual(self.host(sim, STAR)[2], "power -56")
        self.assertEqual(sim.state("garbage"), "18")
        self.assertEqual(sim.state("frames"), "0")

    def test_another_familys_terminal_does_not_pass_anything_on(self):
        sim = self.start(STAR)
        self.assertEqual(self.host(sim, GG)[2], "power -56")
        self.assertEqual(sim.state("frames"), "0")

    def test_two_hosts_one_after_the_other(self):
        sim = self.start(STAR)
        for _ in range(2):
            self.assertEqual(self.host(sim, STAR, prefix=1), WHOLE)
            self.is_off(sim)

    def test_a_port_below_one_is_the_path_which_is_empty(self):
        sim = self.start(STAR)
        self.assertEqual(self.host(sim, STAR, port=0), ["mode 0", "open -3"])
        self.assertEqual(self.bytes_of(sim, "host"), "")

    def test_standard_output_that_is_no_terminal(self):
        run = subprocess.run([HOST, "1", "1", "9600", "0", "1"], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                             stderr=subprocess.PIPE, text=True, timeout=60)
        self.assertEqual((run.returncode, run.stderr.splitlines()), (1, ["mode 0", "open -3"]))


if __name__ == "__main__":
    bench.main()
