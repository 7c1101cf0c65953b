#!/usr/bin/env python3
"""Reads one output of mdstore with a real parser of its format and checks that every text of
the store reads back as it was written.

usage: outputs_check.py CHECK OUTPUT TEXTS WORKDIR

TEXTS has a line "OP KEY HEX" per text written into the store ("path - HEX" for the store's
path). A text reads back as its bytes decoded as UTF-8 with each ill-formed sequence replaced
by U+FFFD (as browsers and Python read it); XML cannot carry most control characters, so they
read back as U+FFFD there; a CSV text cell that a spreadsheet would take for a formula starts
with "'"; a capture carries the bytes themselves. Output read by a terminal holds no control
character but the line feeds that end its lines.

Exit status: 0 all holds, 1 with the problems on standard output, 77 when the parser that the
check needs is not installed.
"""
import csv
import html.parser
import io
import json
import re
import shutil
import subprocess
import sys
import xml.etree.ElementTree as ElementTree

FORMULA_STARTS = ("=", "+", "-", "@", "\t", "\r")
TERMINAL_ACTS_ON = re.compile("[\x00-\x09\x0b-\x1f\x7f-\x9f]")
PAIR = re.compile(r' ?([A-Za-z0-9_.]+)=("(?:[^"\\]|\\.)*"|[^ "]*)')
problems = []


def same(what, got, want):
    if got != want:
        problems.append(f"{what}:\n  got  {got!r}\n  want {want!r}")


def readable(raw):
    return raw.decode("utf-8", "replace")


def in_xml(text):
    return "".join("\ufffd" if (c < " " and c not in "\t\n\r") or c in "\ufffe\uffff" else c
                   for c in text)


def skip_without(tool):
    if shutil.which(tool) is None:
        print(f"SKIPPED: {tool} is not installed")
        sys.exit(77)


def terminal_safe(text, what):
    bad = TERMINAL_ACTS_ON.search(text)
    if bad:
        problems.append(f"{what}: a raw {bad.group()!r} reaches the terminal")


def pairs(text):
    """The name=value pairs of a readable record (values quoted as JSON strings)."""
    found, at = {}, 0
    while at < len(text):
        match = PAIR.match(text, at)
        if not match:
            problems.append(f"unreadable fields from {text[at:]!r}")
            break
        found[match.group(1)] = match.group(2)
        at = match.end()
    return found


def nested(record, key):
    for part in key.split("."):
        record = record.get(part, {}) if isinstance(record, dict) else {}
    return record


def check_records(texts, records_of):
    """records_of(op) lists the records of op, each a function from key to its value; the
    last holds the text."""
    for op, key, raw in texts:
        if op == "path":
            continue
        records = records_of(op)
        if not records:
            problems.append(f"no {op} record")
        for value_of in records[-1:]:
            same(f"{op} {key}", value_of(key), readable(raw))


def cat_text(output, texts):
    terminal_safe(output, "cat")
    lines = [line.split(" ") for line in output.splitlines()]

    def records(op):
        fields = [pairs(" " + " ".join(line[line.index(op) + 1:]))
                  for line in lines if op in line[:3]]
        return [lambda key, f=f: json.loads(f.get(key, '""')) for f in fields]

    check_records(texts, records)


def cat_json(output, texts):
    terminal_safe(output, "cat --json")
    lines = [json.loads(line) for line in output.splitlines()]
    check_records(texts, lambda op: [lambda key, r=r: nested(r, key)
                                     for r in lines if r["op"] == op])


def path_text(output, texts):
    terminal_safe(output, "the text")
    stores = [line for line in output.splitlines() if line.startswith("store:")]
    same("store lines", len(stores), 1)
    for line in stores:
        same("store", json.loads('"' + line[len("store:"):].lstrip(" ") + '"'),
             readable(texts[0][2]))


def summary_json(output, texts):
    terminal_safe(output, "summary --json")
    summary = json.loads(output)
    same("store", summary["store"], readable(texts[0][2]))
    same("segment", summary["segments"][0]["path"], readable(texts[0][2]) + ".000001.mdj")


def csv_rows(output, texts):
    rows = list(csv.reader(io.StringIO(output, newline="")))
    same("header", rows[0], ["at", "tick", "utc", "op", "meaning", "latitude", "longitude",
                             "fields"])
    negative = 0
    for row in rows[1:]:
        at, tick, _, _, _, latitude, longitude, _ = row
        int(at), int(tick)
        if latitude:
            negative += float(latitude) < 0 and float(longitude) < 0
        for cell in (row[2], row[3], row[4], row[7]):
            if cell.startswith(FORMULA_STARTS):
                problems.append(f"a spreadsheet takes this cell for a formula: {cell!r}")
    same("fixes south and west, as negative numbers", negative, 3)
    phrase_start = {"ReportStringData": "filler: "}
    for op in {op for op, _, _ in texts if op != "path"}:
        phrase = ", ".join(readable(raw) for o, _, raw in texts if o == op)
        want = phrase_start.get(op, "") + phrase
        for row in rows:
            if row[3] == op:
                same(f"{op} meaning", row[4], "'" + want if want.startswith(FORMULA_STARTS)
                     else want)
    check_records(texts, lambda op: [lambda key, f=pairs(row[7]): json.loads(f.get(key, '""'))
                                     for row in rows if row[3] == op])


def xml(texts, path, namespace, name):
    """A well-formed document (xmllint, then Python's parser) whose element `name` holds the
    store's path."""
    skip_without("xmllint")
    linted = subprocess.run(["xmllint", "--noout", path], capture_output=True, text=True)
    if linted.returncode != 0:
        problems.append("xmllint: " + linted.stderr)
        return
    root = ElementTree.parse(path).getroot()
    same("name", root.find(name, {"x": namespace}).text, in_xml(readable(texts[0][2])))


def geojson(output, texts):
    features = json.loads(output)["features"]
    same("track name", features[0]["properties"]["name"], readable(texts[0][2]))
    same("features", len(features), 4)


class Dom(html.parser.HTMLParser):
    """The elements of a page and the text inside the page's title and each element with an
    id or a class."""

    def __init__(self):
        super().__init__(convert_charrefs=True)
        self.tags, self.open, self.text = [], [], {}

    def handle_starttag(self, tag, attrs):
        self.tags.append((tag, attrs))
        names = dict(attrs)
        page_title = tag == "title" and len(self.tags) < 5  # not the drawings' titles
        self.open.append("title" if page_title else names.get("id") or names.get("class"))

    def handle_endtag(self, tag):
        if self.open:
            self.open.pop()

    def handle_data(self, data):
        for name in self.open:
            if name:
                self.text[name] = self.text.get(name, "") + data


def report(texts, workdir, path):
    skip_without("chromium")
    dumped = subprocess.run(["chromium", "--headless", "--no-sandbox", "--disable-gpu",
                             "--user-data-dir=" + workdir + "/browser", "--dump-dom",
                             "file://" + path], capture_output=True)
    dom = Dom()
    dom.feed(dumped.stdout.decode("utf-8"))
    for tag, attrs in dom.tags:
        if tag in ("script", "iframe", "img", "object") or any(a.startswith("on") for a, _ in
                                                                  attrs):
            problems.append(f"an injected element: <{tag} {attrs}>")
    store = readable(texts[0][2])
    same("title", dom.text.get("title"), "Drive report: " + store)
    same("heading", dom.text.get("sub", "")[:len(store)], store)
    lines = dom.text.get("summary", "").splitlines()
    path_text("\n".join(line for line in lines if line.startswith("store:")), texts)


def capture(output, texts):
    terminal_safe(output, "the capture")
    lines = output.split("\n")
    same("capture header", re.fullmatch(r"linxpeer-capture 1 (big|little)", lines[0]) is not None,
         True)
    payloads = b""
    for line in lines[1:-1]:
        event = re.fullmatch(r"\d+ (tick \d+|sync \S+ \S+|(open|close) \S+|"
                             r"(sent|recv) \S+ \S+ \d+ (-|(?:[0-9a-f]{2})+))|# .*", line)
        if not event:
            problems.append(f"not a capture line: {line!r}")
        elif event.group(4) not in (None, "-"):
            payloads += bytes.fromhex(event.group(4)) + b"|"
    same("the end", lines[-1], "")
    for op, key, raw in texts:
        if op.endswith("Info") and raw + b"\0" not in payloads:
            problems.append(f"{op} {key}: its bytes are in no message")


def main():
    check, path, texts_path, workdir = sys.argv[1:5]
    texts = [(op, key, bytes.fromhex(raw)) for op, key, raw in
             (line.split(" ") for line in open(texts_path).read().splitlines())]
    with open(path, "rb") as file:
        output = file.read().decode("utf-8")
    checks = {
        "cat-text": lambda: cat_text(output, texts),
        "cat-json": lambda: cat_json(output, texts),
        "path-text": lambda: path_text(output, texts),
        "summary-json": lambda: summary_json(output, texts),
        "csv": lambda: csv_rows(output, texts),
        "gpx": lambda: xml(texts, path, "http://www.topografix.com/GPX/1/1", "x:trk/x:name"),
        "kml": lambda: xml(texts, path, "http://www.opengis.net/kml/2.2", "x:Document/x:name"),
        "geojson": lambda: geojson(output, texts),
        "html": lambda: report(texts, workdir, path),
        "capture": lambda: capture(output, texts),
    }
    checks[check]()
    print("\n".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
