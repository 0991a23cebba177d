#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Reads the doc comments of the classify interface's operations and writes
them out as a C++ table, so that the command-line host's help and the HTML
reference say the same thing.

Every operation must have a /** */ comment right above its declaration that
says which command it sends ('Sends "CF..."' or 'Sends nothing'), whether it
takes the operation lock ('takes the operation lock' or 'takes no lock'),
what it does to the last error, one \\param per parameter under the
parameter's own name, and a \\return unless it returns void. Anything missing
stops the build with the file and line at fault.

  operationdocs.py --interface H [--extra H NAME...] [--output FILE]
"""

import argparse
import re
import sys

PURE_VIRTUAL = re.compile(
    r"virtual\s+(?P<ret>[^;(]*?)\b(?P<name>\w+)\s*\((?P<params>[^)]*)\)\s*=\s*0\s*;", re.S)
SENDS = re.compile(r'\bSends "(?P<command>[A-Z]+)"|\bSends nothing\b')
LOCKED = re.compile(r"\btakes the operation lock\b", re.I)
UNLOCKED = re.compile(r"\btakes no lock\b", re.I)
LAST_ERROR = re.compile(r"\blast error\b", re.I)


def split_parameters(text):
    parts, depth, part = [], 0, ""
    for c in text:
        depth += {"<": 1, ">": -1}.get(c, 0)
        if c == "," and depth == 0:
            parts.append(part)
            part = ""
        else:
            part += c
    if part.strip():
        parts.append(part)
    return [p.strip() for p in parts]


def parameter(text):
    match = re.match(r"(?P<type>.*?)(?P<name>\w+)$", text.strip(), re.S)
    ptype = " ".join(match.group("type").split())
    # The key the tests use: "QString" for const QString &, "QString&" for
    # an out-parameter, blanks dropped.
    const_ref = ptype.startswith("const ") and ptype.endswith("&")
    key = ptype[len("const "):-1] if const_ref else ptype
    return match.group("name"), key.replace(" ", "")


def clean(lines):
    return " ".join(" ".join(lines).split())


def parse_comment(doc):
    lines = [re.sub(r"^\s*\*\s?", "", line) for line in doc.strip().splitlines()]
    description, params, returns, current = [], [], None, None
    for line in lines:
        tag = re.match(r"\\param\s+(?:\[\w+\]\s+)?(\w+)\s*(.*)", line)
        ret = re.match(r"\\returns?\s*(.*)", line)
        if tag:
            current = [tag.group(2)]
            params.append((tag.group(1), current))
        elif ret:
            current = [ret.group(1)]
            returns = current
        elif current is not None:
            current.append(line)
        else:
            description.append(line)
    paragraphs = [clean(p.splitlines()) for p in "\n".join(description).split("\n\n") if p.strip()]
    text = " ".join(paragraphs)
    # The first sentence is the summary, as Doxygen's autobrief takes it.
    match = re.match(r"(.*?[.!?])(?:\s|$)(.*)", text, re.S)
    brief, details = (match.group(1), match.group(2).strip()) if match else (text, "")
    return (brief, details, [(name, clean(body)) for name, body in params],
            clean(returns) if returns is not None else None)


def line_of(text, offset):
    return text.count("\n", 0, offset) + 1


def comment_before(text, start):
    """The /** */ comment that ends right before `start`, if any."""
    before = text[:start].rstrip()
    if not before.endswith("*/"):
        return None
    opening = before.rfind("/**")
    return before[opening + 3:-2] if opening >= 0 else None


def read_operations(path, wanted=None):
    """The pure virtual operations of `path` in declaration order, or the
    invokable members named in `wanted`, with their docs and every gap
    found in them."""
    text = open(path, encoding="utf-8").read()
    operations, errors, matches = [], [], []
    if wanted is None:
        matches = list(PURE_VIRTUAL.finditer(text))
    for name in wanted or []:
        member = re.compile(r"Q_INVOKABLE\s+(?P<ret>[\w:<>, ]+?)\s+(?P<name>%s)\s*"
                            r"\((?P<params>[^)]*)\)\s*;" % re.escape(name))
        found = member.search(text)
        if found:
            matches.append(found)
        else:
            errors.append("%s: no invokable declaration of %s" % (path, name))
    for match in matches:
        name = match.group("name")
        where = "%s:%d: %s" % (path, line_of(text, match.start()), name)
        params = [parameter(p) for p in split_parameters(match.group("params"))]
        ret = " ".join(match.group("ret").split())
        doc = comment_before(text, match.start())
        if doc is None:
            errors.append("%s has no /** */ comment" % where)
            continue
        brief, details, docparams, returns = parse_comment(doc)
        declared = [n for n, _ in params]
        given = [n for n, _ in docparams]
        for n in declared:
            if given.count(n) != 1:
                errors.append("%s: parameter %s needs exactly one \\param" % (where, n))
        for n in given:
            if n not in declared:
                errors.append("%s: \\param %s names no parameter" % (where, n))
        if ret != "void" and not returns:
            errors.append("%s: the result needs a \\return" % where)
        if ret == "void" and returns:
            errors.append("%s: returns nothing, but has a \\return" % where)
        if not brief:
            errors.append("%s: says nothing about what it does" % where)
        whole = brief + " " + details
        sends = SENDS.search(whole)
        if not sends:
            errors.append('%s: must say which command it sends (Sends "CF..." or Sends nothing)'
                          % where)
        locked, unlocked = bool(LOCKED.search(whole)), bool(UNLOCKED.search(whole))
        if locked == unlocked:
            errors.append("%s: must say either 'takes the operation lock' or 'takes no lock'"
                          % where)
        if not LAST_ERROR.search(whole):
            errors.append("%s: must say what it does to the last error" % where)
        texts = dict(docparams)
        operations.append({
            "name": name,
            "signature": "%s(%s)" % (name, ",".join(k for _, k in params)),
            "brief": brief,
            "details": details,
            "params": [(n, texts.get(n, "")) for n in declared],
            "returns": returns or "",
            "command": (sends.group("command") or "") if sends else "",
            "locked": locked,
        })
    return operations, errors


def literal(text):
    escaped = text.replace("\\", "\\\\").replace('"', '\\"')
    return 'QStringLiteral("%s")' % escaped


def render(interface_ops, extra_ops):
    out = ["// Generated by apidoc/operationdocs.py from the interface's doc comments.",
           "// Do not edit; change the comments in the headers instead.", "",
           '#include "operationdocs.h"', "", "namespace nuvdoc {", "",
           "const QVector<OperationDoc> &operationDocs()", "{",
           "    static const QVector<OperationDoc> docs {"]
    rows = [(i + 1, op) for i, op in enumerate(interface_ops)] + [(0, op) for op in extra_ops]
    for slot, op in rows:
        params = ", ".join("{ %s, %s }" % (literal(n), literal(t)) for n, t in op["params"])
        out.append("        { %d, %s, %s, %s, %s, { %s }, %s, %s, %s }," % (
            slot, literal(op["name"]), literal(op["signature"]), literal(op["brief"]),
            literal(op["details"]), params, literal(op["returns"]), literal(op["command"]),
            "true" if op["locked"] else "false"))
    out += ["    };", "    return docs;", "}", "", "} // namespace nuvdoc", ""]
    return "\n".join(out)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--interface", required=True)
    parser.add_argument("--extra", nargs="+", metavar=("HEADER", "NAME"), default=[])
    parser.add_argument("--output")
    args = parser.parse_args()

    interface_ops, errors = read_operations(args.interface)
    extra_ops = []
    if args.extra:
        extra_ops, extra_errors = read_operations(args.extra[0], args.extra[1:])
        errors += extra_errors
    if errors:
        for error in errors:
            print(error, file=sys.stderr)
        return 1
    if args.output:
        text = render(interface_ops, extra_ops)
        try:
            unchanged = open(args.output, encoding="utf-8").read() == text
        except OSError:
            unchanged = False
        if not unchanged:
            with open(args.output, "w", encoding="utf-8") as f:
                f.write(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
