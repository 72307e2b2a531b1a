#!/usr/bin/env python3
"""Usage: generate-policy.py TABLE [--cpp FILE] [--templates DIR] [--intune]
                             [--update-deploying DEPLOYING.md]

Makes everything that follows from the policy table (config/policies.json), so that the program,
the administrative templates and the guide cannot drift apart:

  --cpp FILE        the program's table (the rows that src/settings/PolicyTable.h declares);
  --templates DIR   DIR/orrery-updater.admx, DIR/en-US/orrery-updater.adml and
                    DIR/orrery-updater-sample.reg;
  --intune          prints DEPLOYING.md's Intune section (the OMA-URIs and example payloads);
  --update-deploying FILE
                    writes that section into FILE between its two markers.

The table is checked first (names, kinds, bounds, defaults and samples); a fault stops the script
with its reason. Output is plain ASCII with CR LF line ends for the Windows files, LF elsewhere,
and the same bytes on every run.
"""

import argparse
import json
import os
import re
import sys
from xml.sax.saxutils import escape, quoteattr

DWORD_KINDS = ("enum", "decimal", "boolean")
TEXT_KINDS = ("text", "hashes")
INTUNE_LIMIT = 1023  # The longest value an ingested policy's text element may carry.
APP_NAME = "OrreryUpdater"
VENDOR_CATEGORY = "Corvane"
PRODUCT_CATEGORY = "OrreryUpdater"
SUPPORTED = "SUPPORTED_OrreryUpdater"
BEGIN_MARKER = "<!-- BEGIN generated Intune section (cmake/generate-policy.py); edit config/policies.json -->"
END_MARKER = "<!-- END generated Intune section -->"
IDENTIFIER = re.compile(r"^[A-Za-z][A-Za-z0-9_]*$")
HASH = re.compile(r"^[0-9A-Fa-f]{64}$")


def fail(message):
    sys.exit("generate-policy.py: " + message)


def check(table):
    """Stops on the first row that the program or the templates could not take."""
    names = set()
    for policy in table["policies"]:
        name = policy.get("name", "")
        if not IDENTIFIER.match(name):
            fail("'%s' is not a name of letters, digits and underscores" % name)
        if name.lower() in names:
            fail("'%s' appears twice" % name)
        names.add(name.lower())
        kind = policy.get("kind")
        if kind not in DWORD_KINDS + TEXT_KINDS:
            fail("%s: unknown kind '%s'" % (name, kind))
        low, high = bounds(policy)
        if not 0 <= low <= high <= 0xFFFFFFFF:
            fail("%s: bounds %d..%d are not a DWORD range" % (name, low, high))
        if kind in TEXT_KINDS and high > INTUNE_LIMIT:
            fail("%s: maxLength %d is above Intune's limit of %d" % (name, high, INTUNE_LIMIT))
        if kind == "enum":
            values = [c["value"] for c in policy["choices"]]
            if len(set(values)) != len(values):
                fail("%s: an enum value appears twice" % name)
            if sorted(values) != list(range(low, high + 1)):
                fail("%s: the program checks an enum by its bounds, so its values must be "
                     "consecutive" % name)
        for field in ("default", "sample"):
            value = policy.get(field)
            if value is None and field == "default":
                continue
            problem = invalid(policy, value)
            if problem:
                fail("%s: the %s %r is %s" % (name, field, value, problem))
        if policy.get("default") is None and not policy.get("notSet"):
            fail("%s: no default, and no notSet to say what that means" % name)
        for field in ("displayName", "explain"):
            if not policy.get(field):
                fail("%s: no %s" % (name, field))
        if kind != "boolean" and not policy.get("label"):
            fail("%s: no label" % name)


def bounds(policy):
    kind = policy["kind"]
    if kind == "boolean":
        return 0, 1
    if kind == "enum":
        values = [c["value"] for c in policy["choices"]]
        return min(values), max(values)
    if kind == "decimal":
        return policy["minimum"], policy["maximum"]
    return 1, policy["maxLength"]


def invalid(policy, value):
    """Why `value` is no valid value of the policy, or None: the program's own rules."""
    kind = policy["kind"]
    low, high = bounds(policy)
    if kind in DWORD_KINDS:
        if not isinstance(value, int):
            return "not a number"
        if kind == "enum" and value not in [c["value"] for c in policy["choices"]]:
            return "not one of the choices"
        return None if low <= value <= high else "out of range"
    if not isinstance(value, str) or not low <= len(value) <= high:
        return "not a text of %d to %d characters" % (low, high)
    if kind == "hashes" and not all(HASH.match(h.strip()) for h in value.split(";")):
        return "not a list of SHA-256 hashes"
    return None


def key_of(table, policy):
    return "Software\\Policies\\%s\\QNV\\Local\\%s\\%s" % (table["family"], table["localId"],
                                                           policy["section"])


def store_key(table):
    return "HKLM\\Software\\%s\\QNV\\Local\\%s" % (table["family"], table["localId"])


def default_text(policy):
    value = policy.get("default")
    if value is None:
        return None
    if policy["kind"] == "boolean":
        return "Enabled (1)" if value else "Disabled (0)"
    if policy["kind"] == "enum":
        label = next(c["label"] for c in policy["choices"] if c["value"] == value)
        return "%d, %s" % (value, label.split(":")[0])
    return str(value)


def explanation(table, policy):
    """The policy's help text: its own, then what each state means, generated alike for all."""
    kind = policy["kind"]
    store = "%s\\%s in the settings store %s" % (policy["section"], policy["name"],
                                                  store_key(table))
    fallback = default_text(policy)
    fallback = "its default, %s" % fallback if fallback else policy["notSet"]
    text = [policy["explain"], ""]
    if kind == "boolean":
        text.append("If you enable this policy the updater works as if %s were 1; if you disable "
                    "it, as if it were 0. If you do not configure it, the updater uses the value "
                    "of %s, or without one %s." % (policy["name"], store, fallback))
    else:
        text.append("If you enable this policy, the updater uses the value you give here, "
                    "whatever its settings store holds. If you disable it or do not configure "
                    "it, the updater uses the value of %s, or without one %s. Disabled means "
                    "the same as Not configured." % (store, fallback))
    text.append("")
    text.append("A policy value of the wrong type or out of range is ignored: the updater uses "
                "the store's value instead, and cvupsettings.exe /status names the policy and "
                "why it was ignored. The updater never writes its policy key.")
    return "\n".join(text)


def cpp_string(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def cpp(table):
    kinds = {"enum": "kDword", "decimal": "kDword", "boolean": "kDword", "text": "kText",
             "hashes": "kHashList"}
    lines = ["// Generated by cmake/generate-policy.py from config/policies.json at configure time:",
             "// edit the table, not this file.",
             '#include "settings/PolicyTable.h"', "", "namespace PolicyTable {", "",
             "const Row kRows[] = {"]
    for policy in table["policies"]:
        low, high = bounds(policy)
        default = policy.get("default")
        if default is None:
            default_fields = "false, 0, %s" % cpp_string("")
        elif isinstance(default, int):
            default_fields = "true, %d, %s" % (default, cpp_string(""))
        else:
            default_fields = "true, 0, %s" % cpp_string(default)
        lines.append("    {%s, %s, Kind::%s, %d, %d, %s}," % (
            cpp_string(policy["name"]), cpp_string(policy["section"]), kinds[policy["kind"]],
            low, high, default_fields))
    lines += ["};", "const size_t kRowCount = sizeof(kRows) / sizeof(kRows[0]);", "",
              "}  // namespace PolicyTable", ""]
    return "\n".join(lines)


def admx(table):
    out = ['<?xml version="1.0" encoding="utf-8"?>',
           '<policyDefinitions xmlns:xsd="http://www.w3.org/2001/XMLSchema" '
           'xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" revision="%s" '
           'schemaVersion="1.0" '
           'xmlns="http://schemas.microsoft.com/GroupPolicy/2006/07/PolicyDefinitions">'
           % table["since"],
           '  <policyNamespaces>',
           '    <target prefix=%s namespace=%s />' % (quoteattr(table["prefix"]),
                                                      quoteattr(table["namespace"])),
           '  </policyNamespaces>',
           '  <resources minRequiredRevision="%s" />' % table["since"],
           '  <supportedOn>',
           '    <definitions>',
           '      <definition name="%s" displayName="$(string.%s)" />' % (SUPPORTED, SUPPORTED),
           '    </definitions>',
           '  </supportedOn>',
           '  <categories>',
           '    <category name="%s" displayName="$(string.%s)" />' % (VENDOR_CATEGORY,
                                                                      VENDOR_CATEGORY),
           '    <category name="%s" displayName="$(string.%s)">' % (PRODUCT_CATEGORY,
                                                                    PRODUCT_CATEGORY),
           '      <parentCategory ref="%s" />' % VENDOR_CATEGORY,
           '    </category>',
           '  </categories>',
           '  <policies>']
    for policy in table["policies"]:
        name, kind = policy["name"], policy["kind"]
        head = ('    <policy name="%s" class="Machine" displayName="$(string.%s)" '
                'explainText="$(string.%s_Explain)"' % (name, name, name))
        if kind != "boolean":
            head += ' presentation="$(presentation.%s)"' % name
        head += ' key=%s' % quoteattr(key_of(table, policy))
        if kind == "boolean":
            head += ' valueName="%s"' % name
        out += [head + ">",
                '      <parentCategory ref="%s" />' % PRODUCT_CATEGORY,
                '      <supportedOn ref="%s" />' % SUPPORTED]
        if kind == "boolean":
            out += ['      <enabledValue>', '        <decimal value="1" />', '      </enabledValue>',
                    '      <disabledValue>', '        <decimal value="0" />',
                    '      </disabledValue>']
        else:
            out.append('      <elements>')
            if kind == "enum":
                out.append('        <enum id="%s" valueName="%s" required="true">' % (name, name))
                for choice in policy["choices"]:
                    out += ['          <item displayName="$(string.%s_%d)">' % (name,
                                                                               choice["value"]),
                            '            <value>',
                            '              <decimal value="%d" />' % choice["value"],
                            '            </value>',
                            '          </item>']
                out.append('        </enum>')
            elif kind == "decimal":
                out.append('        <decimal id="%s" valueName="%s" required="true" '
                           'minValue="%d" maxValue="%d" />' % (name, name, policy["minimum"],
                                                               policy["maximum"]))
            else:
                out.append('        <text id="%s" valueName="%s" required="true" '
                           'maxLength="%d" />' % (name, name, policy["maxLength"]))
            out.append('      </elements>')
        out.append('    </policy>')
    out += ['  </policies>', '</policyDefinitions>', '']
    return "\r\n".join(out)


def adml(table):
    strings = [(VENDOR_CATEGORY, table["vendor"]), (PRODUCT_CATEGORY, table["product"]),
               (SUPPORTED, "%s %s and later (%s)" % (table["product"], table["since"],
                                                     table["program"]))]
    presentations = []
    for policy in table["policies"]:
        name, kind = policy["name"], policy["kind"]
        strings += [(name, policy["displayName"]),
                    (name + "_Explain", explanation(table, policy))]
        if kind == "enum":
            strings += [("%s_%d" % (name, c["value"]), c["label"]) for c in policy["choices"]]
            default = [c["value"] for c in policy["choices"]].index(policy["default"])
            control = ['<dropdownList refId="%s" noSort="true" defaultItem="%d">%s</dropdownList>'
                       % (name, default, escape(policy["label"]))]
        elif kind == "decimal":
            start = policy["default"] if policy.get("default") is not None else policy["minimum"]
            control = ['<decimalTextBox refId="%s" defaultValue="%d">%s</decimalTextBox>'
                       % (name, start, escape(policy["label"]))]
        elif kind in TEXT_KINDS:
            control = ['<textBox refId="%s">' % name,
                       '  <label>%s</label>' % escape(policy["label"]), '</textBox>']
        else:
            continue
        presentations.append('      <presentation id="%s">' % name)
        presentations += ['        ' + line for line in control]
        presentations.append('      </presentation>')
    out = ['<?xml version="1.0" encoding="utf-8"?>',
           '<policyDefinitionResources xmlns:xsd="http://www.w3.org/2001/XMLSchema" '
           'xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" revision="%s" '
           'schemaVersion="1.0" '
           'xmlns="http://schemas.microsoft.com/GroupPolicy/2006/07/PolicyDefinitions">'
           % table["since"],
           '  <displayName>%s</displayName>' % escape(table["product"]),
           '  <description>%s</description>' % escape(
               "Policies of the %s (%s)" % (table["product"], table["program"])),
           '  <resources>',
           '    <stringTable>']
    for string_id, text in strings:
        out.append('      <string id="%s">%s</string>' % (string_id,
                                                      escape(text).replace("\n", "\r\n")))
    out += ['    </stringTable>', '    <presentationTable>'] + presentations + [
        '    </presentationTable>', '  </resources>', '</policyDefinitionResources>', '']
    return "\r\n".join(out)


def reg(table):
    out = ["Windows Registry Editor Version 5.00", "",
           "; Sample policy values of the %s (%s), one of each policy of "
           "orrery-updater.admx." % (table["product"], table["program"]),
           "; Import it elevated (reg import orrery-updater-sample.reg) on a test machine; delete "
           "the key",
           "; HKLM\\Software\\Policies\\%s to return to the settings store's values."
           % table["family"]]
    sections = []
    for policy in table["policies"]:
        if policy["section"] not in sections:
            sections.append(policy["section"])
    for section in sections:
        out += ["", "[HKEY_LOCAL_MACHINE\\%s]" % key_of(table, {"section": section})]
        for policy in table["policies"]:
            if policy["section"] != section:
                continue
            sample = policy["sample"]
            if policy["kind"] in DWORD_KINDS:
                out.append('"%s"=dword:%08x' % (policy["name"], sample))
            else:
                out.append('"%s"="%s"' % (policy["name"],
                                          sample.replace("\\", "\\\\").replace('"', '\\"')))
    out.append("")
    return "\r\n".join(out)


def intune_payload(policy):
    if policy["kind"] == "boolean":
        return "<enabled/>" if policy["sample"] else "<disabled/>"
    value = policy["sample"]
    return '<enabled/><data id="%s" value=%s/>' % (policy["name"], quoteattr(str(value)))


def intune(table):
    area = "%s~Policy~%s~%s" % (APP_NAME, VENDOR_CATEGORY, PRODUCT_CATEGORY)
    out = [BEGIN_MARKER,
           "",
           "**Ingest the template** with one row of a custom profile (Windows 10 and later):",
           "",
           "| field | value |",
           "|---|---|",
           "| OMA-URI | `./Device/Vendor/MSFT/Policy/ConfigOperations/ADMXInstall/%s/Policy/"
           "OrreryUpdaterAdmx` |" % APP_NAME,
           "| Data type | String |",
           "| Value | the whole text of `policy\\orrery-updater.admx` |",
           "",
           "**Set a policy** with one more row per policy, data type String, the payload as its "
           "value (`<disabled/>` disables it; a row removed from the profile makes it Not "
           "configured again). The values shown are examples; the bounds are those of the "
           "template:",
           "",
           "| policy | OMA-URI | example payload | allowed |",
           "|---|---|---|---|"]
    for policy in table["policies"]:
        kind = policy["kind"]
        if kind == "boolean":
            allowed = "`<enabled/>` (1) or `<disabled/>` (0)"
        elif kind == "enum":
            allowed = ", ".join("%d" % c["value"] for c in policy["choices"])
        elif kind == "decimal":
            allowed = "%d to %d" % (policy["minimum"], policy["maximum"])
        elif kind == "hashes":
            allowed = "SHA-256 hashes separated by `;`, at most %d characters" % policy["maxLength"]
        else:
            allowed = "text, at most %d characters" % policy["maxLength"]
        out.append("| %s | `./Device/Vendor/MSFT/Policy/Config/%s/%s` | `%s` | %s |" % (
            policy["name"], area, policy["name"], intune_payload(policy), allowed))
    out += ["", END_MARKER]
    return "\n".join(out) + "\n"


def update_deploying(path, section):
    with open(path, encoding="utf-8", newline="") as f:
        text = f.read()
    begin, end = text.find(BEGIN_MARKER), text.find(END_MARKER)
    if begin < 0 or end < begin:
        fail("%s has no pair of markers for the Intune section" % path)
    text = text[:begin] + section + text[end + len(END_MARKER) + 1:]
    with open(path, "w", encoding="utf-8", newline="") as f:
        f.write(text)


def write(path, text, newline=""):
    os.makedirs(os.path.dirname(os.path.abspath(path)), exist_ok=True)
    data = text.encode("ascii")
    try:
        with open(path, "rb") as f:
            if f.read() == data:
                return  # Unchanged: keeps the file's time, so nothing rebuilds.
    except OSError:
        pass
    with open(path, "wb") as f:
        f.write(data)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("table")
    parser.add_argument("--cpp")
    parser.add_argument("--templates")
    parser.add_argument("--intune", action="store_true")
    parser.add_argument("--update-deploying")
    args = parser.parse_args()
    with open(args.table, encoding="utf-8") as f:
        table = json.load(f)
    check(table)
    if args.cpp:
        write(args.cpp, cpp(table))
    if args.templates:
        write(os.path.join(args.templates, "orrery-updater.admx"), admx(table))
        write(os.path.join(args.templates, "en-US", "orrery-updater.adml"), adml(table))
        write(os.path.join(args.templates, "orrery-updater-sample.reg"), reg(table))
    if args.intune:
        sys.stdout.write(intune(table))
    if args.update_deploying:
        update_deploying(args.update_deploying, intune(table))


if __name__ == "__main__":
    main()
