"""What jxpush prints as JSON, held against its schema."""

import functools
import json
import sys

import jxtest

sys.path.append("/usr/lib/python3/dist-packages")  # where Debian's module is, whichever Python runs the tests
import jsonschema  # noqa: E402

SCHEMA = jxtest.SOURCE / "docs/jxpush.schema.json"


@functools.cache
def validator():
    return jsonschema.Draft202012Validator(json.loads(SCHEMA.read_text()))


def read(line):
    """The object of a line."""
    found = json.loads(line)
    validator().validate(found)
    return found


def read_all(output):
    return [read(line) for line in output.splitlines()]
