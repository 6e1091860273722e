"""stripe read against the simulated stripe head: what is shown, what is hidden, how it fails."""
import contextlib
import os
import signal
import subprocess
import tempfile
import termios
import unittest

import bench

IS_ROOT = os.geteuid() == 0
TRACKS = {1: "B6225000011112222^DEMO/CARD^29120000", 2: "6225000011112222=29120000", 3: "996225000011112222=156"}
MASKED = {1: "B622500******2222^****/****^********", 2: "622500******2222=********", 3: "996225********2222=***"}
SETS = ("1", "2", "3", "12", "23", "123")
COMMANDS = {"1": "1B 72", "2": "1B 5D", "3": "1B 54 5D", "12": "1B 44 5D", "23": "1B 42 5D", "123": "01 30 30 30 32 32 30"}
NO_END = "the reader sent a track 3, but nothing behind it that ends it"


def lines(texts, tracks):
    return "".join("track %s         %s\n" % (track, texts[int(track)]) for track in tracks)


class StripeTest(bench.ToolTest):
    def card(self, tracks=None, form="ISO", folder=None):
        """A card file; its path."""
        handle, path = tempfile.mkstemp(prefix="qvcard-", suffix=".stripe", dir=folder)
        self.addCleanup(os.unlink, path)
        with os.fdopen(handle, "w") as file:
            file.write("# made by a test\nname test\nformat %s\n" % form)
            for track, text in (TRACKS if tracks is None else tracks).items():
                file.write("track%d %s\n" % (track, text))
        return path

    def head(self, *arguments, tracks=None, form="ISO"):
        """A reader in front of which somebody stands with a card."""
        return self.simulator("--stripe", self.card(tracks, form), *arguments)

    def stripe(self, sim, *arguments, code=0, **options):
        run = self.run_tool("stripe", *arguments, port=sim.path, **options)
        self.check_exit(run, code)
        return run

    def check_failed(self, sim, *arguments, code, name, text, result=None):
        run = self.stripe(sim, "--json", *arguments, code=code)
        error = run.json()["error"]
        self.assertEqual(error["name"], name)
        self.assertIn(text, error["text"])
        self.assertIn(error["text"], run.err)
        if result is not None:
            self.assertEqual(error["result"], result)
        return run.json()

    def simulators_bytes(self, sim, direction):
        """Everything that the other end of the line has seen, in one row."""
        rows = (line.split() for line in sim.trace())
        pieces = ([byte for byte in row[3:] if len(byte) == 2] for row in rows if len(row) > 3 and row[2] == direction)
        return " ".join(" ".join(piece) for piece in pieces)


class Read(StripeTest):
    def test_each_set_of_tracks_is_read_by_its_command_and_shown_masked(self):
        sim = self.head()
        for tracks in SETS[:-1]:
            with self.subTest(tracks=tracks):
                before = len(self.simulators_bytes(sim, "in"))
                run = self.stripe(sim, "read", "--tracks", tracks)
                self.assertEqual(run.out, lines(MASKED, tracks))
                self.assertIn(COMMANDS[tracks], self.simulators_bytes(sim, "in")[before:])

    def test_show_shows_them_in_clear(self):
        sim = self.head()
        for tracks in SETS[:-1]:
            with self.subTest(tracks=tracks):
                self.assertEqual(self.stripe(sim, "read", "--show", "--tracks", tracks).out, lines(TRACKS, tracks))

    def test_all_three_are_read_on_a_serial_line_when_nothing_else_is_asked(self):
        sim = self.head(tracks={1: TRACKS[1], 2: TRACKS[2]})
        run = self.stripe(sim, "read")
        self.assertEqual(run.out, lines(MASKED, "12") + "track 3         (empty)\n")
        self.assertIn(COMMANDS["123"], self.simulators_bytes(sim, "in"))
        self.assertNotIn("note", run.err)

    def test_a_third_track_that_the_library_leaves_out_is_noted(self):
        run = self.stripe(self.head(), "--json", "read")
        self.assertEqual([track["length"] for track in run.json()["tracks"]], [len(TRACKS[1]), len(TRACKS[2]), 0])
        self.assertEqual(len(run.json()["warnings"]), 1)
        self.assertIn(NO_END, run.json()["warnings"][0])
        self.assertIn(NO_END, run.err)
        self.assertIn("track 3         (left out, see the note)\n", self.stripe(self.head(), "read").out)

    def test_all_three_are_there_where_the_reader_ends_the_third(self):
        run = self.stripe(self.head("--stripe-final"), "--json", "read", "--show")
        self.assertEqual([track["text"] for track in run.json()["tracks"]], [TRACKS[1], TRACKS[2], TRACKS[3]])
        self.assertNotIn("warnings", run.json())

    def test_json_holds_what_was_read(self):
        sim = self.head()
        told = self.stripe(sim, "--json", "read", "--tracks", "23", "--format", "iso").json()
        self.assertTrue(0 <= told.pop("milliseconds") < 20_000)
        self.assertEqual(told, {
            "command": "stripe", "action": "read", "port": sim.path, "device": sim.path, "baud": 9600, "format": "ISO",
            "tracks": [{"track": 2, "length": 25, "text": MASKED[2]}, {"track": 3, "length": 22, "text": MASKED[3]}],
            "masked": True, "exitCode": 0})

    def test_json_shows_in_clear_what_is_to_be_shown(self):
        told = self.stripe(self.head(), "--json", "read", "--show", "--tracks", "2").json()
        self.assertEqual((told["masked"], told["tracks"][0]["text"]), (False, TRACKS[2]))

    def test_what_is_no_number_of_a_card_is_masked_all_the_same(self):
        rows = (("1", "B12345^A B/C.^1", "B*****^* */*.^*"), ("1", "ABCDEF", "A*****"), ("2", "123456789012", "*" * 12),
                ("2", "1234567890123", "123456***0123"), ("2", "=" + "1" * 20, "=" + "*" * 20),
                ("3", "12:34;56", "**:**;**"))
        for track, text, shown in rows:
            with self.subTest(text=text):
                self.assertEqual(self.stripe(self.head(tracks={int(track): text}), "read", "--tracks", track).out,
                                 "track %s         %s\n" % (track, shown))

    def test_the_recording_format_has_to_fit(self):
        for form in ("ISO", "IBM", "ISO-DK", "IBM-DK"):
            sim = self.head(form=form)
            for asked in ("ISO", "IBM", "ISO-DK", "IBM-DK"):
                with self.subTest(recorded=form, asked=asked):
                    run = self.stripe(sim, "--json", "read", "--tracks", "2", "--format", asked,
                                      code=0 if asked == form else 6)
                    self.assertEqual(run.json()["format"], asked)

    def test_the_head_behind_a_switch_box_is_reached_by_its_channel(self):
        for channel in "ABCK":
            with self.subTest(channel=channel):
                sim = self.head("--stripe-channel", channel)
                told = self.stripe(sim, "--json", "read", "--tracks", "2", "--channel", channel).json()
                self.assertEqual((told["channel"], told["tracks"][0]["text"]), (channel, MASKED[2]))
        self.check_failed(self.head("--stripe-channel", "C"), "read", "--timeout", "1", "--channel", "B", "--tracks", "2",
                          code=5, name="no-answer", text="the head may be at another --channel")

    def test_a_card_that_comes_late_is_waited_for(self):
        sim = self.head("--stripe-after", "1500")
        told = self.stripe(sim, "--json", "read", "--tracks", "2", "--timeout", "60").json()
        self.assertGreaterEqual(told["milliseconds"], 1500)

    def test_the_time_goes_to_the_reader_and_is_30_seconds_where_none_is_given(self):
        sim = self.head()
        for arguments, told in (((), "30 s"), (("--timeout", "7"), "7 s"), (("--timeout", "120"), "120 s")):
            with self.subTest(arguments=arguments):
                run = self.stripe(sim, "--trace", "read", "--tracks", "2", *arguments)
                self.assertIn("[stripe frame, wait %s for a card]" % told, run.err)
                self.assertIn("qvreader: swipe the card (track 2), within %s (Ctrl-C cancels)\n" % told, run.err)

    def test_the_port_may_come_from_the_environment_or_be_a_link(self):
        sim = self.head()
        link = os.path.join(sim.folder, "reader")
        os.symlink(sim.path, link)
        for options in ({"environment": {"QVREADER_PORT": link}}, {"port": link}):
            run = self.run_tool("stripe", "read", "--tracks", "2", **options)
            self.check_exit(run, 0)
            self.assertEqual(run.out, lines(MASKED, "2"))

    @unittest.skipUnless(IS_ROOT, "a link in /dev takes root")
    def test_com_names_are_counted_as_the_stripe_side_counts_them(self):
        number = 300000 + os.getpid()
        link = "/dev/ttyS%d" % number
        sim = self.simulator("--link", link, "--stripe", self.card())
        for name in ("COM%d" % (number + 1), "com%d" % (number + 1)):
            run = self.run_tool("--json", "stripe", "read", "--tracks", "2", port=name)
            self.check_exit(run, 0)
            self.assertEqual((run.json()["port"], run.json()["device"]), (name, sim.path))

    def test_results_may_go_to_a_file(self):
        sim = self.head()
        path = os.path.join(sim.folder, "out.txt")
        self.assertEqual(self.stripe(sim, "--output", path, "read", "--tracks", "2").out, "")
        with open(path) as file:
            self.assertEqual(file.read(), lines(MASKED, "2"))

    def test_the_settings_of_the_line_are_as_before(self):
        sim = self.head()
        slave = os.open(sim.path, os.O_RDWR | os.O_NOCTTY)
        self.addCleanup(os.close, slave)
        settings = termios.tcgetattr(slave)
        settings[4] = settings[5] = termios.B2400
        termios.tcsetattr(slave, termios.TCSANOW, settings)
        before = termios.tcgetattr(slave)
        self.stripe(sim, "read", "--tracks", "2")
        self.assertEqual(termios.tcgetattr(slave), before)


class WhileItWaits(StripeTest):
    def test_a_pipe_gets_one_plain_line(self):
        sim = self.simulator()
        run = self.stripe(sim, "read", "--timeout", "1", "--tracks", "23", code=4)
        self.assertEqual(run.err, "qvreader: swipe the card (tracks 2 and 3), within 1 s (Ctrl-C cancels)\n"
                                  "qvreader: read: no card came in 1 s\n")

    def on_a_terminal(self, sim, *arguments):
        screen, terminal = os.openpty()
        self.addCleanup(os.close, screen)
        process = subprocess.Popen([bench.TOOL, "--port", sim.path, "stripe", *arguments], stderr=terminal, stdout=subprocess.PIPE,
                                   stdin=subprocess.DEVNULL, process_group=0)
        os.close(terminal)
        self.addCleanup(process.stdout.close)
        return process, screen

    def read_until(self, screen, text):
        shown = b""
        while text not in shown:
            shown += os.read(screen, 4096)
        return shown

    def read_to_the_end(self, screen):
        shown = b""
        with contextlib.suppress(OSError):
            while True:
                shown += os.read(screen, 4096)
        return shown

    def test_a_terminal_gets_one_line_that_counts_down(self):
        sim = self.simulator()
        process, screen = self.on_a_terminal(sim, "read", "--timeout", "60", "--tracks", "2")
        shown = self.read_until(screen, b"qvreader: swipe the card (track 2), 59 s left (Ctrl-C cancels) ")
        self.assertIn(b"60 s left", shown)
        self.assertNotIn(b"\n", shown)
        self.assertEqual(shown.count(b"60 s left"), 1, "it is not written anew for nothing")
        sim.command("stripe " + self.card())
        shown += self.read_to_the_end(screen)
        self.assertEqual(process.wait(bench.PATIENCE), 0)
        self.assertTrue(shown.endswith(b"\r\033[K"), "and nothing stays of it")
        self.assertEqual(process.stdout.read().decode(), lines(MASKED, "2"))

    def test_ctrl_c_takes_it_away(self):
        sim = self.simulator()
        process, screen = self.on_a_terminal(sim, "read", "--timeout", "60")
        self.read_until(screen, b" s left")
        process.send_signal(signal.SIGINT)
        shown = self.read_to_the_end(screen)
        self.assertEqual(process.wait(bench.PATIENCE), 130)
        self.assertTrue(shown.endswith(b"\r\033[Kqvreader: cancelling; once more ends at once\r\nqvreader: cancelled\r\n"), shown)

    def test_a_signal_ends_the_wait_and_the_reader_stops_waiting_too(self):
        for tracks in ("2", "123"):
            for number, code in ((signal.SIGINT, 130), (signal.SIGTERM, 143), (signal.SIGHUP, 129)):
                with self.subTest(tracks=tracks, signal=number):
                    sim = self.simulator()
                    slave = os.open(sim.path, os.O_RDWR | os.O_NOCTTY)
                    self.addCleanup(os.close, slave)
                    before = termios.tcgetattr(slave)
                    tool = self.start("--json", "stripe", "read", "--tracks", tracks, "--timeout", "60", port=sim.path)
                    tool.wait_for("swipe the card")
                    tool.signal(number)
                    run = tool.finish()
                    self.check_exit(run, code)
                    self.assertEqual((run.json()["error"]["name"], run.json()["exitCode"]), ("cancelled", code))
                    self.assertEqual(termios.tcgetattr(slave), before)
                    self.assertTrue(tool.group_is_gone())
                    sim.command("stripe " + self.card())
                    self.assertEqual(self.stripe(sim, "read", "--tracks", "2").out, lines(MASKED, "2"))


class Explained(bench.ToolTest):
    def meanings(self, code):
        run = self.run_tool("--json", "explain", code)
        self.check_exit(run, 0)
        return {m["set"].split("(")[0].strip(): m for m in run.json()["codes"][0]["meanings"] if "magnetic stripe" in m["set"]}

    def test_a_code_is_told_in_each_of_the_three_sets(self):
        engine, ty, standard = ("magnetic stripe, %s codes" % name for name in ("engine", "TY", "standard"))
        self.assertEqual(set(self.meanings("-6")), {engine, ty, standard})
        self.assertEqual(self.meanings("-50")[engine]["meaning"], "the reader could not be opened")
        self.assertEqual(self.meanings("-1")[ty]["meaning"], "the reader could not be opened")
        self.assertIn("engine code -4", self.meanings("-6")[standard]["meaning"])
        self.assertIn("anything else", self.meanings("-99")[standard]["meaning"])

    def test_status_words_of_the_head_are_told(self):
        for code, meaning in (("4001", "no data on the card; of a write: it failed"), ("0x4002", "the card could not be read")):
            run = self.run_tool("explain", code)
            self.check_exit(run, 0)
            self.assertIn("SW %s  %s  [status word of the stripe head]" % (code[-4:], meaning), run.out)

    def test_a_ty_code_comes_with_its_message(self):
        rows = (("0", "操作成功"), ("-1", "打开设备失败"), ("-2", "发送指令失败----与设备通讯失败"), ("-7", "用户取消"),
                ("-8", "超时"), ("-9", "参数异常"), ("-10", "未知错误"), ("-100", "其他错误"))
        for code, message in rows:
            with self.subTest(code=code):
                self.assertEqual(self.meanings(code)["magnetic stripe, TY codes"]["message"], message)
        self.assertIn("without a message of its own", self.meanings("-10")["magnetic stripe, TY codes"]["meaning"])
        self.assertIn("(\"超时\")", self.run_tool("explain", "-8").out)


if __name__ == "__main__":
    bench.main()
