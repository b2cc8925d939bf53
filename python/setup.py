"""Builds psdkit._psdkit with the project's own CMake (target psdkit_python) and puts it into the
package. The CMake build folder is kept (default <repository>/build/python-package, or
$PSDKIT_PYTHON_BUILD_DIR), so that installing again only rebuilds what changed."""

import os
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent


class CMakeBuild(build_ext):
    def build_extension(self, ext: Extension) -> None:
        build = Path(os.environ.get("PSDKIT_PYTHON_BUILD_DIR", ROOT / "build" / "python-package")).resolve()
        package_dir = build / "package"
        configure = ["cmake", "-S", str(ROOT), "-B", str(build),
                     "-DCMAKE_BUILD_TYPE=" + os.environ.get("PSDKIT_PYTHON_BUILD_TYPE", "Release"),
                     "-DPSDKIT_PYTHON=ON", "-DPSDKIT_BUILD_TESTS=OFF", "-DPSDKIT_BUILD_TOOLS=OFF",
                     "-DPSDKIT_BUILD_SHARED=OFF", "-DPython3_EXECUTABLE=" + sys.executable,
                     "-DPSDKIT_PYTHON_PACKAGE_DIR=" + str(package_dir)]
        if shutil.which("ninja") and not (build / "Makefile").exists():
            configure += ["-G", "Ninja"]
        if shutil.which("ccache"):
            configure.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
        subprocess.run(configure, check=True)
        jobs = os.environ.get("PSDKIT_PYTHON_JOBS", str(os.cpu_count() or 2))
        subprocess.run(["cmake", "--build", str(build), "--target", "psdkit_python", "-j", jobs], check=True)
        built = next(package_dir.glob("_psdkit*.so"))
        target = Path(self.get_ext_fullpath(ext.name))
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(built, target)


setup(ext_modules=[Extension("psdkit._psdkit", sources=[])], cmdclass={"build_ext": CMakeBuild})
