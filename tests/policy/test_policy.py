#!/usr/bin/env python3
"""The fleet policy's table and what is made from it: the administrative templates (checked as
Group Policy and Intune read them, and against the golden copies beside this file, so that a
change to them is a visible diff), the sample .reg file (imported with Wine's `reg import` and
read back), the program's rows and DEPLOYING.md's Intune section.

To accept a change on purpose: cmake/generate-policy.py config/policies.json --templates
tests/policy/golden --update-deploying DEPLOYING.md
"""

import difflib
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree

SOURCE_DIR = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
sys.path.insert(0, os.path.join(SOURCE_DIR, "demo"))
from wineprefix import Prefix, build_dir_argument  # noqa: E402

BUILD_DIR = None
GENERATOR = os.path.join(SOURCE_DIR, "cmake", "generate-policy.py")
TABLE = os.path.join(SOURCE_DIR, "config", "policies.json")
GOLDEN = os.path.join(SOURCE_DIR, "tests", "policy", "golden")
FILES = ["orrery-updater.admx", os.path.join("en-US", "orrery-updater.adml"),
         "orrery-updater-sample.reg"]
NS = {"p": "http://schemas.microsoft.com/GroupPolicy/2006/07/PolicyDefinitions"}
REFERENCE = re.compile(r"\$\((string|presentation)\.([^)]*)\)")


def read(path):
    with open(path, "rb") as f:
        return f.read()


def admx_policies(root):
    """{policy name: (key, value name, what it allows)} as the ADMX describes each: ("dword",
    allowed values) or ("text", maximum length)."""
    policies = {}
    for policy in root.iterfind(".//p:policy", NS):
        key = policy.get("key")
        if policy.find("p:enabledValue", NS) is not None:
            values = {int(policy.find(state + "/p:decimal", NS).get("value"))
                      for state in ("p:enabledValue", "p:disabledValue")}
            policies[policy.get("name")] = (key, policy.get("valueName"), ("dword", values))
        for element in policy.iterfind("p:elements/*", NS):
            kind = element.tag.split("}")[1]
            if kind == "decimal":
                allowed = ("dword", range(int(element.get("minValue")),
                                          int(element.get("maxValue")) + 1))
            elif kind == "enum":
                allowed = ("dword", {int(v.get("value"))
                                     for v in element.iterfind("p:item/p:value/p:decimal", NS)})
            else:
                allowed = ("text", int(element.get("maxLength")))
            policies[policy.get("name")] = (element.get("key", key), element.get("valueName"),
                                            allowed)
    return policies


class Templates(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with open(TABLE, encoding="utf-8") as f:
            cls.table = json.load(f)
        cls.names = [p["name"] for p in cls.table["policies"]]
        cls.generated = tempfile.mkdtemp(prefix="policy-test-")
        subprocess.run([sys.executable, GENERATOR, TABLE, "--templates", cls.generated],
                       check=True)
        cls.admx = ElementTree.parse(os.path.join(cls.generated, FILES[0])).getroot()
        cls.adml = ElementTree.parse(os.path.join(cls.generated, FILES[1])).getroot()

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.generated, ignore_errors=True)

    def test_the_templates_are_the_golden_ones_and_the_build_ships_them(self):
        for name in FILES:
            generated = read(os.path.join(self.generated, name))
            golden = read(os.path.join(GOLDEN, name))
            diff = "".join(difflib.unified_diff(
                golden.decode().splitlines(True), generated.decode().splitlines(True),
                "golden/" + name, "generated/" + name))
            self.assertEqual(golden, generated, "the templates changed:\n" + diff)
            self.assertEqual(golden, read(os.path.join(BUILD_DIR, "policy", name)), name)

    def test_every_reference_of_the_admx_is_defined_in_the_adml(self):
        text = read(os.path.join(self.generated, FILES[0])).decode()
        strings = {s.get("id") for s in self.adml.iterfind(".//p:stringTable/p:string", NS)}
        presentations = {p.get("id"): p for p in self.adml.iterfind(".//p:presentation", NS)}
        used = {"string": set(), "presentation": set()}
        for kind, name in REFERENCE.findall(text):
            used[kind].add(name)
        self.assertEqual(set(), used["string"] - strings)
        self.assertEqual(set(), used["presentation"] - set(presentations))
        self.assertGreater(len(used["presentation"]), 0)
        # Each presentation's controls refer to elements of the policy that uses it.
        for policy in self.admx.iterfind(".//p:policy", NS):
            ids = {e.get("id") for e in policy.iterfind("p:elements/*", NS)}
            name = REFERENCE.findall(policy.get("presentation") or "")
            refs = {c.get("refId") for p in name for c in presentations[p[1]]}
            self.assertEqual(ids, refs, policy.get("name"))

    def test_the_admx_follows_the_conventions_administrators_import(self):
        ids = []
        for element in self.admx.iter():
            ids += [element.get(a) for a in ("name", "id", "prefix") if element.get(a)]
        for element in self.adml.iter():
            ids += [element.get(a) for a in ("id", "refId") if element.get(a)]
        self.assertEqual([], [i for i in ids if "-" in i], "hyphens in ids")
        namespace = self.admx.find("p:policyNamespaces/p:target", NS)
        self.assertEqual(("orreryupdater", "Corvane.Policies.OrreryUpdater"),
                         (namespace.get("prefix"), namespace.get("namespace")))
        categories = {c.get("name"): c for c in self.admx.iterfind(".//p:category", NS)}
        self.assertEqual("Corvane", categories["OrreryUpdater"].find(
            "p:parentCategory", NS).get("ref"))
        for policy in self.admx.iterfind(".//p:policy", NS):
            name = policy.get("name")
            self.assertEqual("Machine", policy.get("class"), name)
            self.assertEqual("OrreryUpdater", policy.find("p:parentCategory", NS).get("ref"))
            self.assertIsNotNone(policy.find("p:supportedOn", NS), name)
            self.assertTrue(policy.get("key").lower().startswith("software\\policies\\"), name)
            for element in policy.iterfind("p:elements/*", NS):
                self.assertNotIn("key", element.attrib, "an element's own key: " + name)
                kind = element.tag.split("}")[1]
                if kind == "decimal":
                    self.assertTrue(element.get("minValue") and element.get("maxValue"), name)
                elif kind == "enum":
                    values = [v.get("value") for v in
                              element.iterfind("p:item/p:value/p:decimal", NS)]
                    self.assertEqual(len(values), len(set(values)), name)
                elif kind == "text":
                    self.assertLessEqual(int(element.get("maxLength")), 1023, name)
                else:
                    self.fail("%s: an element the table does not make: %s" % (name, kind))
            # Its help says the default and what Not configured means, and where Group Policy
            # records Disabled by deleting the values, that Disabled means the same.
            explain = self.adml.find(".//p:string[@id='%s_Explain']" % name, NS).text
            self.assertIn("do not configure", explain, name)
            self.assertRegex(explain, "its default|without one", name)
            if policy.find("p:elements", NS) is not None:
                self.assertIn("Disabled means the same as Not configured", explain, name)

    def test_every_policy_of_the_table_is_in_the_admx_the_program_and_the_intune_section(self):
        described = admx_policies(self.admx)
        self.assertEqual(self.names, list(described))
        for policy in self.table["policies"]:
            key, value_name, allowed = described[policy["name"]]
            self.assertEqual(policy["name"], value_name)
            self.assertTrue(key.endswith("\\cvup\\" + policy["section"]), key)
        # The program's rows: name, section and bounds, in the table's order.
        with open(os.path.join(BUILD_DIR, "src", "generated", "PolicyTable.cpp")) as f:
            rows = re.findall(r'\{"(\w+)", "([^"]*)", Kind::\w+, (\d+), (\d+),', f.read())
        self.assertEqual(self.names, [r[0] for r in rows])
        for policy, row in zip(self.table["policies"], rows):
            kind, allowed = described[policy["name"]][2]
            low, high = ((min(allowed), max(allowed)) if kind == "dword" else (1, allowed))
            self.assertEqual((policy["section"], low, high),
                             (row[1].replace("\\\\", "\\"), int(row[2]), int(row[3])))
        # The guide's Intune rows are what the generator makes now, one OMA-URI per policy.
        section = subprocess.run([sys.executable, GENERATOR, TABLE, "--intune"], check=True,
                                 stdout=subprocess.PIPE, text=True).stdout
        with open(os.path.join(SOURCE_DIR, "DEPLOYING.md"), encoding="utf-8") as f:
            guide = f.read()
        self.assertIn(section, guide, "DEPLOYING.md's Intune section is not the generated one")
        uris = re.findall(r"`\./Device/Vendor/MSFT/Policy/Config/"
                          r"OrreryUpdater~Policy~Corvane~OrreryUpdater/(\w+)`", section)
        self.assertEqual(self.names, uris)

    def test_the_sample_imported_with_reg_import_gives_exactly_the_values_the_admx_describes(self):
        prefix = Prefix(os.environ.get("WINEPREFIX", os.path.join(BUILD_DIR, "wineprefix")))
        root = "HKLM\\Software\\Policies\\" + self.table["family"]
        prefix.copy_in(os.path.join(self.generated, FILES[2]), "C:\\policy-test")
        try:
            result = prefix.wine(["reg", "import", "C:\\policy-test\\" + FILES[2]])
            self.assertEqual(0, result.returncode, result.stdout)
            query = prefix.wine(["reg", "query", root, "/s"]).stdout
        finally:
            prefix.wine(["reg", "delete", root, "/f"])
            shutil.rmtree(prefix.unix("C:\\policy-test"), ignore_errors=True)
        imported, key = {}, None
        for line in query.splitlines():
            if line.startswith("HKEY_LOCAL_MACHINE\\"):
                key = line[len("HKEY_LOCAL_MACHINE\\"):].strip()
            match = re.match(r"^ {4}(\S+) {4}(REG_\w+) {4}(.*?)\r?$", line)
            if match:
                imported[(key.lower(), match.group(1))] = (match.group(2), match.group(3))
        described = admx_policies(self.admx)
        self.assertEqual({(k.lower(), v) for k, v, _ in described.values()}, set(imported))
        for name, (key, value_name, (kind, allowed)) in described.items():
            registry_type, data = imported[(key.lower(), value_name)]
            if kind == "dword":
                self.assertEqual("REG_DWORD", registry_type, name)
                self.assertIn(int(data, 16), allowed, name)
            else:
                self.assertEqual("REG_SZ", registry_type, name)
                self.assertLessEqual(len(data), allowed, name)
                self.assertGreater(len(data), 0, name)


if __name__ == "__main__":
    BUILD_DIR = build_dir_argument()
    unittest.main(verbosity=2)
