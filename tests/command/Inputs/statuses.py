"""The exit status of every kind of end."""
import subprocess
import sys
from pathlib import Path

veskc, folder = sys.argv[1], Path(sys.argv[2])
folder.mkdir(parents=True, exist_ok=True)
(folder / "good.vk").write_text('def main() -> Void:\n    print("ok")\n')
(folder / "seven.vk").write_text("def main() -> Int:\n    return 7\n")
(folder / "bad.vk").write_text("def main() -> Void:\n    unknown()\n")
(folder / "panic.vk").write_text('def main() -> Void:\n    panic("x")\n')
(folder / "library.vk").write_text("def f() -> Void:\n    pass\n")
locked = folder / "missing.vk"

CASES = [
    (0, "run good.vk"), (7, "run seven.vk"), (1, "run bad.vk"), (101, "run panic.vk"), (1, "run library.vk"),
    (0, "check good.vk"), (0, "check library.vk"), (1, "check bad.vk"), (0, "check good.vk -O2 --cache=memory -j 2"),
    (0, "emit good.vk --emit=il"), (0, "emit good.vk --emit=asm"), (0, "emit good.vk --emit=obj -o good.o"),
    (0, "emit good.vk --emit=tokens"), (0, "emit good.vk --emit=ast"), (1, "emit bad.vk --emit=il"),
    (2, "run missing.vk"), (2, "run"), (2, ""), (2, "walk good.vk"), (2, "run good.vk --no-such-option"), (2, "emit good.vk"),
    (2, "emit good.vk --emit=il -o no/such/folder/out.ll"), (2, "run good.vk -O7"), (2, "run good.vk --cache=never"),
    (0, "--help"), (0, "--version"), (0, "run --help"),
]
for status, words in CASES:
    result = subprocess.run([veskc, *words.split()], cwd=folder, capture_output=True, timeout=60, check=False)
    errors = result.stderr.decode("utf-8", "replace")
    if result.returncode != status:
        sys.exit(f"veskc {words}: status {result.returncode}, not {status}\n{errors}")
    if status == 2 and not errors.startswith("veskc: "):
        sys.exit(f"veskc {words}: complains with {errors!r}")
    if status == 0 and errors:
        sys.exit(f"veskc {words}: says {errors!r}")
