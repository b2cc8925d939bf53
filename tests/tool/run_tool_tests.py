#!/usr/bin/python3
"""Tests of the psdkit command-line tool: they run the built binary and check what users see.

usage: run_tool_tests.py PSDKIT CORPUS_DIR [GROUP ...] [--update-golden]

Groups: golden (command, input, expected text, from golden.txt), create (create -> info and
psd-tools), export (PNG pixels and index.html), rewrite (PSD -> PSB -> PSD), failures (exit statuses
and no partial output), page (the exported page in a browser). Without GROUP all run.
Only the standard library is used here; psd-tools runs in a separate process
(../interop/psdtools_oracle.py).
"""
import json
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)

import pngio  # noqa: E402
import page_cases  # noqa: E402
import tool_cases  # noqa: E402


class Context:
    def __init__(self, tool, corpus, work):
        self.tool = tool
        self.corpus = corpus
        self.work = work

    def run(self, *args, env=None):
        """Runs the tool; returns (status, stdout, stderr) as text."""
        merged = dict(os.environ)
        merged.update(env or {})
        done = subprocess.run([self.tool, *args], capture_output=True, timeout=300, env=merged)
        return (done.returncode, done.stdout.decode("utf-8", "replace"), done.stderr.decode("utf-8", "replace"))

    def path(self, name):
        return os.path.join(self.work, name)

    def corpus_file(self, name):
        path = os.path.join(self.corpus, name)
        if not os.path.exists(path):
            raise AssertionError("corpus file missing: " + path)
        return path


def parse_golden(path):
    """golden.txt: cases separated by '== title' lines; each has '$ args', 'status N',
    'stdout:' and 'stderr:' sections. @corpus and @work stand for the two folders."""
    cases, case, section = [], None, None
    with open(path, encoding="utf-8") as f:
        for line in f:
            line = line.rstrip("\n")
            if line.startswith("== "):
                case = {"title": line[3:], "args": None, "status": None, "stdout": [], "stderr": []}
                cases.append(case)
                section = None
            elif case is None or (section is None and not line.strip()):
                continue
            elif section is None and line.startswith("$ "):
                case["args"] = line[2:]
            elif section is None and line.startswith("status "):
                case["status"] = int(line[7:])
            elif line in ("stdout:", "stderr:"):
                section = line[:-1]
            else:
                case[section].append(line)
    for case in cases:
        for key in ("stdout", "stderr"):
            while case[key] and not case[key][-1]:
                case[key].pop()
    return cases


def write_golden(path, cases):
    with open(path, "w", encoding="utf-8") as f:
        f.write("# Golden cases of the psdkit tool: run by tests/tool/run_tool_tests.py.\n"
                "# Regenerate after a deliberate change with --update-golden, then review the diff.\n")
        for case in cases:
            f.write("\n== %s\n$ %s\nstatus %d\nstdout:\n" % (case["title"], case["args"], case["status"]))
            f.write("".join(line + "\n" for line in case["stdout"]))
            f.write("stderr:\n")
            f.write("".join(line + "\n" for line in case["stderr"]))


def run_golden(ctx, update):
    golden_path = os.path.join(HERE, "golden.txt")
    cases = parse_golden(golden_path)
    tool_cases.make_inputs(ctx)
    failures = []
    for case in cases:
        args = [a.replace("@corpus", ctx.corpus).replace("@work", ctx.work) for a in split_args(case["args"])]
        status, out, err = ctx.run(*args)

        def normal(text):
            text = text.replace(ctx.corpus, "@corpus").replace(ctx.work, "@work")
            lines = text.split("\n")
            while lines and not lines[-1]:
                lines.pop()
            return lines

        got = {"status": status, "stdout": normal(out), "stderr": normal(err)}
        if update:
            case.update(got)
            continue
        for key in ("status", "stdout", "stderr"):
            if got[key] != case[key]:
                failures.append("%s: %s differs\n  expected: %r\n  got:      %r"
                                % (case["title"], key, case[key], got[key]))
    if update:
        write_golden(golden_path, cases)
    return len(cases), failures


def split_args(text):
    """Splits on spaces; single quotes group (no escapes)."""
    args, current, quoted, has = [], "", False, False
    for ch in text:
        if ch == "'":
            quoted, has = not quoted, True
        elif ch == " " and not quoted:
            if has:
                args.append(current)
            current, has = "", False
        else:
            current, has = current + ch, True
    if has:
        args.append(current)
    return args


GROUPS = {
    "create": tool_cases.check_create,
    "export": tool_cases.check_export,
    "rewrite": tool_cases.check_rewrite,
    "failures": tool_cases.check_failures,
    "page": page_cases.check_page,
}


def main(argv):
    update = "--update-golden" in argv
    args = [a for a in argv[1:] if a != "--update-golden"]
    if len(args) < 2:
        print(__doc__)
        return 2
    tool, corpus, groups = os.path.abspath(args[0]), os.path.abspath(args[1]), args[2:]
    groups = groups or ["golden", *GROUPS]
    passed = failed = 0
    for group in groups:
        with tempfile.TemporaryDirectory(prefix="psdkit-tool-") as work:
            ctx = Context(tool, corpus, work)
            try:
                if group == "golden":
                    count, failures = run_golden(ctx, update)
                else:
                    count, failures = GROUPS[group](ctx)
            except Exception as e:  # a crash of the test itself counts as one failure
                count, failures = 1, ["%s: %s: %s" % (group, type(e).__name__, e)]
        for failure in failures:
            print("FAIL [%s] %s" % (group, failure))
        failed += len(failures)
        passed += max(count - len(failures), 0)
        print("%s: %d checks, %d failed" % (group, count, len(failures)))
    print("%d passed, %d failed" % (passed, failed))
    return 0 if failed == 0 else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv))
