#!/usr/bin/python3
"""Tests of the psdkit command-line tool: they run the built binary and check what users see.

usage: run_tool_tests.py PSDKIT CORPUS_DIR [GROUP ...] [--update-golden]

Groups: golden (command, input, expected text, from golden.txt), create (create -> info and
psd-tools), export (PNG pixels and index.html), rewrite (PSD -> PSB -> PSD), failures (exit statuses
and no partial output), page (the exported page in a browser). Without GROUP all run.
"""
import os
import re
import shlex
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
sys.dont_write_bytecode = True  # no __pycache__ in the source tree

import tool_cases  # noqa: E402

GOLDEN = os.path.join(os.path.dirname(os.path.abspath(__file__)), "golden.txt")


class Context:
    def __init__(self, tool, corpus, work, update_golden=False):
        self.tool, self.corpus, self.work, self.update_golden = tool, corpus, work, update_golden

    def run(self, *args, **options):
        """Runs the tool; returns (status, stdout, stderr) as text."""
        done = subprocess.run([self.tool, *args], capture_output=True, timeout=300, **options)
        return done.returncode, done.stdout.decode("utf-8", "replace"), done.stderr.decode("utf-8", "replace")

    def path(self, name):
        return os.path.join(self.work, name)

    def corpus_file(self, name):
        path = os.path.join(self.corpus, name)
        if not os.path.exists(path):
            raise AssertionError("corpus file missing: " + path)
        return path


def parse_golden():
    """golden.txt: cases separated by '== title' lines; each has '$ args', 'status N',
    'stdout:' and 'stderr:' sections. @corpus and @work stand for the two folders."""
    with open(GOLDEN, encoding="utf-8") as f:
        blocks = re.split(r"^== ", f.read(), flags=re.M)[1:]
    cases = []
    for block in blocks:
        title, args, status, out, err = re.fullmatch(r"(.*)\n\$ (.*)\nstatus (\d+)\nstdout:\n((?:.*\n)*?)stderr:\n(.*)",
                                                     block, re.S).groups()
        cases.append({"title": title, "args": args, "status": int(status), "stdout": lines(out), "stderr": lines(err)})
    return cases


def lines(text):
    """The lines of `text` without the empty ones at its end."""
    return text.rstrip("\n").split("\n") if text.strip("\n") else []


def check_golden(ctx):
    cases, checks = parse_golden(), tool_cases.Checks()
    tool_cases.make_inputs(ctx)

    def normal(text):
        return lines(text.replace(ctx.corpus, "@corpus").replace(ctx.work, "@work"))

    for case in cases:
        args = [a.replace("@corpus", ctx.corpus).replace("@work", ctx.work) for a in shlex.split(case["args"])]
        status, out, err = ctx.run(*args)
        got = {"status": status, "stdout": normal(out), "stderr": normal(err)}
        if ctx.update_golden:
            case.update(got)
        for key in ("status", "stdout", "stderr"):
            checks.equal("%s: %s" % (case["title"], key), got[key], case[key])
    if ctx.update_golden:
        with open(GOLDEN, "w", encoding="utf-8") as f:
            f.write("# Golden cases of the psdkit tool: run by tests/tool/run_tool_tests.py.\n"
                    "# Regenerate after a deliberate change with --update-golden, then review the diff.\n")
            for case in cases:
                f.write("\n== %s\n$ %s\nstatus %d\nstdout:\n" % (case["title"], case["args"], case["status"]))
                f.write("".join(line + "\n" for line in case["stdout"]) + "stderr:\n")
                f.write("".join(line + "\n" for line in case["stderr"]))
    return checks


GROUPS = {"golden": check_golden, "create": tool_cases.check_create, "export": tool_cases.check_export,
          "rewrite": tool_cases.check_rewrite, "failures": tool_cases.check_failures, "page": tool_cases.check_page}


def main(argv):
    args = [a for a in argv[1:] if a != "--update-golden"]
    if len(args) < 2:
        print(__doc__)
        return 2
    failures = []
    for group in args[2:] or GROUPS:
        with tempfile.TemporaryDirectory(prefix="psdkit-tool-") as work:
            try:
                checks = GROUPS[group](Context(os.path.abspath(args[0]), os.path.abspath(args[1]), work,
                                               "--update-golden" in argv))
            except Exception as e:  # a crash of the test itself counts as one failure
                checks = tool_cases.Checks()
                checks.equal(group, "%s: %s" % (type(e).__name__, e), "no exception")
        print("".join("FAIL [%s] %s\n" % (group, failure) for failure in checks.failures), end="")
        print("%s: %d checks, %d failed" % (group, checks.count, len(checks.failures)))
        failures += checks.failures
    print("%d failed" % len(failures))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
