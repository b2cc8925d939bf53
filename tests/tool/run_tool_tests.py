#!/usr/bin/python3
"""Tests of the psdkit command-line tool: they run the built binary and check what users see.

usage: run_tool_tests.py PSDKIT CORPUS_DIR [GROUP ...] [--update-golden]

Groups: golden (command, input, expected text, from golden.txt), create (create -> info and
psd-tools), export (PNG pixels and index.html), rewrite (PSD -> PSB -> PSD), failures (exit statuses
and no partial output), page (the exported page in a browser). Without GROUP all run.
psd-tools runs in a separate process (../interop/psdtools_oracle.py).
"""
import os
import re
import shlex
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
sys.dont_write_bytecode = True  # no __pycache__ in the source tree

import page_cases  # noqa: E402
import tool_cases  # noqa: E402

GOLDEN = os.path.join(os.path.dirname(os.path.abspath(__file__)), "golden.txt")


class Context:
    def __init__(self, tool, corpus, work):
        self.tool, self.corpus, self.work = tool, corpus, work

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


def run_golden(ctx, update):
    cases, failures = parse_golden(), []
    tool_cases.make_inputs(ctx)

    def normal(text):
        return lines(text.replace(ctx.corpus, "@corpus").replace(ctx.work, "@work"))

    for case in cases:
        args = [a.replace("@corpus", ctx.corpus).replace("@work", ctx.work) for a in shlex.split(case["args"])]
        status, out, err = ctx.run(*args)
        got = {"status": status, "stdout": normal(out), "stderr": normal(err)}
        if update:
            case.update(got)
        failures += ["%s: %s differs\n  expected: %r\n  got:      %r" % (case["title"], key, case[key], got[key])
                     for key in ("status", "stdout", "stderr") if got[key] != case[key] and not update]
    if update:
        with open(GOLDEN, "w", encoding="utf-8") as f:
            f.write("# Golden cases of the psdkit tool: run by tests/tool/run_tool_tests.py.\n"
                    "# Regenerate after a deliberate change with --update-golden, then review the diff.\n")
            for case in cases:
                f.write("\n== %s\n$ %s\nstatus %d\nstdout:\n" % (case["title"], case["args"], case["status"]))
                f.write("".join(line + "\n" for line in case["stdout"]) + "stderr:\n")
                f.write("".join(line + "\n" for line in case["stderr"]))
    return len(cases), failures


GROUPS = {"create": tool_cases.check_create, "export": tool_cases.check_export, "rewrite": tool_cases.check_rewrite,
          "failures": tool_cases.check_failures, "page": page_cases.check_page}


def main(argv):
    update = "--update-golden" in argv
    args = [a for a in argv[1:] if a != "--update-golden"]
    if len(args) < 2:
        print(__doc__)
        return 2
    tool, corpus = os.path.abspath(args[0]), os.path.abspath(args[1])
    passed = failed = 0
    for group in args[2:] or ["golden", *GROUPS]:
        with tempfile.TemporaryDirectory(prefix="psdkit-tool-") as work:
            ctx = Context(tool, corpus, work)
            try:
                count, failures = run_golden(ctx, update) if group == "golden" else GROUPS[group](ctx)
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
