"""The schema of what jxpush prints as JSON, beside the documents and the program. The tests of jxpush hold what it prints
against it."""

import re
import unittest

import jsonschema
import jxschema
import jxtest

PROBLEM = jxtest.SOURCE / "tools/jxpush/common/problem.h"


class SchemaTest(unittest.TestCase):
    def setUp(self):
        self.schema = jxschema.validator().schema

    def words(self, part, name=None):
        """Every member of the schema's objects, and every word that a member may be."""
        found = {name} if name else set()
        found |= {word for word in part.get("enum", []) if isinstance(word, str)}
        for member, inside in part.get("properties", {}).items():
            found |= self.words(inside, member)
        return found | (self.words(part["items"]) if "items" in part else set())

    def test_schema_refuses_what_it_does_not_name(self):
        jxschema.validator().check_schema(self.schema)
        good = {"event": "summary", "status": "sent", "code": 0}
        self.assertTrue(jxschema.validator().is_valid(good))
        for change in ({"extra": 1}, {"status": "fine"}, {"code": 7}, {"event": "sum"}, {"targets": -1}):
            self.assertRaises(jsonschema.ValidationError, jxschema.validator().validate, {**good, **change})

    def test_documents_name_every_member_and_word(self):
        document = (jxtest.SOURCE / "docs/jxpush-json.md").read_text()
        manual = (jxtest.SOURCE / "tools/jxpush/jxpush.1").read_text().replace("\\-", "-").split(".SH JSON")[1].split(".SH ")[0]
        for event, part in self.schema["$defs"].items():
            section = document.split(f"\n## `{event}`\n")[1].split("\n## ")[0]
            self.assertEqual(set(re.findall(r"^\| `(\w+)`", section, re.M)), part["properties"].keys() - {"event"}, event)
            members = re.search(rf"^\.B {event}\n(.*)$", manual, re.M)[1].split(", ")
            self.assertEqual(set(filter(None, members)), part["properties"].keys() - {"event"}, event)
            for word in self.words(part) - {"event", "valid", "not yet valid", "expired", "text", "error", "warning", "list"}:
                self.assertIn(f"`{word}`", document)
                self.assertRegex(manual, rf"(?<![\w-]){word}(?![\w-])")

    def test_status_words_are_those_of_the_program(self):
        sources = "".join(path.read_text() for path in (jxtest.SOURCE / "tools/jxpush").rglob("*.cpp")) + PROBLEM.read_text()
        words = set(self.schema["$defs"]["result"]["properties"]["status"]["enum"])
        self.assertEqual({word for word in words if f'"{word}"' not in sources}, set())
        told = set(re.findall(r'return "([\w-]+)";', PROBLEM.read_text()))
        told |= set(re.findall(r'throw Problem\([^;]*, "([a-z-]+)"\)', sources))
        self.assertEqual(told - words, set())


if __name__ == "__main__":
    unittest.main()
