"""stripe write against the simulated stripe head: what is written, what is refused, what is read back."""
import os
import signal
import subprocess

import bench
from tool_stripe import MASKED, TRACKS, StripeTest

SETS = ("1", "2", "3", "12", "23", "123")


def options(texts, tracks="123"):
    return [word for track in tracks for word in ("--track" + track, texts[int(track)])]


class WriteTest(StripeTest):
    def on_card(self, sim):
        """What is recorded on the card at hand, by track."""
        rows = (line.split(": ", 1) for line in sim.command("stripe tracks") if line.startswith("track "))
        return {int(row[0][-1]): row[1] if len(row) > 1 else "" for row in rows}

    def blank_head(self, *arguments):
        return self.head(*arguments, tracks={2: "0"})


class Write(WriteTest):
    def test_each_set_of_tracks_is_written(self):
        for tracks in SETS:
            with self.subTest(tracks=tracks):
                sim = self.blank_head()
                run = self.stripe(sim, "write", *options(TRACKS, tracks))
                named = {1: "track %s", 2: "tracks %s and %s", 3: "tracks %s, %s and %s"}[len(tracks)] % tuple(tracks)
                self.assertEqual(run.out, named + " written\n")
                self.assertIn("qvreader: swipe the card that is to be written (%s), within 30 s" % named, run.err)
                held = self.on_card(sim)
                self.assertEqual([held[int(track)] for track in tracks], [TRACKS[int(track)] for track in tracks])

    def test_an_empty_text_empties_its_track_where_all_three_are_written(self):
        sim = self.head()
        self.stripe(sim, "write", *options({1: TRACKS[1], 2: "", 3: "1"}))
        held = self.on_card(sim)
        self.assertEqual((held[1], held.get(2, ""), held[3]), (TRACKS[1], "", "1"))

    def test_the_format_and_the_channel_go_to_the_head(self):
        for form in ("ISO", "IBM", "ISO-DK", "IBM-DK"):
            with self.subTest(format=form):
                sim = self.blank_head("--stripe-channel", "K")
                self.stripe(sim, "write", "--track2", "12=34", "--format", form, "--channel", "K")
                run = self.stripe(sim, "read", "--show", "--tracks", "2", "--format", form, "--channel", "K")
                self.assertEqual(run.out, "track 2         12=34\n")

    def test_texts_come_from_a_card_file(self):
        sim = self.blank_head()
        self.stripe(sim, "write", "--card", self.card())
        self.assertEqual(self.on_card(sim), TRACKS)

    def test_the_shipped_card_file_can_be_written(self):
        sim = self.blank_head()
        self.stripe(sim, "write", "--card", os.path.join(bench.CARDS, "demo.stripe"))
        self.assertEqual(self.on_card(sim), TRACKS)

    def test_the_file_tells_the_format_unless_an_option_does(self):
        for more, form in (((), "IBM"), (("--format", "ISO-DK"), "ISO-DK")):
            sim = self.blank_head()
            told = self.stripe(sim, "--json", "write", "--card", self.card({2: "12"}, form="ibm"), *more).json()
            self.assertEqual(told["format"], form)
            self.stripe(sim, "read", "--tracks", "2", "--format", form)

    def test_texts_come_from_standard_input(self):
        sim = self.blank_head()
        run = subprocess.run([bench.TOOL, "--port", sim.path, "stripe", "write", "--card", "-"], timeout=60, text=True,
                             input="# a card\r\ntrack1 A B\r\n\r\ntrack2\t1=2\r\n", stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual(run.returncode, 0, run)
        held = self.on_card(sim)
        self.assertEqual((held[1], held[2]), ("A B", "1=2"))

    def test_json_holds_what_was_written(self):
        sim = self.blank_head()
        told = self.stripe(sim, "--json", "write", *options(TRACKS, "12")).json()
        self.assertTrue(0 <= told.pop("milliseconds") < 20_000)
        self.assertEqual(told, {
            "command": "stripe", "action": "write", "port": sim.path, "device": sim.path, "baud": 9600, "format": "ISO",
            "tracks": [{"track": 1, "length": 36, "text": MASKED[1]}, {"track": 2, "length": 25, "text": MASKED[2]}],
            "masked": True, "written": True, "exitCode": 0})


class Refused(WriteTest):
    def check_refused(self, *arguments, text, port="/dev/no-such-port", code=2):
        run = self.run_tool("--json", "stripe", "write", *arguments, port=port)
        self.check_exit(run, code)
        self.assertIn(text, run.json()["error"]["text"])
        self.assertIn(text, run.err)

    def test_a_character_that_a_track_does_not_have_is_told_with_its_place(self):
        rows = (
            ("--track2", "12345=ABC", "track 2: character 7, \"A\", is not possible there (possible are 0 to 9 : ; < = > ?); "
                                      "the library would write only the 6 before it"),
            ("--track2", "A123", "track 2: character 1, \"A\", is not possible there"),
            ("--track2", "A123", "the library would refuse the text"),
            ("--track3", "12/3", "track 3: character 3, \"/\""),
            ("--track3", "12@", "track 3: character 3, \"@\""),
            ("--track1", "BOe", "track 1: character 3, \"e\", is not possible there (possible are blank to underscore of ASCII"),
            ("--track1", "B`", "track 1: character 2, \"`\""),
            ("--track1", "BÄ", "track 1: character 2, 0xC3"),
            ("--track1", "A\tB", "track 1: character 2, 0x09"),
        )
        for option, track, text in rows:
            with self.subTest(track=track):
                self.check_refused(option, track, text=text)
        self.check_refused("--track1", "B1", "--track2", "1x", text="track 2: character 2, \"x\"")

    def test_every_character_of_a_track_is_written(self):
        sim = self.blank_head()
        first = "".join(map(chr, range(0x20, 0x60)))
        self.stripe(sim, "write", "--track1", "B" + first)
        self.assertEqual(self.on_card(sim)[1], "B" + first)
        self.stripe(sim, "write", "--track2", "0123456789:;<=>?", "--track3", "?>=<;:9876543210")
        held = self.on_card(sim)
        self.assertEqual((held[2], held[3]), ("0123456789:;<=>?", "?>=<;:9876543210"))

    def test_sets_that_no_swipe_writes_are_refused(self):
        rows = (
            ((), "there is nothing to write"),
            (("--track1", "B1", "--track3", "1"), "not 1 and 3"),
            (("--track2", ""), "track 2 is empty"),
            (("--track1", "B1", "--track2", ""), "track 2 is empty"),
            (("--track1", "12A34"), "the reader would take it for tracks 1 and 2"),
            (("--track1", "B" + "1" * 300, "--track2", "1" * 300), "the texts have 601 characters"),
        )
        for arguments, text in rows:
            with self.subTest(arguments=arguments):
                self.check_refused(*arguments, text=text)
        self.check_refused(*options(TRACKS), port="HID", text="over USB the library writes one or two tracks at a time")

    def test_card_files_that_are_none_are_refused_by_their_line(self):
        rows = (
            ("track1 B1\ntrack4 1\n", ":2: a line begins with track1"),
            ("format EBM\n", ":1: there is no format \"EBM\""),
            ("track2 1\n#\ntrack2 2\n", ":3: track 2 stands there twice"),
            ("track2 " + "1" * 5000 + "\n", ":1: the line is too long"),
            ("track2 12A\n", "track 2: character 3, \"A\""),
            ("name nothing\n", "there is nothing to write"),
        )
        for content, text in rows:
            with self.subTest(content=content[:20]):
                path = self.card({})
                with open(path, "w") as file:
                    file.write(content)
                self.check_refused("--card", path, text=text)
                if text.startswith(":"):
                    self.check_refused("--card", path, text=path + text)
        self.check_refused("--card", self.card(), "--track2", "1", text="not from both")
        self.check_refused("--card", "/no/such/file", text="/no/such/file cannot be read: No such file", code=7)
        self.check_refused("--card", "/tmp", text="/tmp cannot be read: ", code=7)

    def test_lengths_and_sentinels_are_noted_only(self):
        rows = (
            (("--track1", "B" * 76), None),
            (("--track1", "B" * 77), "track 1 has 77 characters; ISO 7811 gives it 79, with both sentinels and the check "
                                     "character 76 for the text"),
            (("--track2", "1" * 37), None),
            (("--track2", "1" * 38), "track 2 has 38 characters; ISO 7811 gives it 40"),
            (("--track3", "1" * 104), None),
            (("--track3", "1" * 105), "track 3 has 105 characters; ISO 7811 gives it 107"),
            (("--track2", ";123"), "track 2: character 1, \";\", is a sentinel"),
            (("--track2", "123?"), "track 2: character 4, \"?\", is a sentinel"),
            (("--track1", "%B1"), "track 1: character 1, \"%\", is a sentinel"),
        )
        sim = self.blank_head()
        for arguments, text in rows:
            with self.subTest(arguments=arguments):
                run = self.stripe(sim, "--json", "write", *arguments)
                self.assertEqual(len(run.json().get("warnings", [])), 0 if text is None else 1)
                if text is not None:
                    self.assertIn(text, run.json()["warnings"][0])
                    self.assertIn("qvreader: note: " + text, run.err)


class Failures(WriteTest):
    def test_a_card_that_cannot_be_written(self):
        sim = self.head()
        for tracks in SETS:
            with self.subTest(tracks=tracks):
                sim.command("stripe fault write once")
                told = self.check_failed(sim, "write", *options(TRACKS, tracks), code=6, name="reader-error",
                                         text="write: the reader could not write the card", result=-6)
                self.assertFalse(told["written"])

    def test_no_card_is_told_as_such(self):
        sim = self.simulator()
        for tracks in SETS:
            with self.subTest(tracks=tracks):
                self.check_failed(sim, "write", "--timeout", "1", *options(TRACKS, tracks), code=4, name="no-card",
                                  text="write: no card came in 1 s", result=-6)

    def test_an_answer_that_is_none_leaves_it_open_whether_it_was_written(self):
        sim = self.head()
        sim.command("stripe fault status once")
        self.check_failed(sim, "write", "--timeout", "1", "--track2", "1", code=5, name="no-answer",
                          text="its answer is neither yes nor no; read the card before it is used", result=-4)

    def test_a_silent_head_is_no_answer(self):
        sim = self.head()
        sim.command("stripe fault silent")
        for tracks in ("2", "123"):
            self.check_failed(sim, "write", "--timeout", "1", *options(TRACKS, tracks), code=5, name="no-answer",
                              text="not even an answer to its settings")

    def test_a_signal_ends_the_wait(self):
        for tracks in ("2", "123"):
            for number, code in ((signal.SIGINT, 130), (signal.SIGTERM, 143)):
                with self.subTest(tracks=tracks, signal=number):
                    sim = self.simulator()
                    tool = self.start("--json", "stripe", "write", *options(TRACKS, tracks), "--verify", port=sim.path)
                    tool.wait_for("swipe the card that is to be written")
                    tool.signal(number)
                    run = tool.finish()
                    self.check_exit(run, code)
                    self.assertEqual((run.json()["error"]["name"], run.json()["written"]), ("cancelled", False))
                    self.assertNotIn("once more, to check", run.err)


class Verify(WriteTest):
    AGAIN = "qvreader: written; swipe the card once more, to check it, within 30 s"

    def test_what_was_written_is_read_back(self):
        for tracks in SETS:
            with self.subTest(tracks=tracks):
                sim = self.blank_head()
                run = self.stripe(sim, "--json", "write", "--verify", *options(TRACKS, tracks))
                self.assertEqual((run.json()["verified"], run.json()["differences"]), (True, []))
                self.assertIn(self.AGAIN, run.err)
        run = self.stripe(self.blank_head(), "write", "--verify", "--track2", "1")
        self.assertEqual(run.out, "track 2 written\nread back: the same\n")

    def swiped_another(self, other, *arguments):
        """The card of the second swipe is another one."""
        sim = self.blank_head("--stripe-after", "700")
        tool = self.start("--json", "stripe", "write", "--verify", *arguments, port=sim.path)
        tool.wait_for("once more, to check it")
        sim.command("stripe " + (self.card(other) if other else "none"))
        return tool.finish()

    def test_a_difference_is_told_with_its_place(self):
        rows = (
            (options(TRACKS, "23"), {2: TRACKS[2][:20] + "9" + TRACKS[2][21:], 3: TRACKS[3]}, [(2, 21, MASKED[2])]),
            (options(TRACKS, "23"), {2: TRACKS[2], 3: "12"}, [(3, 1, "**")]),
            (options(TRACKS, "12"), {1: "C1", 2: TRACKS[2] + "0"}, [(1, 1, "C*"), (2, 26, MASKED[2] + "*")]),
            (options(TRACKS, "12"), {2: TRACKS[2]}, [(1, 1, "")]),
        )
        for arguments, other, differences in rows:
            with self.subTest(other=other):
                run = self.swiped_another(other, *arguments)
                self.check_exit(run, 8)
                told = run.json()
                self.assertEqual((told["error"]["name"], told["verified"], told["written"]), ("check-failed", False, True))
                self.assertEqual([(d["track"], d["place"], d["text"]) for d in told["differences"]], differences)
                for track, place, text in differences:
                    holds = "it holds \"%s\"" % text if text else "it is empty"
                    self.assertIn("track %d from character %d on: %s" % (track, place, holds), run.err)

    def test_what_was_written_stays_written_when_the_check_fails(self):
        run = self.swiped_another(None, "--timeout", "1", "--track2", "123")
        self.check_exit(run, 4)
        self.assertTrue(run.json()["written"])
        self.assertEqual(run.json()["error"]["text"], "written, but not checked: read: no card came in 1 s")

    def test_a_signal_at_the_second_swipe_ends_the_wait(self):
        sim = self.blank_head("--stripe-once")
        tool = self.start("--json", "stripe", "write", "--verify", "--track2", "1", port=sim.path)
        tool.wait_for("once more, to check it")
        tool.signal(signal.SIGINT)
        run = tool.finish()
        self.check_exit(run, 130)
        self.assertEqual((run.json()["written"], run.json()["error"]["text"]), (True, "written, but not checked: cancelled"))


if __name__ == "__main__":
    bench.main()
