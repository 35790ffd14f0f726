#!/usr/bin/env python3
"""Checks that the recipes in packaging/, the version numbers and the public host's CI file agree
with the repository. Needs neither Conan nor vcpkg.

    scripts/check_packaging.py       prints what is wrong, and fails then
"""

import ast
import json
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
CONAN = "packaging/conan/conanfile.py"
PORT = "packaging/vcpkg/veximlib"
# The packages that CMake looks for, and their names in Conan and in vcpkg.
CALLED = {
    "CURL": ("libcurl", "curl"), "OpenSSL": ("openssl", "openssl"), "PNG": ("libpng", "libpng"),
    "Boost": ("boost", "boost-json"), "SQLite3": ("sqlite3", "sqlite3"),
}
# Replaces vcpkg, and prints what the port asks it to do.
VCPKG = """
set(PORT veximlib)
set(CURRENT_PACKAGES_DIR "{scratch}")
set(CURRENT_PORT_DIR "{port}")
function(vcpkg_check_features)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "OUT_FEATURE_OPTIONS" "FEATURES")
  message("FEATURES=${{arg_FEATURES}}")
endfunction()
function(vcpkg_cmake_configure)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "SOURCE_PATH" "OPTIONS")
  message("SOURCE_PATH=${{arg_SOURCE_PATH}}")
  message("OPTIONS=${{arg_OPTIONS}}")
endfunction()
foreach(step IN ITEMS
        vcpkg_cmake_install vcpkg_cmake_config_fixup vcpkg_fixup_pkgconfig vcpkg_install_copyright)
  cmake_language(EVAL CODE "function(${{step}})\nmessage(STEP=${{step}})\nendfunction()")
endforeach()
include("{port}/portfile.cmake")
"""


def read(name):
    return (ROOT / name).read_text()


def is_at_least(version, least):
    numbers = lambda text: [int(part) for part in text.split(".")]
    return numbers(version) >= numbers(least)


def versions():
    """Each place that has the version number, and the number there."""
    yield "CMakeLists.txt", re.search(r"project\(VexIMLib VERSION ([\d.]+)",
                                      read("CMakeLists.txt"))[1]
    yield "service/package.json", json.loads(read("service/package.json"))["version"]
    package = "bindings/python/vexim/__init__.py"
    yield package, re.search(r'^__version__ = "(.*)"', read(package), re.M)[1]
    yield f"{PORT}/vcpkg.json", json.loads(read(f"{PORT}/vcpkg.json"))["version"]
    released = re.search(r"^## \[(\d.*?)\] - \d{4}-\d\d-\d\d$", read("CHANGELOG.md"), re.M)
    yield "CHANGELOG.md", released[1] if released else "none that has a date"


def conan_recipe():
    """The recipe's (requirements with least versions, build options, patterns, libraries)."""
    tree = ast.parse(read(CONAN))
    recipe = next(node for node in tree.body if isinstance(node, ast.ClassDef))
    methods = {node.name: node for node in recipe.body if isinstance(node, ast.FunctionDef)}
    for name in ("set_version", "export_sources", "requirements", "generate", "build", "package",
                 "package_info"):
        if name not in methods:
            raise ValueError(f"has no {name}()")
    texts = lambda method: [node.value for node in ast.walk(methods[method])
                            if isinstance(node, ast.Constant) and isinstance(node.value, str)]
    required = dict(re.fullmatch(r"([\w-]+)/\[>=([\d.]+) <[\d.]+\]", text).groups()
                    for text in texts("requirements") if "/" in text)
    switches = {text for text in texts("generate") if text.startswith("VEXIM_")}
    patterns = [text for text in texts("export_sources") if "__" not in text]
    libraries = [call.args[2].value for call in ast.walk(methods["package_info"])
                 if isinstance(call, ast.Call) and getattr(call.func, "attr", "") == "_component"]
    used = {text.split("::")[0] for text in texts("package_info")
            if re.fullmatch(r"[a-z0-9-]+::[a-z0-9-]+", text)}
    if unlisted := used - set(required):
        raise ValueError(f"uses {unlisted} that it does not require")
    return required, switches, patterns, libraries


def port():
    """The port's (dependencies with least versions, build options, source folder)."""
    manifest = json.loads(read(f"{PORT}/vcpkg.json"))
    if unknown := set(manifest) - {"name", "version", "description", "license", "supports",
                                   "dependencies", "default-features", "features"}:
        raise ValueError(f"has {unknown}, which this script does not know")
    dependencies = manifest["dependencies"] + [one for feature in manifest["features"].values()
                                               for one in feature.get("dependencies", [])]
    least = {one["name"]: one.get("version>=", "0") for one in dependencies}
    with tempfile.TemporaryDirectory() as scratch:
        script = pathlib.Path(scratch, "vcpkg.cmake")
        script.write_text(VCPKG.format(scratch=scratch, port=ROOT / PORT))
        done = subprocess.run(["cmake", "-P", script], capture_output=True, text=True)
    if done.returncode:
        raise ValueError(done.stderr)
    said = dict(line.split("=", 1) for line in done.stderr.splitlines() if "=" in line)
    pairs = said["FEATURES"].split(";")
    features = set(manifest["features"])
    if set(pairs[::2]) != features or set(manifest["default-features"]) - features:
        raise ValueError("features of vcpkg.json and portfile.cmake differ")
    switches = set(pairs[1::2]) | set(re.findall(r"-D(VEXIM_\w+)=", said["OPTIONS"]))
    return least, switches, pathlib.Path(said["SOURCE_PATH"])


def findings():
    found = dict(versions())
    if len(set(found.values())) > 1:
        yield f"versions differ: {found}"

    lists = [ROOT / "CMakeLists.txt", *(ROOT / "VexIMLib").rglob("CMakeLists.txt")]
    lists = "\n".join(path.read_text() for path in lists)
    switches = set(re.findall(r"(?:option|set|cmake_dependent_option)\((VEXIM_\w+) ", lists))
    wanted = re.findall(r"^find_package\((\w+) ?([\d.]*)", lists, re.M)
    names = {name for name, _ in wanted}
    if unknown := names - set(CALLED) - {"Threads", "Python3"}:
        yield f"CMakeLists.txt: needs {unknown}; add it to {CONAN}, {PORT} and, here, CALLED"
    targets = {"VexIMLib", *re.findall(r"OUTPUT_NAME (\w+)", lists),
               *re.findall(r"vexim_add_c_library\(\w+ (\S+)\)", lists)}

    for file, position, recipe in ((CONAN, 0, conan_recipe), (PORT, 1, port)):
        try:
            least, set_options, *rest = recipe()
        except (ValueError, AttributeError, KeyError, SyntaxError, StopIteration) as error:
            yield f"{file}: {error}"
            continue
        for name in set_options - switches:
            yield f"{file}: sets {name}, which CMakeLists.txt does not have"
        for name, version in wanted:
            called = CALLED.get(name, ("", ""))[position]
            if called and not is_at_least(least.get(called, "0"), version or "0.0.1"):
                yield f"{file}: CMakeLists.txt asks for version {version} of {called}"
        if recipe is port:
            if rest[0].resolve() != ROOT:
                yield f"{file}: builds from {rest[0]}"
            continue
        for pattern in rest[0]:
            if not any(ROOT.glob(pattern)):
                yield f"{file}: exports {pattern}, which does not exist"
        for library in rest[1]:
            if library not in targets:
                yield f"{file}: names the library {library}, which is not built"

    if not re.search(r"^ *- name: .*\n +run: \.ci/run$", read(".github/workflows/ci.yml"), re.M):
        yield ".github/workflows/ci.yml: does not run .ci/run"


if __name__ == "__main__":
    complaints = list(findings())
    print("\n".join(complaints), end="\n" if complaints else "")
    sys.exit(1 if complaints else 0)
