"""Codes in words."""
import bench


class Explain(bench.ToolTest):
    def explained(self, *codes):
        run = self.run_tool("--json", "explain", *codes)
        self.check_exit(run, 0)
        return [[(m["reading"], m["meaning"]) for m in code["meanings"]] for code in run.json()["codes"]]

    def test_each_kind_of_code_is_told(self):
        rows = (
            ("-56", "-56", "no complete reply in time"),
            ("-51", "-51", "the port could not be opened or set up, or the line not be raised"),
            ("-100", "-100", "null argument, or a negative port number or time-out"),
            ("-99", "-99", "the contactless side failed in another way"),
            ("6A82", "SW 6A82", "file or application not found"),
            ("6a8a", "SW 6A8A", "application name exists already"),
            ("0x6A82", "SW 6A82", "file or application not found"),
            ("27266", "SW 6A82", "file or application not found"),
            ("-4101", "-4101, minus 1005", "no card"),
            ("0x1005", "SW 1005", "no card"),
            ("0xFFFFFFC8", "-56", "no complete reply in time"),
            ("AAAA", "SW AAAA", "the last exchange failed"),
            ("56", "-56", "no complete reply in time"),
            ("9000", "SW 9000", "success"),
        )
        for code, reading, meaning in rows:
            with self.subTest(code=code):
                self.assertIn((reading, meaning), self.explained(code)[0])

    def test_every_meaning_of_a_number_is_told(self):
        self.assertEqual(len(self.explained("2")[0]), 3)
        self.assertEqual(len(self.explained("-4")[0]), 4)

    def test_several_codes_at_once_and_an_unknown_one(self):
        run = self.run_tool("explain", "6D00", "1234")
        self.check_exit(run, 0)
        self.assertIn("instruction not known to the card", run.out)
        self.assertIn("1234: nothing is known", run.out)

    def test_what_is_no_code_is_refused(self):
        for code in ("hello", "", "--5", "0x", "99999999999"):
            with self.subTest(code=code):
                self.check_exit(self.run_tool("explain", "--", code), 2)


if __name__ == "__main__":
    bench.main()
