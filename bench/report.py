"""Prints the table of bench/compare.sh from the files it leaves in its results folder.

Usage: python3 bench/report.py RESULTS NAME:AIM ...
For each document NAME: hyperfine's NAME-fast.json and NAME-slow.json, one NAME-TOOL.rss per tool
(peak resident set in KiB from /usr/bin/time) and NAME.stats (psdkit_read_document --stats).
AIM is the speed-up over the fastest peer that psdkit aims for on that document. Wall time is what
the aim is about; CPU time (user + system, all threads) is printed beside it because it is less
disturbed by other work on a shared machine."""
import json
import pathlib
import sys

TOOLS = ("psdkit", "ag-psd", "psd-tools")


def load(results, name):
    times = {}
    for part in ("fast", "slow"):
        for entry in json.loads((results / f"{name}-{part}.json").read_text())["results"]:
            times[entry["command"]] = (entry["mean"], entry["stddev"] or 0.0, len(entry["times"]),
                                       entry["user"] + entry["system"])
    rss = {tool: int((results / f"{name}-{tool}.rss").read_text().split()[-1]) * 1024 for tool in TOOLS}
    stats = dict(line.split("=", 1) for line in (results / f"{name}.stats").read_text().split())
    return times, rss, stats


def main():
    results = pathlib.Path(sys.argv[1])
    mb = 1e6
    for item in sys.argv[2:]:
        name, aim = item.split(":")
        times, rss, stats = load(results, name)
        file_bytes = int(stats["file_bytes"])
        decoded = int(stats["decoded_bytes"])
        budget = 1.1 * (2 * file_bytes + decoded)
        print(f"\n{name}.psd: {file_bytes / mb:.1f} MB on disk, {decoded / mb:.1f} MB decoded "
              f"({stats['layer_records']} layer records, {stats['layer_images']} layer images)")
        print(f"  {'tool':<10} {'wall time':>18} {'runs':>5} {'psdkit faster':>14} {'CPU time':>9} "
              f"{'psdkit faster':>14} {'peak RSS':>10}")
        ours, ours_cpu = times["psdkit"][0], times["psdkit"][3]
        for tool in TOOLS:
            mean, sd, n, cpu = times[tool]
            ratio = "" if tool == "psdkit" else f"{mean / ours:.1f}x"
            cpu_ratio = "" if tool == "psdkit" else f"{cpu / ours_cpu:.1f}x"
            print(f"  {tool:<10} {mean:>8.3f} s ± {sd:.3f} {n:>5} {ratio:>14} {cpu:>7.3f} s {cpu_ratio:>14} "
                  f"{rss[tool] / mb:>7.0f} MB")
        fastest = min(times[t][0] for t in TOOLS if t != "psdkit")
        speedup = fastest / ours
        verdict = "met" if speedup >= float(aim) else "NOT met"
        print(f"  wall-time speed-up over the fastest peer: {speedup:.1f}x (aim {aim}x: {verdict})")
        memory = "within" if rss["psdkit"] <= budget else "OVER"
        print(f"  psdkit peak memory {rss['psdkit'] / mb:.0f} MB, budget 1.1 x (2 x file + decoded) = "
              f"{budget / mb:.0f} MB: {memory}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
