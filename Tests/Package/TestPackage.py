"""Packs this build, unpacks the packages into an empty root, and uses them from there."""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

HEADERS = "usr/include/Vexa/"
PROGRAMS = ("Kelmor", "KelmorInfo", "kelmor-run")

sources, build, work = map(pathlib.Path, sys.argv[1:4])
libdir, build_type, compiler, flags, generator = sys.argv[4:]
root = work / "root"
hasMpi = (build / "Utils/Parallel").exists()
hasShared = (build / "libvexa.so").exists()
hasFortran = (build / "Bindings/Fortran").exists()
hasPython = (build / "Bindings/Python").exists()
hasParallelHDF5 = re.search("HDF5_PREFER_PARALLEL:[^=]*=ON", (build / "CMakeCache.txt").read_text())


def run(*command, **options):
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                            **options)
    if result.returncode != 0:
        raise AssertionError(f"{command} ended with {result.returncode}:\n{result.stdout}")
    return result.stdout


def field(package, name):
    return run("dpkg-deb", "-f", package, name).strip()


class TestPackage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        shutil.rmtree(work, ignore_errors=True)
        (root / "usr").mkdir(parents=True)
        (root / "lib").symlink_to("usr/lib")    # as on any Debian of today
        run("cpack", "--config", build / "CPackConfig.cmake", "-B", work / "packages",
            env=dict(os.environ, SOURCE_DATE_EPOCH="1700000000"))
        cls.packages = {path.name.partition("_")[0]: path for path in (work / "packages").glob("*.deb")}
        for package in cls.packages.values():
            run("dpkg-deb", "-x", package, root)

    def test_holds_programs_here_and_headers_there(self):
        self.assertEqual(sorted(self.packages),
                         ["kelmor", "libvexa-dev", *["libvexa-fortran-dev"] * hasFortran,
                          *["libvexa-mpi-dev"] * hasMpi, *["libvexa0"] * hasShared,
                          *["python3-vexa"] * hasPython])
        for name, package in self.packages.items():
            headers = set()
            for line in run("dpkg-deb", "-c", package).splitlines():
                isProgram = line.endswith("/") or re.search("/bin/|/lib/kelmor/|/try-kelmor$", line)
                mode = "rwxrwxrwx" if " -> " in line else "rwxr-xr-x" if isProgram else "rw-r--r--"
                self.assertRegex(line, f"^.{mode} root/root ")
                self.assertNotIn("Test", line)
                headers.update(re.findall(r"\./(\S*\.hpp)$", line))
            self.assertEqual({"/Parallel/" in header for header in headers},
                             {"libvexa-dev": {False}, "libvexa-mpi-dev": {True}}.get(name, set()))
            for header in headers:    # whatever it includes of ours must be there
                text = (root / header).read_text()
                for included in re.findall(r'^ *# *include +"(.*)"', text, re.MULTILINE):
                    self.assertIn(HEADERS + included, headers, header)
        for page in [sources / "README.md", sources / "CHANGELOG.md", *(sources / "docs").iterdir()]:
            self.assertTrue((root / "usr/share/doc/kelmor" / page.relative_to(sources)).exists(), page)
        self.assertEqual({path.name for path in (root / "usr/bin").iterdir()}, set(PROGRAMS))

    def test_does_not_tell_where_it_was_built(self):
        for path in filter(pathlib.Path.is_file, root.rglob("*")):
            for place in (sources, build):
                self.assertFalse(f"{place}/".encode() in path.read_bytes(), path)

    def test_names_what_it_needs_by_no_path(self):
        """Libraries of others may lie elsewhere on the next machine."""
        files = [path for path in (root / "usr" / libdir).rglob("*") if path.suffix in (".cmake", ".pc")]
        self.assertGreater(len(files), 4)
        for path in files:
            self.assertNotRegex(path.read_text(), r'(?m)^(?!#)(.*["; =])?(-[IL])?/\w', path)

    def test_archive_holds_what_is_installed(self):
        run("cpack", "-G", "TGZ", "--config", build / "CPackConfig.cmake", "-B", work / "archive")
        run("cmake", "--install", build, "--prefix", work / "installed")
        archived = run("tar", "-tzf", *(work / "archive").glob("*.tar.gz")).splitlines()
        installed = (path for path in (work / "installed").rglob("*") if not path.is_dir())
        self.assertEqual(sorted(name.partition("/")[2] for name in archived if not name.endswith("/")),
                         sorted(str(path.relative_to(work / "installed")) for path in installed))

    def test_says_one_version(self):
        asked = "VEXA_VERSION\nVEXA_VERSION_NUMBER\n"
        header = root / HEADERS / "Utils/Process/Version.hpp"
        text, number = map(eval, run(compiler, "-E", "-P", "-include", header, "-x", "c++", "-",
                                     input=asked).strip().splitlines())
        major, minor, patch = map(int, text.split("."))
        self.assertEqual(number, major * 10000 + minor * 100 + patch)
        for package in self.packages.values():
            self.assertEqual(field(package, "Version"), text)
        library = root / "usr" / libdir
        self.assertIn(f'set(PACKAGE_VERSION "{text}")',
                      (library / "cmake/Vexa/VexaConfigVersion.cmake").read_text())
        self.assertIn(f"\nVersion: {text}\n", (library / "pkgconfig/vexa.pc").read_text())

    def test_examples_run(self):
        """The samples' program in kelmor is the one that the example of libvexa-dev builds."""
        documents, folder = root / "usr/share/doc", work / "example"
        run("cmake", "-S", documents / "libvexa-dev/examples", "-B", folder, "-G", generator,
            f"-DCMAKE_PREFIX_PATH={root}", f"-DCMAKE_CXX_COMPILER={compiler}", f"-DCMAKE_CXX_FLAGS={flags}")
        run("cmake", "--build", folder)
        (folder / "data").mkdir()
        run(folder / "WriteSegments", folder / "data")
        environment = dict(os.environ, PATH=f"{root}/usr/bin:{os.environ['PATH']}")
        output = run(documents / "kelmor/examples/try-kelmor", "samples", cwd=work, env=environment)
        self.assertIn("joined.h5 is the join of 3 files", output)
        for made in (folder / "data").glob("*.h5"):
            run("h5diff", made, work / "samples" / made.name)
        if shutil.which("doxygen"):
            self.assertIn("GetObjectForWrite", (documents / "libvexa-dev/html/classCachedH5File.html").read_text())

    def options_of(self, program):
        """The options in the help text of a program; kelmor-run points to those of Kelmor."""
        if program == "kelmor-run":
            return self.options_of("Kelmor") - {"-o"} | {"--accept", "--inputs", "-version"}
        lines = re.findall(r"(?m)^  (-[A-Za-z][^#\n]*)", run(root / "usr/bin" / program, "-h"))
        return {"-help", *re.findall(r"(?<!\S)-[A-Za-z]+", "\n".join(lines))}

    def test_completes_options_and_inputs(self):
        (work / "inputs").mkdir()
        for name in ("a1.h5", "a2.hdf5", "a3.txt", "b.h5"):
            (work / "inputs" / name).touch()
        script = """source "$1"
                    function=$(complete -p "$2" | sed 's/.*-F \\([^ ]*\\).*/\\1/')
                    COMP_WORDS=("$2" "${@:3}") COMP_CWORD=$(($# - 2))
                    $function
                    printf '%s\n' "${COMPREPLY[@]}" """
        for program in PROGRAMS:
            file = root / "usr/share/bash-completion/completions" / program
            options = sorted(self.options_of(program))
            self.assertGreater(len(options), 7, program)
            for words, expected in ((["-"], options), (["-v", "a"], ["a1.h5", "a2.hdf5"]), (["-skip", "a"], [])):
                completed = run("bash", "-c", script, "bash", file, program, *words, cwd=work / "inputs")
                self.assertEqual(sorted(completed.split()), expected, program)
            zsh = (root / f"usr/share/zsh/vendor-completions/_{program}").read_text()
            page = run("gzip", "-dc", root / f"usr/share/man/man1/{program}.1.gz")
            for option in options:
                self.assertRegex(zsh, rf"['){{,]{option}[[,}}]", program)
                self.assertRegex(page.replace("\\-", "-"), rf"(?m)^\.[BT].*{option}\b", program)

    def test_depends_on_what_it_needs(self):
        self.assertRegex(field(self.packages["kelmor"], "Depends"), r"libhdf5.*python3|python3.*libhdf5")
        depends = field(self.packages["libvexa-dev"], "Depends").split(", ")
        self.assertNotIn("mpi", " ".join(name for name in depends if not name.startswith("libhdf5")))
        if hasMpi:
            version = field(self.packages["libvexa-dev"], "Version")
            self.assertRegex(field(self.packages["libvexa-mpi-dev"], "Depends"),
                             rf"^libvexa-dev \(= {version}\), lib\w*mpi\w*-dev$")
        run("dpkg-query", "-W", *(name for name in depends if not name.startswith("libvexa")))

    @unittest.skipUnless(hasShared, "no shared library")
    def test_exports_what_installed_headers_declare(self):
        symbols = run("nm", "-DC", "--defined-only", root / "usr" / libdir / "libvexa.so.0")
        for name in ("typeinfo for CodeError", "H5_Objects::Dat::Append(", "vtable for H5_Objects::Dat",
                     "Factory::ShouldInhibitFactoryRegistration("):
            self.assertIn(name, symbols)
        self.assertNotRegex(symbols, "BlockWriter|GlobalHeap|CommittingDriver")    # of no installed header
        for header in (root / HEADERS).rglob("*.hpp"):
            if re.search(r"(?m)^\w.*[;{]$", text := header.read_text()) and header.parent.name != "Parallel":
                self.assertIn("#pragma GCC visibility push(default)", text, header)

    def use(self, folder, *consumers):
        """Consumers write a file, the installed programs join it, the consumers read that."""
        programs = root / "usr/bin"
        environment = dict(os.environ, KELMOR="", KELMORINFO="")
        for consumer in consumers:
            for name in ("table.h5", "joined.h5", "run.h5", "run.h5.json"):
                (folder / name).unlink(missing_ok=True)
            run(folder / consumer, folder / "table.h5")
            run(programs / "Kelmor", "-o", "joined.h5", "table.h5", cwd=folder)
            run(folder / consumer, folder / "joined.h5")
            run(programs / "kelmor-run", "run.h5", "table.h5", cwd=folder, env=environment)
            self.assertEqual((folder / "run.h5").read_bytes(), (folder / "joined.h5").read_bytes())

    def test_serves_cmake(self):
        for withoutMpi in ("OFF",) if hasParallelHDF5 else ("ON", "OFF"):
            folder = work / f"cmake-{withoutMpi}"
            run("cmake", "-S", sources / "Tests/Package/Consumer", "-B", folder, "-G", generator,
                f"-DCMAKE_PREFIX_PATH={root}", f"-DCMAKE_DISABLE_FIND_PACKAGE_MPI={withoutMpi}",
                f"-DCMAKE_BUILD_TYPE={build_type}", f"-DCMAKE_CXX_COMPILER={compiler}", f"-DCMAKE_CXX_FLAGS={flags}")
            # Through the link, where the prefix is harder to find.
            self.assertIn(f"Vexa_DIR:PATH={root}/{libdir}/cmake/Vexa", (folder / "CMakeCache.txt").read_text())
            run("cmake", "--build", folder)
            self.use(folder, "Consumer", "OldConsumer", *["SharedConsumer"] * hasShared)
        self.assertEqual((work / "cmake-OFF/ParallelConsumer").exists(), hasMpi)

    @unittest.skipUnless(hasPython, "the package for Python is not built")
    def test_serves_python(self):
        folder = work / "python"
        folder.mkdir()
        environment = dict(os.environ, PYTHONPATH=str(root / "usr/lib/python3/dist-packages"), PYTHONDONTWRITEBYTECODE="1")
        if subprocess.run(["/usr/bin/python3", "-c", "import h5py, numpy"], check=False).returncode != 0:
            self.skipTest("/usr/bin/python3 has no h5py, which the package depends on")
        run("/usr/bin/python3", root / "usr/share/doc/libvexa-dev/examples/write_segments.py", folder, env=environment)
        self.assertEqual(len(list(folder.glob("*.h5"))), 3)
        found = run("/usr/bin/python3", "-c", "from importlib.metadata import entry_points as points, version; "
                    "print(version('vexa'), *(point.value for point in points(group='xarray.backends')))", env=environment)
        self.assertEqual(found.split()[0], field(self.packages["python3-vexa"], "Version"))
        self.assertIn("vexa.xarray_backend:VexaBackendEntrypoint", found)
        symbols = run("nm", "-D", "--defined-only", root / "usr/lib/python3/dist-packages/vexa/libvexa_c.so")
        self.assertEqual({line.split()[2].partition("_")[0] for line in symbols.splitlines()}, {"vexa"})

    def test_serves_pkg_config(self):
        folder = work / "pkg-config"
        folder.mkdir()
        for module in ("vexa", *["vexa-static"] * hasShared):
            libraries = run("pkg-config", "--cflags", "--libs", module, env=dict(
                os.environ, PKG_CONFIG_PATH=f"{root}/usr/{libdir}/pkgconfig")).split()
            for consumer, names in (("Consumer", []), ("OldConsumer", ["-DOLD_NAMES"])):
                run(compiler, "-std=c++20", *flags.split(), *names, f"-Wl,-rpath,{root}/usr/{libdir}",
                    sources / "Tests/Package/Consumer/Consumer.cpp", *libraries, "-o", folder / consumer)
            self.use(folder, "Consumer", "OldConsumer")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
