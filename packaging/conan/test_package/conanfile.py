"""Builds and runs the first program of docs/cpp.md against the package."""

import os

from conan import ConanFile
from conan.tools.build import can_run
from conan.tools.cmake import CMake, cmake_layout


class KestrinProfileTestConan(ConanFile):
    settings = "os", "compiler", "build_type", "arch"
    generators = "CMakeDeps", "CMakeToolchain"

    def requirements(self):
        self.requires(self.tested_reference_str)

    def layout(self):
        cmake_layout(self)

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def test(self):
        if can_run(self):
            # Without arguments it says how it is used, and ends with 2.
            self.run(f'"{os.path.join(self.cpp.build.bindir, "first")}" || test $? -eq 2', env="conanrun")
