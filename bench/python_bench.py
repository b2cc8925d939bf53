"""The Python package against psd-tools on one document, measured in the same run.

    python3 bench/python_bench.py FILE [--runs N] [--slow-runs N]

Each task runs in a fresh process (so that peak memory is the task's own) and reports its wall
and CPU time (all threads) from after the imports to the end of the task; the run with the best
wall time counts. On a loaded machine the CPU ratio is the steadier of the two.
  pixels: open the file and get every pixel layer as a numpy array (psdkit: open with
          decoding='on_demand', the documented fast path, and Layer.pixels; psd-tools:
          PSDImage.open and layer.numpy() per layer).
  eager:  the same with the default open (every layer decoded while reading) and Layer.pixels.
  take:   the same with the default open and Layer.take_pixels() (pixels moved out of the layer).
  tree:   list the layer tree, names, bounds and kinds (psdkit: open with decoding='never' and
          walk(); psd-tools: PSDImage.open and descendants()).
Peak memory of psdkit's pixels task is set against 1.2 × (file size + decoded pixels).
"""

import argparse
import json
import os
import resource
import subprocess
import sys
import time


def task(tool, kind, path):
    if tool == "psdkit":
        import psdkit
    else:
        import warnings
        from psd_tools import PSDImage
        warnings.simplefilter("ignore")
    start, cpu_start = time.perf_counter(), time.process_time()
    decoded = 0
    if tool == "psdkit":
        if kind in ("pixels", "eager", "take"):
            doc = psdkit.open(path, decoding="on_demand" if kind == "pixels" else "eager")
            arrays = [layer.take_pixels() if kind == "take" else layer.pixels
                      for layer in doc.layers if layer.kind == "regular"]
            masks = [layer.mask for layer in doc.layers]
            decoded = sum(a.nbytes for a in arrays if a is not None) + sum(m.nbytes for m in masks if m is not None)
        else:
            doc = psdkit.open(path, decoding="never")
            listing = [(depth, node.name, node.bbox, node.kind) for depth, node in doc.walk()]
    else:
        psd = PSDImage.open(path)
        if kind == "pixels":
            arrays = [layer.numpy() for layer in psd.descendants() if layer.kind == "pixel" and layer.has_pixels()]
        else:
            listing = [(layer.name, layer.bbox, layer.kind) for layer in psd.descendants()]
    seconds, cpu = time.perf_counter() - start, time.process_time() - cpu_start
    peak_kib = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
    print(json.dumps({"seconds": seconds, "cpu": cpu, "peak_kib": peak_kib, "decoded": decoded}))


def measure(tool, kind, path, runs):
    results = []
    for _ in range(runs):
        out = subprocess.run([sys.executable, __file__, "--task", tool, kind, path], check=True,
                             capture_output=True, text=True).stdout
        results.append(json.loads(out.strip().splitlines()[-1]))
    best = min(results, key=lambda r: r["seconds"])
    return best["seconds"], best["cpu"], max(r["peak_kib"] for r in results), results[0]["decoded"]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("file", nargs="?")
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--slow-runs", type=int, default=2)
    parser.add_argument("--task", nargs=3)
    args = parser.parse_args()
    if args.task:
        task(*args.task)
        return
    path = os.path.abspath(args.file)
    size = os.path.getsize(path)
    print(f"{os.path.basename(path)}: {size / 2**20:.1f} MiB")
    for kind, goal in (("pixels", 20), ("tree", 10)):
        ours, our_cpu, our_peak, decoded = measure("psdkit", kind, path, args.runs)
        theirs, their_cpu, their_peak, _ = measure("psd-tools", kind, path, args.slow_runs)
        print(f"{kind:6}  psdkit {ours:8.3f} s ({our_cpu:.3f} s CPU)  peak {our_peak / 1024:5.0f} MiB | "
              f"psd-tools {theirs:7.3f} s ({their_cpu:.3f} s CPU)  peak {their_peak / 1024:5.0f} MiB | "
              f"{theirs / ours:6.1f}x wall, {their_cpu / max(our_cpu, 1e-6):6.1f}x CPU (goal {goal}x)")
        if kind == "pixels":
            peaks = [("pixels", our_peak)]
            for variant in ("eager", "take"):
                took, took_cpu, took_peak, _ = measure("psdkit", variant, path, args.runs)
                peaks.append((variant, took_peak))
                print(f"{variant:6}  psdkit {took:8.3f} s ({took_cpu:.3f} s CPU)  peak {took_peak / 1024:5.0f} MiB | "
                      f"{theirs / took:6.1f}x wall, {their_cpu / max(took_cpu, 1e-6):6.1f}x CPU (goal {goal}x)")
            print(f"        decoded pixels {decoded / 2**20:.0f} MiB")
            budget = 1.2 * (size + decoded) / 1024
            for label, peak in peaks:
                print(f"        psdkit {label} peak {peak / 1024:.0f} MiB against 1.2 × (file + decoded pixels) = "
                      f"{budget / 1024:.0f} MiB ({'within' if peak <= budget else 'over'})")


if __name__ == "__main__":
    main()
