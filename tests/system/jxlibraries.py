"""The terminal's libraries: each has one header, which bears its name."""

import pathlib

NAMES = tuple(sorted(header.stem for header in (pathlib.Path(__file__).parents[2] / "platform/include").glob("*.h")))
FILES = tuple(f"lib{name}.so" for name in NAMES)
