"""Switching the library's log and looking at it, with a library of the test's own."""
import os
import shutil
import tempfile

import bench


class Log(bench.ToolTest):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="qvtool-")
        self.addCleanup(shutil.rmtree, self.folder)
        os.chmod(self.folder, 0o755)
        self.program = os.path.join(self.folder, "qvreader")
        shutil.copy(bench.TOOL, self.program)
        shutil.copy(os.environ["QV_LIBRARY"], os.path.join(self.folder, "libqvreader.so.1"))
        self.ini = os.path.join(self.folder, "QVConfig.ini")

    def log(self, *arguments, code=0, **options):
        run = self.run_tool("--json", "log", *arguments, program=self.program,
                            environment={"LD_LIBRARY_PATH": self.folder}, **options)
        self.check_exit(run, code)
        return run.json()

    def content(self):
        with open(self.ini) as file:
            return file.read()

    def test_on_and_off(self):
        self.assertEqual((self.log("show")["on"], self.log("show")["ini"]), (False, self.ini))
        told = self.log("on")
        self.assertTrue(told["on"])
        self.assertIn("card numbers", told["warning"])
        self.assertEqual(self.content(), "[QuorvanLog]\nLogFlag=1\n")
        self.assertTrue(self.log("show")["on"])
        self.assertFalse(self.log("off")["on"])
        self.assertEqual(self.content(), "[QuorvanLog]\nLogFlag=0\n")

    def test_switching_off_what_is_off_writes_nothing(self):
        self.log("off")
        self.assertFalse(os.path.exists(self.ini))

    def test_other_lines_stay(self):
        with open(self.ini, "w") as file:
            file.write("# own\n[Other]\nx=1\n[QuorvanLog]\n#LogFlag=0\nLogFlag=0\ny=2")
        self.assertTrue(self.log("on")["on"])
        self.assertEqual(self.content(), "# own\n[Other]\nx=1\n[QuorvanLog]\n#LogFlag=0\nLogFlag=1\ny=2\n")

    def test_a_folder_that_is_not_ours_is_refused(self):
        told = self.log("on", code=7, unprivileged=os.geteuid() == 0)
        self.assertIn("cannot be written", told["error"]["text"])
        self.assertFalse(os.path.exists(self.ini))

    def test_tail_shows_the_last_lines_of_the_newest_file(self):
        self.assertIn("no log file", self.log("tail", code=7)["error"]["text"])
        os.mkdir(os.path.join(self.folder, "log"))
        path = os.path.join(self.folder, "log", "QV_20240315.log")
        with open(path, "w", newline="") as file:
            file.write("".join("line %d\r\n" % n for n in range(30)))
        told = self.log("tail", "-n", "2")
        self.assertEqual((told["logFile"], told["lines"]), (path, ["line 28", "line 29"]))


if __name__ == "__main__":
    bench.main()
