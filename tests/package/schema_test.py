#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""The enclosures' JSON schema takes what asd takes, and refuses what an editor should mark."""

import copy
import json
import pathlib
import re
import unittest

import jsonschema

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
CONFIG = ROOT / "config"
SCHEMA = json.loads((CONFIG / "enclosure.schema.json").read_text(encoding="utf-8"))
# Place, and what is written there; None takes the key away.
MISTAKES = [
    (["Role"], "chief"), (["IpmiPrivilege"], 5), (["Nmae"], "x"), (["Name"], None), (["Parts"], {}),
    (["Board", "Expansion"], True), (["Parts", 0, "PageSize"], 8192), (["Parts", 0, "File"], None), (["Chips", 0, "Offset"], "forty"),
    (["GpioLines"], [{"Line": 55, "Offset": 1}]), (["Items", 0, "Length"], 8193), (["Items", 0, "Value"], "zero"),
    (["SessionPrivilege"], 5), (["Inventory", "Board", "Color"], "red"), (["Inventory", "Product", "AssetTag"], {"Offset": 1}),
]  # fmt: skip


class Schema(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        jsonschema.Draft7Validator.check_schema(SCHEMA)
        cls.validator = jsonschema.Draft7Validator(SCHEMA)
        cls.enclosures = {file.name: json.loads(file.read_text(encoding="utf-8"))
                          for file in sorted(CONFIG.glob("*.json")) if "schema" not in file.name}
        manual = (ROOT / "docs/man/asd-enclosure.5").read_text(encoding="utf-8")
        cls.enclosures["manual page"] = json.loads(re.search(r"^\.Bd .*?\n(.*?)^\.Ed", manual, re.M | re.S)[1])

    def test_enclosures_are_valid(self):
        self.assertIn("enclosure.json", self.enclosures)
        for name, enclosure in self.enclosures.items():
            with self.subTest(name):
                self.assertEqual([f"{e.json_path}: {e.message}" for e in self.validator.iter_errors(enclosure)], [])

    def test_mistakes_are_refused(self):
        for place, value in MISTAKES:
            with self.subTest(place=place, value=value):
                enclosure = copy.deepcopy(self.enclosures["enclosure.json"])
                at = enclosure
                for step in place[:-1]:
                    at = at.setdefault(step, {}) if isinstance(at, dict) else at[step]
                if value is None:
                    del at[place[-1]]
                else:
                    at[place[-1]] = value
                self.assertFalse(self.validator.is_valid(enclosure))


if __name__ == "__main__":
    unittest.main()
