"""--trace of stripe: commands and replies in words, card data hidden unless it is to be shown."""
import re

import bench
from tool_stripe import MASKED, TRACKS, StripeTest

LINE = re.compile(r"^\d\d:\d\d:\d\d\.\d{3} ([<>]) ((?:(?:[0-9A-F]{2}|\*\*) ?)+)  \[(.*)\]$")


class Trace(StripeTest):
    def traced(self, sim, *arguments, code=0):
        run = self.stripe(sim, "--trace", *arguments, code=code)
        rows = [LINE.match(line) for line in run.err.splitlines()]
        return [(row[1], row[2].strip(), row[3]) for row in rows if row]

    def meanings(self, sim, *arguments, code=0):
        return [row[0] + " " + row[2] for row in self.traced(sim, *arguments, code=code)]

    def hexadecimal(self, text):
        return " ".join("%02X" % ord(c) for c in text)

    def halves(self, text):
        return " ".join("%02X %02X" % (0x30 + (ord(c) >> 4), 0x30 + (ord(c) & 15)) for c in text)

    def masked(self, track, spell):
        pieces = [spell(c) if c == m else " ".join("**" for _ in spell(c).split()) for c, m in zip(TRACKS[track], MASKED[track])]
        return " ".join(pieces)

    def test_a_bare_read_in_words(self):
        self.assertEqual(self.meanings(self.head(), "read", "--tracks", "23", "--timeout", "5", "--channel", "A", "--format", "ISO"), [
            "> channel A", "> head reset", "> format ISO",
            "> stripe frame, wait 5 s for a card", "< stripe frame, status 0000 (done)",
            "> read tracks 2 and 3", "< track 2 \"%s\", track 3 \"%s\"" % (MASKED[2], MASKED[3]),
            "> how did it go?", "< it succeeded",
            "> head reset", "> channel A", "> head reset"])

    def test_a_framed_read_in_words(self):
        sim = self.head(tracks={1: TRACKS[1], 2: TRACKS[2]})
        meanings = self.meanings(sim, "read", "--tracks", "123", "--format", "IBM", code=6)
        self.assertIn("> format IBM", meanings)
        self.assertIn("< stripe frame, status 4002 (read fault)", meanings)
        meanings = self.meanings(sim, "read")
        self.assertIn("> stripe frame, separator \"|\"", meanings)
        self.assertIn("> stripe frame, read all three tracks", meanings)
        self.assertIn("< stripe frame, status 0000 (done), track 1 \"%s\", track 2 \"%s\", track 3 empty" % (MASKED[1], MASKED[2]),
                      meanings)
        sim.command("stripe fault nodata once")
        self.assertIn("< stripe frame, status 4001 (no data on the card)", self.meanings(sim, "read", code=1))

    def test_writes_in_words(self):
        rows = (
            (("--track1", TRACKS[1]), "> write track 1 \"%s\"" % MASKED[1]),
            (("--track2", "12=3"), "> write track 2 \"**=*\""),
            (("--track3", "12=3"), "> write track 3 \"**=*\""),
            (("--track1", "B1", "--track2", "2"), "> write track 2 \"*\", track 1 \"B*\""),
            (("--track2", "2", "--track3", "3"), "> write track 2 \"*\", track 3 \"*\""),
            (("--track1", "B1", "--track2", "", "--track3", "3"),
             "> stripe frame, write track 1 \"B*\", track 2 empty, track 3 \"*\""),
        )
        sim = self.head()
        for arguments, meaning in rows:
            with self.subTest(arguments=arguments):
                self.assertIn(meaning, self.meanings(sim, "write", *arguments))
        sim.command("stripe fault write once")
        self.assertIn("< it failed", self.meanings(sim, "write", "--track2", "1", code=6))
        sim.command("stripe fault write once")
        self.assertIn("< stripe frame, status 4001 (write failed)",
                      self.meanings(sim, "write", "--track1", "B", "--track2", "1", "--track3", "1", code=6))

    def test_card_data_is_hidden_in_the_bytes_and_the_rest_is_not(self):
        sim = self.head()
        bare = self.traced(sim, "read", "--tracks", "2")
        self.assertIn(("<", "1B 73 " + self.masked(2, self.hexadecimal) + " 3F 1C", "track 2 \"%s\"" % MASKED[2]), bare)
        framed = next(data for direction, data, meaning in self.traced(sim, "read") if "track 1" in meaning)
        body = " ".join(("30 30 30 30", self.masked(1, self.halves), self.halves("|"), self.masked(2, self.halves)))
        self.assertIn(body, framed)
        self.assertTrue(framed.endswith("** ** 04"), "the check byte would give a single hidden byte away")
        written = self.traced(sim, "write", "--track2", TRACKS[2])
        self.assertIn("1B 74 " + self.masked(2, self.hexadecimal) + " 1D 1B 5C", [row[1] for row in written])

    def test_show_shows_every_byte_as_the_reader_saw_it(self):
        for arguments in (("read",), ("read", "--tracks", "12"), ("read", "--tracks", "3"), ("write", "--track2", TRACKS[2])):
            with self.subTest(arguments=arguments):
                sim = self.head()
                rows = self.traced(sim, *arguments, "--show")
                for direction, side in ((">", "in"), ("<", "out")):
                    told = " ".join(data for where, data, _ in rows if where == direction)
                    self.assertEqual(told, self.simulators_bytes(sim, side))

    def test_a_reply_that_is_none_is_hidden_all_the_more(self):
        sim = self.head()
        sim.command("stripe fault garbled")
        rows = self.traced(sim, "read", "--timeout", "1", "--tracks", "2", code=5)
        reply = next(row for row in rows if row[2] == "no whole reply")
        self.assertRegex(reply[1], r"^1B 73( \*\*)+$")
        rows = self.traced(sim, "read", "--timeout", "1", "--tracks", "2", "--show", code=5)
        self.assertIn(self.hexadecimal(TRACKS[2]), next(row[1] for row in rows if row[2] == "no whole reply"))

    def test_nothing_of_a_number_is_told_anywhere_unless_it_is_to_be_shown(self):
        secret = TRACKS[2][6:12]
        for arguments in (("read",), ("read", "--tracks", "23"), ("read", "--tracks", "1"),
                          ("write", "--track1", TRACKS[1], "--track2", TRACKS[2], "--verify")):
            with self.subTest(arguments=arguments):
                run = self.stripe(self.head(), "--trace", "--json", *arguments)
                for spelled in (secret, self.hexadecimal(secret), self.halves(secret), "DEMO", self.hexadecimal("DEMO")):
                    self.assertNotIn(spelled, run.out + run.err)


if __name__ == "__main__":
    bench.main()
