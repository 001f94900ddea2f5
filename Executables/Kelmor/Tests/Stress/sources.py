"""The files in the source packages of HDF5, h5py and netCDF, and what is in them under names that
are joined.
"""

import contextlib
import itertools
import os
import pathlib
import platform
import shutil
import subprocess

import h5py
from check import in_text
from judge import MB, Died, in_child
from segments import write_plain

CACHE = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache",
                     "kelmor-stress")
# The lists and settings of the system stay as they are.
SETTINGS = """Dir::Etc {{ SourceList "{0}/list"; SourceParts "/dev/null"; }};
Dir::State::Lists "{0}/lists"; Dir::Cache "{0}"; APT::Sandbox::User "root";"""
MEMBERS = {"coef": ("/index.dat", "/coefs.dat"), "tdm": ("/index.dat", "/data.dat")}
FORMS = [(kind, is_copy) for kind in ("dat", "txt", "ver", "coef", "tdm")
         for is_copy in (False, True) if not (is_copy and kind in MEMBERS)]


def source_cases(share):
    """All files or none: a sample would download as much."""
    if share < 1:
        return []
    if not CACHE.exists():
        (CACHE / "lists/partial").mkdir(parents=True)
        (CACHE / "settings").write_text(SETTINGS.format(CACHE))
        (CACHE / "list").write_text("deb-src http://deb.debian.org/debian %s main\n" %
                                    platform.freedesktop_os_release()["VERSION_CODENAME"])
        for words in "update", "source hdf5", "source h5py", "source netcdf":
            # One that fails says so, and there are others.
            subprocess.run(["apt-get", "-qq", *words.split()], cwd=CACHE, stdout=subprocess.DEVNULL,
                           env=os.environ | {"APT_CONFIG": str(CACHE / "settings")})
    files = [path for folder in (CACHE, pathlib.Path(h5py.__file__).parent)
             for path in sorted(folder.rglob("*")) if path.is_file() and not path.is_symlink()]
    # Two have a gigabyte of values, as they say.
    return [(str(path),) for path in files
            if "h5diff_hyper" not in path.name and b"\x89HDF\r\n" in path.read_bytes()]


def names_in(path):
    names = []
    with h5py.File(path, "r") as file, contextlib.suppress(Exception):
        file.id.links.visit(names.append)
    return [in_text(name) for name in names[:12]]


def write_form(folder, name, form):
    kind, is_copy = form
    with h5py.File(folder / "in.h5", "w") as file:
        for member in MEMBERS.get(kind, ("",)):
            file["x." + kind + member] = h5py.ExternalLink("source.h5", name)
        if is_copy:
            file.copy(file.pop("x." + kind), "x." + kind)
        if kind == "tdm" or is_copy:
            file["x." + kind].attrs["TensorSpec"] = ["TensorDim=3; TensorSymm=; DataMeshDim=0;"]
            file["x." + kind].attrs["Version"] = [1]


def run_source(judge, path):
    judge.memory, judge.library_may_crash = 512 * MB, True
    for name in "source.h5", "again.h5":
        shutil.copyfile(path, judge.folder / name)
    write_plain(judge.folder / "first.h5")
    write_plain(judge.folder / "in.h5")
    for inputs in ["source.h5"], ["source.h5", "again.h5"], ["first.h5", "source.h5"]:
        judge.join_and_inspect(inputs, range(3), "first.h5", names=r"\.h5")
    with contextlib.suppress(Died), judge.server(["in.h5"]) as server:
        for way, form in enumerate(itertools.product(in_child(names_in, path), FORMS)):
            judge.case = f"sources{(path,)} {form}"
            with contextlib.suppress(Died):
                in_child(write_form, judge.folder, *form)
                judge.join_and_inspect(["in.h5"], [way], "first.h5", names=r"\.h5",
                                       launchers=(server,))
