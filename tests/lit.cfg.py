# Whole programs through the command. Run by ctest (`./dev test`); by hand:
#   python3 /usr/lib/llvm-19/build/utils/lit/lit.py -v --param build=build tests/language
import os
import re
import sys

import lit.formats

root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
build = os.path.abspath(lit_config.params.get("build", os.path.join(root, "build")))
tools = "/usr/lib/llvm-19/bin"

config.name = "programs"
config.test_format = lit.formats.ShTest(execute_external=False)
config.suffixes = [".vk", ".test"]
config.excludes = ["Inputs"]
config.test_source_root = os.path.join(root, "tests")
config.test_exec_root = os.path.join(build, "tests")

veskc = os.path.join(build, "bin", "veskc")
if not os.path.exists(veskc):
    lit_config.fatal(f"there is no {veskc}: build first")
python = sys.executable
here = config.test_source_root
# The longest names first: a substitution replaces its text wherever it stands.
config.substitutions += [
    ("%expect-output", f"{python} {here}/program_output.py {veskc}"),
    ("%expect-transcript", f"{python} {here}/repl_transcript.py {veskc}"),
    ("%expect-errors", f"{python} {here}/expected_errors.py {veskc}"),
    ("%{veskc}", veskc),
    ("%{failing-calls}", os.path.join(build, "lib", "libvesk_failing_calls.so")),
    ("%veskc", veskc),
    ("%python", python),
]
config.environment["PATH"] = os.pathsep.join([tools, os.environ.get("PATH", "")])
# An instrumented run-time library wants libraries of the instrumentation: what links a program is told of them.
with open(os.path.join(build, "CMakeCache.txt"), encoding="utf-8") as cache:
    settings = dict(re.findall(r"^(VESK_SANITIZE|VESK_COVERAGE):\w+=(\S*)$", cache.read(), re.M))
if settings.get("VESK_SANITIZE"):
    config.environment["VESK_LINK_OPTIONS"] = "-fsanitize=" + settings["VESK_SANITIZE"]
elif settings.get("VESK_COVERAGE") == "ON":
    config.environment["VESK_LINK_OPTIONS"] = "--coverage"
if "VESK_LINK_OPTIONS" in config.environment:
    config.environment["PATH"] = os.path.join(root, "scripts", "instrumented") + os.pathsep + config.environment["PATH"]
config.environment["VESK_CACHE_DIR"] = os.path.join(build, "tests", "cache")
# Under a sanitizer programs cannot be kept from memory, and are slow.
if "ASAN_OPTIONS" in os.environ or "TSAN_OPTIONS" in os.environ:
    config.available_features.add("sanitizer")
# Files of other users are real ones: only root can make them.
if os.geteuid() == 0:
    config.available_features.add("root")
# The counters of a coverage build are files that its programs write.
if os.path.basename(build) == "build-coverage":
    config.available_features.add("coverage")
for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "HOME"):
    if name in os.environ:
        config.environment[name] = os.environ[name]
