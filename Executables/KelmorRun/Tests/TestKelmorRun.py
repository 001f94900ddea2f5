# Tests kelmor-run as a program, with the real Kelmor and KelmorInfo, or with scripts in their place
# that fail as those hardly ever do.
#
#     TestKelmorRun.py KELMOR_RUN KELMOR KELMORINFO WRITE_SEGMENTS

import hashlib
import json
import os
import pathlib
import pty
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

KELMOR_RUN, KELMOR, KELMORINFO, WRITE_SEGMENTS = sys.argv[1:]


def files_in(folder):
    return {path.name for path in folder.iterdir()}


def record_of(path):
    content = path.read_bytes()
    return {"name": str(path), "bytes": len(content), "sha256": hashlib.sha256(content).hexdigest()}


class TestKelmorRun(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.scripts, self.temporary, self.data = (
            pathlib.Path(holder.name, name) for name in ("scripts", "tmp", "data"))
        for folder in (self.scripts, self.temporary, self.data):
            folder.mkdir()
        subprocess.run([WRITE_SEGMENTS, self.data], check=True, stdout=subprocess.DEVNULL)
        self.segments = sorted(files_in(self.data))
        self.environment = dict(os.environ, KELMOR=KELMOR, KELMORINFO=KELMORINFO,
                                TMPDIR=str(self.temporary), VEXA_NO_BACKTRACE="1")

    def script(self, name, text):
        path = self.scripts / name
        path.write_text("#!/bin/sh\n" + text)
        path.chmod(0o755)
        return str(path)

    # A stand-in for KelmorInfo -check.
    def info(self, text):
        return self.script("KelmorInfo", f'[ "$1" = -json ] && exec {KELMORINFO} "$@"\n' + text)

    def run_it(self, *arguments, stdin=None, stderr=subprocess.PIPE, **environment):
        return subprocess.run([KELMOR_RUN, *arguments], cwd=self.data, text=True, stdin=stdin,
                              stdout=subprocess.PIPE, stderr=stderr, timeout=60,
                              errors="surrogateescape", env=dict(self.environment, **environment))

    # Status 1, a message that says why, and no file but those that were there before.
    def assert_fails(self, arguments, message, left=(), **environment):
        before = files_in(self.data)
        result = self.run_it(*arguments, **environment)
        self.assertEqual((result.returncode, result.stdout), (1, ""), result.stderr)
        self.assertIn(message, result.stderr)
        self.assertEqual(files_in(self.data), before | set(left))
        self.assertEqual(files_in(self.temporary), set())
        return result.stderr

    def test_joins_checks_and_tells_what_it_did(self):
        options, output = ["-v", "-skip", "*.tdm", "-DeltaT", "0.5", "-NoGzip"], "-joined \udcfe.h5"
        names = ["-o", "two words.h5", "\udcff \n'.h5"]  # any name will do
        for name, segment in zip(names, self.segments):
            shutil.copy(self.data / segment, self.data / name)
        result = self.run_it(*options, "--", output, *names)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertIn("/Run.dir/energy.dat keeping 44 steps out of 192", result.stdout)
        self.assertEqual(files_in(self.data), {*self.segments, *names, output, output + ".json"})
        subprocess.run([KELMOR, *options[1:], "-o", "plain.h5", *self.segments], cwd=self.data, check=True)
        self.assertEqual((self.data / output).read_bytes(), (self.data / "plain.h5").read_bytes())
        told = json.loads((self.data / (output + ".json")).read_text())
        self.assertEqual(told["options"], options[1:])
        self.assertEqual([*told["files"], told["output"]],
                         [record_of(self.data / name) for name in [*names, output]])
        self.assertEqual([program["name"] for program in told["programs"]], [KELMOR, KELMORINFO])
        datasets = {dataset["name"]: dataset for dataset in told["datasets"]}
        energy = datasets["/Run.dir/energy.dat"]
        self.assertEqual((energy["kept"], energy["steps"], energy["kind"]), (44, 192, "dat"))
        self.assertEqual(datasets["/VersionHist.ver"]["version"], 2)
        self.assertEqual(datasets["/Run.dir/log.txt"]["characters"], 59)

    def test_replaces_nothing(self):
        (self.data / "file.h5").write_text("precious")
        (self.data / "link.h5").symlink_to("nowhere")
        (self.data / "stale.h5.json").write_text("precious")
        for output, name in (("file.h5", "file.h5"), ("link.h5", "link.h5"),
                             ("stale.h5", "stale.h5.json")):
            self.assert_fails([output, *self.segments], f"{self.data}/{name} exists already")
        # A file that appears while the join runs.
        late = self.info('echo precious >"$OUTPUT"\n')
        for name in ("late.h5", "other.h5.json"):
            self.assert_fails([name.replace(".json", ""), *self.segments],
                              f"{name} has come to exist", left=[name],
                              KELMORINFO=late, OUTPUT=str(self.data / name))
            self.assertEqual((self.data / name).read_text(), "precious\n")

    def test_hands_on_what_went_wrong(self):
        (self.data / "broken.h5").write_text("no HDF5")
        report = self.assert_fails(["run.h5", "segment1.h5", "broken.h5"],
                                   f"Kelmor ended with status 255: no {self.data}/run.h5")
        self.assertIn("file_id>=0  violated", report)
        self.assert_fails(["run.h5", *self.segments], "Kelmor was ended by signal 9 (SIGKILL)",
                          KELMOR=self.script("killed", 'kill -KILL $$\n'))
        self.assert_fails(["-skip", "*", "run.h5", "segment1.h5"], "no datasets",
                          KELMOR=self.script("nothing", ""))

    def test_checks_the_result(self):
        # Joins, but with other steps than it was asked for.
        report = self.assert_fails(["run.h5", *self.segments], "KelmorInfo -check finds it wrong",
                                   KELMOR=self.script("Kelmor", f'exec {KELMOR} -DeltaT 1 "$@"\n'))
        self.assertIn("/BodyA.dir", report)    # the difference itself
        self.assert_fails(["run.h5", *self.segments], "KelmorInfo -check ended with status 255",
                          KELMORINFO=self.info("exit 255\n"))
        linked = self.scripts / "linked.h5"
        linked.write_text("linked")
        for changed in (self.data / "segment2.h5", linked):
            changing = self.script("KelmorInfo", f"""
[ "$1" != -json ] || exec echo '{{"external_files": [{{"name": "{linked}"}}], "warnings": []}}'
{KELMORINFO} "$@" && ${{TOUCH-:}} {changed}\n""")
            self.assert_fails(["run.h5", *self.segments], f"{changed} was changed while it was joined",
                              KELMORINFO=changing, TOUCH="touch")
        self.assertEqual(self.run_it("run.h5", *self.segments, KELMORINFO=changing).returncode, 0)
        self.assertEqual(json.loads((self.data / "run.h5.json").read_text())["external_files"],
                         [record_of(linked)])

    def test_refuses_what_would_be_lost_in_silence_unless_that_is_accepted(self):
        swapped = ["segment1.h5", "segment3.h5", "segment2.h5"]
        report = self.assert_fails(["run.h5", *swapped], "'--accept time,order' goes on all the same",
                                   KELMOR=self.script("Kelmor", "echo joined >&2; exit 1\n"))
        self.assertIn("kelmor-run: time: /BodyA.dir/position.dat and ", report)
        self.assertNotIn("joined\n", report)
        self.assert_fails(["--accept", "time", "run.h5", *swapped], "--accept time,order")
        result = self.run_it("--accept", "order,time", "run.h5", *swapped)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        told = json.loads((self.data / "run.h5.json").read_text())
        self.assertEqual((told["accepted"], told["options"]), (["order", "time"], []))
        self.assertEqual({"time", "order", "wiped"},
                         {warning["kind"] for warning in told["warnings"]})

    def test_takes_more_names_than_a_command_line(self):
        folder = self.data.joinpath(*["x" * 250] * 13)
        folder.mkdir(parents=True)
        names = [str(folder / f"{number} {'y' * 200}.h5") for number in range(620)]
        for name in names[1:]:
            os.link(self.data / "segment1.h5", name)
        os.link(self.data / "segment3.h5", names[0])
        self.assertGreater(sum(map(len, names)), 1 << 21)
        (self.data / "names").write_text("\n".join(names))
        arguments = ["-skip", "*.tdm|*.coef|*.txt|/Body*", "--inputs", "names", "run.h5"]
        report = self.assert_fails(arguments, f"(the joined series has t = 0 ... 7.875) in {names[0]}\n")
        self.assertNotIn("@", report)
        result = self.run_it("--accept", "time,order", *arguments)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        told = json.loads((self.data / "run.h5.json").read_text())
        self.assertEqual([one["name"] for one in told["files"]], names)
        order = [warning["files"] for warning in told["warnings"] if warning["kind"] == "order"]
        self.assertEqual(order[0][-1], {"name": names[0]})
        with (self.scripts / "list").open("w+b") as listed:
            listed.write(b"\0".join(os.fsencode(self.data / name) for name in self.segments) + b"\0")
            listed.seek(0)
            self.assertEqual(self.run_it("--inputs", "-", "three.h5", stdin=listed).returncode, 0)
        self.assertEqual(len(json.loads((self.data / "three.h5.json").read_text())["files"]), 3)

    def test_shows_progress_on_a_terminal(self):
        slow = self.script("Kelmor", "echo '/x.dat keeping 1 steps out of 2, maximum time-gap is 0'\n"
                                     f'sleep 1\nexec {KELMOR} "$@"\n')
        terminal, end = pty.openpty()
        with open(terminal, "rb", buffering=0) as shown, open(end) as stderr:
            result = self.run_it("run.h5", *self.segments, stderr=stderr, KELMOR=slow, TERM="xterm")
            self.assertEqual(result.returncode, 0)
            text = shown.read(100000)
        self.assertIn(b"\rjoining, 0 s, 1 of 9 datasets\x1b[K", text)
        self.assertTrue(text.endswith(b"\r\x1b[K"), text)

    def test_status_and_names_agree(self):
        (self.data / "precious").write_text("precious")
        (self.scripts / "sitecustomize.py").write_text(  # which Python runs before kelmor-run
            "import os\nos.fsync = lambda file, fsync=os.fsync: "
            "os.write(file, b'x') if os.path.isdir(file) else fsync(file)")
        self.assert_fails(["run.h5", *self.segments], "Bad file", PYTHONPATH=str(self.scripts))

    def test_refuses_a_wrong_command_line_and_missing_programs(self):
        for arguments, message in (
                (["-o", "run.h5", "segment1.h5"], "without -o"),
                (["-DeltaT"], "no value for option -DeltaT"),
                (["-DeltaT", "x", "run.h5", "segment1.h5"], "was given the value 'x'."),
                (["-deltaT", "1", "run.h5", "segment1.h5"], "there is no option -deltaT"),
                (["--accept", "time,gap", "run.h5", "segment1.h5"], "legend, not 'gap'"),
                (["run.h5", "segment1.h5", "-NoWipe"], "option -NoWipe stands after a file"),
                (["run.h5", "segment1.h5", "segment9.h5"], "there is no input"),
                (["run.h5", "segment1.h5", "./segment1.h5"], "segment1.h5 is given twice"),
                (["--inputs", "none", "run.h5", "segment1.h5"], "instead of inputs on the command line"),
                (["--inputs", "none", "run.h5"], "--inputs none cannot be read: No such file"),
                (["--inputs", os.devnull, "run.h5"], "names no file"),
                (["nowhere/run.h5", "segment1.h5"], "there is no folder")):
            self.assertEqual(self.assert_fails(arguments, message).count("\n"), 1)
        for option in ("--version", "-version"):
            self.assertRegex(self.run_it("-DeltaT", option).stdout, r"^kelmor-run [\d.]+\n$")
        self.assertIn("usage: kelmor-run", self.run_it("run.h5", "--help").stdout)
        self.assert_fails(["run.h5", *self.segments], "KELMORINFO=/nowhere is no program",
                          KELMORINFO="/nowhere")

    def wait_for(self, condition):
        deadline = time.monotonic() + 30
        while not condition():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.01)

    # kelmor-run with a Kelmor that prints the number of its process to the file `pid`.
    def start(self, kelmor):
        process = subprocess.Popen([KELMOR_RUN, "run.h5", *self.segments], cwd=self.data,
                                   env=dict(self.environment, KELMOR=self.script("Kelmor", kelmor)),
                                   stderr=subprocess.PIPE, text=True)
        pid = self.scripts / "pid"
        self.wait_for(lambda: pid.exists() and pid.read_text())
        return process, int(pid.read_text())

    def test_takes_its_program_along_when_it_is_ended(self):
        hanging = (f'while [ "$1" != -o ]; do shift; done\necho begun >"$2"\n'
                   f'echo $$ >{self.scripts}/pid\nexec sleep 60\n')
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGKILL):
            process, child = self.start(hanging)
            process.send_signal(number)
            report = process.communicate(timeout=30)[1]
            self.assertEqual(process.returncode, -number)
            (self.scripts / "pid").unlink()
            status = pathlib.Path(f"/proc/{child}/stat")
            self.wait_for(lambda: not status.exists() or ") Z " in status.read_text())
            if number != signal.SIGKILL:
                self.assertIn(f"ended by signal {number.name}", report)
                self.assertEqual(files_in(self.data), set(self.segments))
                self.assertEqual(files_in(self.temporary), set())

    def test_passes_on_a_request_to_flush(self):
        process, _ = self.start(f"""exec {sys.executable} -c '
import os, signal, sys
signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGUSR2])
print(os.getpid(), file=open("{self.scripts}/pid", "w"))
signal.sigwait([signal.SIGUSR2])
os.execv("{KELMOR}", ["Kelmor", *sys.argv[1:]])
' "$@"\n""")
        process.send_signal(signal.SIGUSR2)
        self.assertEqual(process.communicate(timeout=30), (None, ""))
        self.assertEqual(process.returncode, 0)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
