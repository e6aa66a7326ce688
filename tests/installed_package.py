#!/usr/bin/env python3
"""Installs a build under an unusual prefix and uses it as a third party does: examples/embedding is built by CMake, without a C
compiler, and by pkg-config, and runs a program in a folder of its own without any environment variable of ours."""
import argparse
import os
import re
import shutil
import subprocess
import tempfile

HELLO = """def same<T>(x: T) -> T:
    return x

def main() -> Void:
    print(same(42))
"""
EXPECTED = "same -> Int\n42\n"


def run(*command, **options):
    result = subprocess.run(command, capture_output=True, text=True, **options)
    if result.returncode != 0:
        raise SystemExit(f"{' '.join(command)}\nstatus {result.returncode}\n{result.stdout[-3000:]}\n{result.stderr[-3000:]}")
    return result.stdout


def check(holds, what):
    if not holds:
        raise SystemExit(what)


def check_headers(includes):
    """Every header that an installed one includes in quotes is installed, and no test's header is."""
    headers = [os.path.join(folder, name) for folder, _, names in os.walk(includes) for name in names]
    check(len(headers) > 50, f"only {len(headers)} headers are installed")
    for header in headers:
        check(not header.endswith("_test.h"), f"a test's header is installed: {header}")
        for included in re.findall(r'^#include "([^"]+)"', open(header).read(), re.M):
            check(os.path.exists(os.path.join(includes, included)), f"{header} includes {included}, which is not installed")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", required=True)
    parser.add_argument("--source", required=True)
    arguments = parser.parse_args()
    environment = {name: value for name, value in os.environ.items() if not name.startswith("VESK_")}
    with tempfile.TemporaryDirectory(prefix="vesk-install-") as top:
        top = os.path.realpath(top)
        prefix = os.path.join(top, "opt", "vesk+tools")
        environment["VESK_CACHE_DIR"] = os.path.join(top, "cache")
        run("cmake", "--install", arguments.build, "--prefix", prefix, env=environment)
        check_headers(os.path.join(prefix, "include", "vesk"))
        program = os.path.join(top, "elsewhere", "hello.vk")
        os.makedirs(os.path.dirname(program))
        with open(program, "w") as out:
            out.write(HELLO)

        def check_program(path, what):
            output = run(path, program, env=environment, cwd=os.path.dirname(program))
            check(output == EXPECTED, f"built by {what} it prints {output!r}")

        example = os.path.join(arguments.source, "examples", "embedding")
        folder = os.path.join(top, "by-cmake")
        run("cmake", "-S", example, "-B", folder, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", f"-DCMAKE_PREFIX_PATH={prefix}",
            env=environment)
        run("cmake", "--build", folder, env=environment)
        check_program(os.path.join(folder, "embedding"), "CMake")

        configuration = [os.path.join(root, "pkgconfig") for root, folders, _ in os.walk(prefix) if "pkgconfig" in folders]
        packages = {**environment, "PKG_CONFIG_PATH": ":".join(configuration)}
        check(run("pkg-config", "--variable=prefix", "vesk", env=packages).strip() != "", "vesk.pc has no prefix")
        flags = run("pkg-config", "--cflags", "--libs", "vesk", env=packages).split()
        by_hand = os.path.join(top, "by-pkg-config")
        run("g++", os.path.join(example, "main.cpp"), "-o", by_hand, *flags, env=environment)
        check_program(by_hand, "pkg-config")

        # The command of the installation, and what it builds, wherever they are started from.
        command = os.path.join(prefix, "bin", "veskc")
        check(run(command, "run", program, env=environment, cwd="/") == "42\n", "the installed command does not run programs")
        executable = os.path.join(top, "hello")
        run(command, "build", program, "-o", executable, env=environment, cwd="/")
        check(run(executable) == "42\n", "the installed command does not build programs")
        shutil.rmtree(prefix)


if __name__ == "__main__":
    main()
