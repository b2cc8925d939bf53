#!/usr/bin/env python3
"""Runs the README's first program over every corpus file.

Checks that the README's example is the code the program compiles, that every file psdkit reads
prints exactly one line per layer record and the size it wrote (no trace lines), and that every
file psdkit refuses gives one line on standard error naming why, exit status 2 and nothing on
standard output.
usage: run.py PROGRAM CORPUS README SOURCE
"""
import json
import pathlib
import re
import subprocess
import sys


def example_lines(text, start, end):
    lines = text.splitlines()
    begin = next(i for i, line in enumerate(lines) if start(line))
    finish = next(i for i in range(begin + 1, len(lines)) if end(lines[i]))
    return [line.rstrip() for line in lines[begin + 1:finish]]


def main():
    program, corpus, readme, source = sys.argv[1:5]
    corpus = pathlib.Path(corpus)
    failures = []
    in_readme = example_lines(pathlib.Path(readme).read_text(),
                              lambda l: l.strip() == "```cpp", lambda l: l.strip() == "```")
    in_source = example_lines(pathlib.Path(source).read_text(),
                              lambda l: "README example begins" in l, lambda l: "README example ends" in l)
    code = [line for line in in_readme if not line.startswith("#include")]
    if code != in_source:
        failures.append("README example differs from examples/first_program.cpp:\n  "
                        + "\n  ".join(code) + "\nversus\n  " + "\n  ".join(in_source))
    expected = json.loads((corpus / "expected-psdkit.json").read_text())
    for name in sorted(expected):
        facts = expected[name]
        if not isinstance(facts, dict) or "outcome" not in facts:
            continue
        run = subprocess.run([program, str(corpus / name)], capture_output=True, timeout=300)
        out = run.stdout.decode("utf-8", "replace").splitlines()
        err = run.stderr.decode("utf-8", "replace")
        # Every RGB file is read; files of other colour modes are refused by their header.
        header = (corpus / name).read_bytes()[:26]
        if int.from_bytes(header[24:26], "big") == 3:
            records = len(facts["layers"]) if facts["outcome"] == "read" else len(out) - 1
            ok = run.returncode == 0 and len(out) == records + 1 and re.fullmatch(r"\d+ bytes written", out[-1])
            ok = ok and all(re.search(r" \d+%$", line) for line in out[:-1]) and not err
            if not ok:
                failures.append(f"{name}: exit {run.returncode}, {len(out)} lines for {records} records, "
                                f"stderr {err!r}, first lines {out[:3]}")
        else:
            ok = run.returncode == 2 and not out and "readUnsupportedColorMode" in err and len(err.splitlines()) == 1
            if not ok:
                failures.append(f"{name}: expected a refusal of its colour mode, got exit {run.returncode}, "
                                f"stdout {out[:3]}, stderr {err!r}")
    for failure in failures:
        print("FAIL", failure)
    print(f"{len(failures)} failures")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
