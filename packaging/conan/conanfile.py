"""A recipe for Conan 2: it builds the tree that it lies in. docs/packaging.md says how to use it."""

import os
import re

from conan import ConanFile
from conan.tools.build import check_min_cppstd
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load


class VaroBinaryRecipe(ConanFile):
    name = "varobinary"
    license = "MIT"
    description = "Moves binary data between an application and a back-end platform"
    settings = "os", "arch", "compiler", "build_type"
    package_type = "library"
    options = {"shared": [True, False], "fPIC": [True, False]}
    default_options = {"shared": False, "fPIC": True, "boost/*:without_json": False}

    @property
    def _tree(self):
        return os.path.join(self.recipe_folder, os.pardir, os.pardir)

    def set_version(self):
        header = load(self, os.path.join(self._tree, "include", "varo", "version.h"))
        self.version = ".".join(re.findall(r"^#define VARO_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)$", header, re.M))

    def export_sources(self):
        for pattern in ("CMakeLists.txt", "cmake/*", "include/*", "Platform/*", "Binary/*", "Client/*",
                        "docs/*", "examples/*", "*.md", "LICENSE"):
            copy(self, pattern, self._tree, self.export_sources_folder, excludes=("build/*", ".git/*"))

    def validate(self):
        check_min_cppstd(self, 20)

    def requirements(self):
        self.requires("boost/[>=1.81 <2]")
        self.requires("expat/[>=2.5 <3]")
        self.requires("fmt/[>=9 <10]")
        self.requires("libcurl/[>=7.88 <9]")
        self.requires("openssl/[>=3.0 <4]")
        self.requires("spdlog/[>=1.10 <2]", visible=False)  # compiled in
        self.requires("sqlite3/[>=3.40 <4]")

    def layout(self):
        cmake_layout(self)

    def generate(self):
        CMakeDeps(self).generate()
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["VARO_BUILD_TESTS"] = False
        toolchain.cache_variables["VARO_BUILD_CLI"] = False
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()
        copy(self, "LICENSE", self.source_folder, os.path.join(self.package_folder, "licenses"))

    def package_info(self):
        # find_package finds the library's own file, with its targets.
        self.cpp_info.set_property("cmake_find_mode", "none")
        self.cpp_info.builddirs = [os.path.join("lib", "cmake", "varobinary")]
        self.cpp_info.libs = ["varobinary"]
        if not self.options.shared:
            self.cpp_info.libs += ["varobinary-classes", "varobinary-platform"]
            self.cpp_info.system_libs = ["dl", "pthread"]
