"""The stripped program stays small enough for the terminal's flash: size.py STRIP PROGRAM."""

import pathlib
import subprocess
import sys
import tempfile

LIMIT = 300 << 10


def main():
    strip, program = sys.argv[1:]
    with tempfile.TemporaryDirectory() as folder:
        stripped = pathlib.Path(folder) / "stripped"
        subprocess.run([strip, "-o", stripped, program], check=True)
        size = stripped.stat().st_size
    print(f"{size} bytes stripped; the limit is {LIMIT}")
    return 0 if size < LIMIT else 1


if __name__ == "__main__":
    sys.exit(main())
