# SPDX-License-Identifier: Apache-2.0
"""Builds the extension with CMake, and puts the library beside it."""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

TREE = Path(__file__).resolve().parents[2]


class CMakeBuild(build_ext):
    def build_extension(self, extension):
        package = Path(self.get_ext_fullpath(extension.name)).resolve().parent
        package.mkdir(parents=True, exist_ok=True)
        build = Path(os.environ.get("VXKIT_BUILD_DIR") or Path(self.build_temp).resolve() / "cmake")
        # Folder of the package and of the library are one, so that the extension looks for it beside itself.
        subprocess.run(
            ["cmake", "-S", TREE, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", "-DVXKIT_PYTHON=ON",
             "-DVXKIT_BUILD_TESTING=OFF", f"-DPython_EXECUTABLE={sys.executable}",
             "-DVXKIT_PYTHON_DIR=wheel", "-DCMAKE_INSTALL_LIBDIR=wheel/vxkit"],
            check=True,
        )
        subprocess.run(["cmake", "--build", build, "--target", "vxkit_python"], check=True)
        staged = build / "staged"
        subprocess.run(["cmake", "--install", build, "--component", "vxkit_python", "--prefix", staged], check=True)
        for path in (staged / "wheel" / "vxkit").iterdir():
            shutil.copy(path, package / path.name)
        soname = re.search(r"(libvxkit\.so\.[\d.]+)", subprocess.run(
            ["ldd", *package.glob("_vxkit*.so")], capture_output=True, text=True, check=True).stdout).group(1)
        shutil.copy((build / "lib" / soname).resolve(), package / soname)


def version():
    return re.search(r"VERSION ([\d.]+)\n", (TREE / "CMakeLists.txt").read_text().split("project(")[1]).group(1)


setup(version=version(), ext_modules=[Extension("vxkit._vxkit", [])], cmdclass={"build_ext": CMakeBuild})
