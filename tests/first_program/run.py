#!/usr/bin/env python3
"""usage: run.py PROGRAM CORPUS README SOURCE: the README's example is the code the program
compiles; run over every corpus file, the program prints one line per layer record and the size
it wrote for every file psdkit reads (no trace lines), and for every file psdkit refuses one line
on standard error naming why, exit status 2 and nothing on standard output."""
import json
import pathlib
import re
import subprocess
import sys


def example_lines(path, start, end):
    lines = [line.rstrip() for line in pathlib.Path(path).read_text().splitlines()]
    begin = next(i for i, line in enumerate(lines) if start in line)
    return lines[begin + 1:next(i for i in range(begin + 1, len(lines)) if end in lines[i])]


def main(program, corpus, readme, source):
    corpus, failures = pathlib.Path(corpus), []
    code = [line for line in example_lines(readme, "```cpp", "```") if not line.startswith("#include")]
    in_source = example_lines(source, "README example begins", "README example ends")
    if code != in_source:
        failures.append("README example differs from examples/first_program.cpp:\n  %s\nversus\n  %s"
                        % ("\n  ".join(code), "\n  ".join(in_source)))
    for name, facts in sorted(json.loads((corpus / "expected-psdkit.json").read_text()).items()):
        if not isinstance(facts, dict) or "outcome" not in facts:
            continue
        run = subprocess.run([program, str(corpus / name)], capture_output=True, timeout=300)
        out, err = run.stdout.decode("utf-8", "replace").splitlines(), run.stderr.decode("utf-8", "replace")
        # Every RGB file is read; files of other colour modes are refused by their header.
        if int.from_bytes((corpus / name).read_bytes()[24:26], "big") == 3:
            records = len(facts["layers"]) if facts["outcome"] == "read" else len(out) - 1
            ok = run.returncode == 0 and len(out) == records + 1 and re.fullmatch(r"\d+ bytes written", out[-1])
            ok = ok and all(re.search(r" \d+%$", line) for line in out[:-1]) and not err
        else:
            ok = run.returncode == 2 and not out and "readUnsupportedColorMode" in err and len(err.splitlines()) == 1
        if not ok:
            failures.append(f"{name}: exit {run.returncode}, {len(out)} lines, stderr {err!r}, first lines {out[:3]}")
    for failure in failures:
        print("FAIL", failure)
    print(f"{len(failures)} failures")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:5]))
