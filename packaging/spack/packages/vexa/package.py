import pathlib

from spack.package import *

try:    # Spack 1.0 and later has it apart
    from spack_repo.builtin.build_systems.cmake import CMakePackage
except ImportError:
    pass


class Vexa(CMakePackage):
    """Joins the HDF5 files of a simulation's segments (Kelmor), and the store through which
    simulations write such files."""

    # The clone that this file is in: what is committed there, on its branch main, is built.
    git = pathlib.Path(__file__).resolve().parents[4].as_uri()

    version("main", branch="main")

    variant("shared", default=True, description="libvexa.so besides the archives")
    variant("mpi", default=False, description="A parallel HDF5, and the library for jobs under MPI")
    variant("libdeflate", default=True, description="Inflate with libdeflate rather than zlib")
    variant("python", default=False, description="The package for Python, where Python finds it")

    requires("platform=linux", msg="Vexa takes Linux")

    depends_on("c", type="build")
    depends_on("cxx", type="build")
    depends_on("fortran", type="build")
    depends_on("cmake@3.25:", type="build")
    depends_on("nlohmann-json", type="build")
    depends_on("googletest+gmock", type="test")
    depends_on("python@3.9:", type="run")
    extends("python@3.9:", when="+python")
    depends_on("py-h5py", type="run", when="+python")
    depends_on("py-numpy", type="run", when="+python")
    depends_on("muparser@2.3:")
    depends_on("zlib-api")
    depends_on("libdeflate", when="+libdeflate")
    depends_on("hdf5@1.10.5: ~mpi", when="~mpi")
    depends_on("hdf5@1.10.5: +mpi", when="+mpi")
    depends_on("mpi", when="+mpi")

    conflicts("%gcc@:10", msg="C++20 takes g++ 11")
    conflicts("%clang@:15", msg="C++20 takes clang 16")

    def cmake_args(self):
        args = [
            self.define_from_variant("BUILD_SHARED_LIBS", "shared"),
            self.define_from_variant("VEXA_USE_LIBDEFLATE", "libdeflate"),
            self.define("HDF5_PREFER_PARALLEL", self.spec.satisfies("+mpi")),
            self.define("CMAKE_DISABLE_FIND_PACKAGE_MPI", self.spec.satisfies("~mpi")),
            self.define("VEXA_BUILD_TESTS", self.run_tests),
        ]
        if self.spec.satisfies("+python"):
            args.append(self.define("VEXA_PYTHON_DIR", python_platlib))
        return args
