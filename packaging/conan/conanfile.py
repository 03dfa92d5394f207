"""The recipe for Conan 2: `conan create packaging/conan`, in the folder of the repository."""

import os

from conan import ConanFile
from conan.tools.build import check_min_cppstd
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy

SOURCES = ("CMakeLists.txt", "cmake/*", "compat/*", "libs/*")


class KestrinProfileConan(ConanFile):
    name = "kestrinprofile"
    version = "0.1.0"
    description = "Client library for a household's personalization web service"
    topics = ("http", "reactivex", "video")
    package_type = "library"
    settings = "os", "compiler", "build_type", "arch"
    options = {
        "shared": [True, False],
        "fPIC": [True, False],
        "with_c": [True, False],
        "with_curl": [True, False],
        "with_sqlite": [True, False],
    }
    default_options = {
        "shared": False,
        "fPIC": True,
        "with_c": False,
        "with_curl": True,
        "with_sqlite": True,
        "libcurl/*:with_nghttp2": True,
    }

    def export_sources(self):
        root = os.path.join(self.recipe_folder, "..", "..")
        for pattern in SOURCES:
            copy(self, pattern, root, self.export_sources_folder)

    def layout(self):
        cmake_layout(self)

    def validate(self):
        check_min_cppstd(self, 20)

    def requirements(self):
        self.requires("boost/1.83.0", options={"header_only": False, "without_json": False})
        if self.options.with_curl:
            self.requires("libcurl/8.6.0")
            self.requires("zlib/1.3.1")
        if self.options.with_sqlite:
            self.requires("sqlite3/3.45.3")

    def generate(self):
        CMakeDeps(self).generate()
        toolchain = CMakeToolchain(self)
        for part in ("CLI", "JAVA", "SERVER", "TESTS"):
            toolchain.cache_variables[f"KESTRIN_BUILD_{part}"] = "OFF"
        toolchain.cache_variables["KESTRIN_BUILD_C"] = bool(self.options.with_c) and not self.options.shared
        toolchain.cache_variables["KESTRIN_RXCPP"] = "bundled"
        toolchain.cache_variables["KESTRIN_TRANSPORT"] = "curl" if self.options.with_curl else "none"
        toolchain.cache_variables["KESTRIN_OUTBOX_STORE"] = "sqlite" if self.options.with_sqlite else "none"
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()

    def package_info(self):
        # The packages for CMake that the libraries install themselves are the ones to use.
        self.cpp_info.set_property("cmake_find_mode", "none")
        self.cpp_info.builddirs = [os.path.join("lib", "cmake")]
