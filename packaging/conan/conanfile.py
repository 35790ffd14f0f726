"""The Conan 2 recipe. It builds from the tree that it lies in:

    conan create packaging/conan --build=missing
"""

import os
import re

from conan import ConanFile
from conan.errors import ConanInvalidConfiguration
from conan.tools.build import check_min_cppstd
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain
from conan.tools.files import copy, load, rmdir

TREE = os.path.join("..", "..")  # from this file


class VexIMLibRecipe(ConanFile):
    name = "veximlib"
    description = "Instant messaging client library"
    license = "MIT"
    topics = ("instant-messaging", "socket.io", "chat")
    package_type = "library"
    settings = "os", "arch", "compiler", "build_type"
    options = {"shared": [True, False], "store": [True, False], "c": [True, False],
               "testing": [True, False]}
    default_options = {
        "shared": False, "store": True, "c": False, "testing": False,
        "libcurl/*:with_ssl": "openssl", "libcurl/*:with_nghttp2": True,
    }

    def set_version(self):
        lists = load(self, os.path.join(self.recipe_folder, TREE, "CMakeLists.txt"))
        self.version = re.search(r"project\(VexIMLib VERSION ([\d.]+)", lists).group(1)

    def export_sources(self):
        tree = os.path.join(self.recipe_folder, TREE)
        for pattern in ("CMakeLists.txt", "LICENSE", "CHANGELOG.md", "cmake/*", "VexIMLib/*",
                        "bindings/python/*", "scripts/c_interface*.py"):
            copy(self, pattern, tree, self.export_sources_folder, excludes="*__pycache__*")

    def requirements(self):
        # All of them stay inside: public headers name the standard library alone.
        self.requires("libcurl/[>=7.88 <9]")
        self.requires("openssl/[>=3 <4]")
        self.requires("libpng/[>=1.6 <2]")
        self.requires("boost/[>=1.81 <1.90]")
        if self.options.store:
            self.requires("sqlite3/[>=3.40 <4]")

    def validate(self):
        if self.settings.os != "Linux":
            raise ConanInvalidConfiguration("VexIMLib runs on Linux")
        check_min_cppstd(self, 20)

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables.update({
            "VEXIM_BUILD_STORE": bool(self.options.store),
            "VEXIM_BUILD_C": bool(self.options.c),
            "VEXIM_BUILD_TESTING_KIT": bool(self.options.testing),
            "VEXIM_BUILD_TESTS": False,
            "VEXIM_BUILD_TOOLS": False,
            "VEXIM_BUILD_EXAMPLES": False,
            "VEXIM_INSTALL": True,
        })
        toolchain.generate()
        CMakeDeps(self).generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        copy(self, "LICENSE", self.source_folder, os.path.join(self.package_folder, "licenses"))
        CMake(self).install()
        # Consumers get their own from the generators, and Python's package comes from pip or
        # Debian.
        for folder in ("lib/cmake", "lib/pkgconfig", "lib/python3"):
            rmdir(self, os.path.join(self.package_folder, folder))

    def package_info(self):
        self.cpp_info.set_property("cmake_file_name", "VexIMLib")
        core = self._component("core", "VexIMLib", "VexIMLib", "VexIMLib")
        core.requires = ["libcurl::libcurl", "openssl::openssl", "libpng::libpng", "boost::headers",
                         "boost::json"]
        core.system_libs = ["pthread"]
        if not self.options.shared:
            core.defines = ["VEXIM_STATIC"]
        if self.options.store:
            store = self._component("store", "Store", "VexIMLibStore", "VexIMLibStore")
            store.requires = ["core", "sqlite3::sqlite3"]
        if self.options.testing:
            testing = self._component("testing", "Testing", "VexIMLibTesting", None)
            testing.requires = ["core"]
        if self.options.c:
            self._component("c", "C", "vexim-c", "vexim-c").requires = ["core"]
        if self.options.c and self.options.store:
            self._component("c-store", "CStore", "vexim-c-store",
                            "vexim-c-store").requires = ["core", "store"]

    def _component(self, component, target, library, pkg_config):
        info = self.cpp_info.components[component]
        info.libs = [library]
        info.set_property("cmake_target_name", f"VexIMLib::{target}")
        if pkg_config:
            info.set_property("pkg_config_name", pkg_config)
        return info
