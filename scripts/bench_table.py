#!/usr/bin/env python3
"""Turns ole_bench's JSON output into the table of ours against peers (see scripts/bench.sh for the naming
convention that pairs rows). Prints the table and, with --doc, replaces the generated section of that
Markdown file (between BEGIN and END below), creating the file if needed."""

import argparse
import datetime
import json
import os
import platform
import re
import sys

BEGIN = "<!-- scripts/bench.sh: generated section begins -->"
END = "<!-- scripts/bench.sh: generated section ends -->"
OURS = ("Ole", "LightweightString", "Qv::")
TO_NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def split_name(run_name):
    """BM_Case_Side/args or BM_Case<Type>/args -> (case key, side)."""
    depth, cut = 0, len(run_name)
    for i, c in enumerate(run_name):
        depth += c == "<"
        depth -= c == ">"
        if c == "/" and depth == 0:
            cut = i
            break
    head, args = run_name[:cut], run_name[cut:]
    if "<" in head and head.endswith(">"):
        at = head.index("<")
        return head[:at] + args, head[at + 1:-1]
    if "_" in head[3:]:
        case, side = head.rsplit("_", 1)
        return case + args, side
    return run_name, ""


def is_ours(side):
    return side.startswith(OURS)


def pretty(ns):
    for unit, scale in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if ns >= scale:
            return f"{ns / scale:.3g} {unit}"
    return f"{ns:.3g} ns"


def collect(benchmarks):
    """Per run name: the time in ns (median of repetitions, or the single run); and the complexity fits."""
    times, fits, order = {}, {}, []
    for b in benchmarks:
        if b.get("error_occurred"):
            continue
        run = b.get("run_name", b["name"])
        kind = b.get("aggregate_name", "") if b.get("run_type") == "aggregate" else ""
        if kind == "BigO":
            fits.setdefault(run, {}).update(big_o=b["big_o"], coef=b["cpu_coefficient"], unit=b["time_unit"])
        elif kind == "RMS":
            fits.setdefault(run, {})["rms"] = b["rms"]
        elif kind in ("", "median"):
            if run not in times:
                order.append(run)
            # A single run is kept only until a median arrives.
            if kind == "median" or run not in times or times[run][1] != "median":
                # A benchmark timed in real time does its work on other threads as well: its CPU time
                # counts only the thread that waits.
                clock = "real_time" if run.endswith("/real_time") else "cpu_time"
                times[run] = (b[clock] * TO_NS[b["time_unit"]], kind)
    return {r: times[r][0] for r in order}, fits


def pair(times):
    """Rows (case, ours, peer) in the order ours first appear; unpaired benchmarks get a row of their own."""
    cases, order = {}, []
    for run in times:
        case, side = split_name(run)
        if case not in cases:
            cases[case] = {"ours": [], "peers": []}
            order.append(case)
        cases[case]["ours" if is_ours(side) else "peers"].append(run)
    rows = []
    for case in order:
        ours, peers = cases[case]["ours"], cases[case]["peers"]
        peer = peers[0] if peers else None
        rows += [(case, o, peer) for o in ours] or [(case, None, p) for p in peers]
    return rows


def table(times, rows):
    out = ["| ole benchmark | peer benchmark | ole | peer | peer / ole |", "|---|---|---:|---:|---:|"]
    for _, ours, peer in rows:
        t_ours = times.get(ours)
        t_peer = times.get(peer)
        ratio = f"{t_peer / t_ours:.2f}" if t_ours and t_peer else "—"
        out.append(
            f"| `{ours or '—'}` | `{peer or '—'}` | {pretty(t_ours) if t_ours else '—'} | "
            f"{pretty(t_peer) if t_peer else '—'} | {ratio} |")
    return "\n".join(out)


def fit_table(fits):
    if not fits:
        return ""
    out = ["| benchmark | fit | coefficient | RMS |", "|---|---|---:|---:|"]
    for run, f in fits.items():
        big_o = f.get("big_o", "?")
        big_o = "O(1)" if big_o == "(1)" else f"O({big_o})"
        coef = pretty(f.get("coef", 0) * TO_NS.get(f.get("unit", "ns"), 1))
        rms = f"{100 * f['rms']:.0f} %" if "rms" in f else "—"
        out.append(f"| `{run}` | {big_o} | {coef} | {rms} |")
    return "\n".join(out)


def cpu_model():
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    return line.split(":", 1)[1].strip()
    except OSError:
        pass
    return platform.processor() or "unknown CPU"


def write_doc(path, section):
    text = ""
    if os.path.exists(path):
        with open(path) as f:
            text = f.read()
    block = f"{BEGIN}\n{section}\n{END}"
    if BEGIN in text and END in text:
        text = text[:text.index(BEGIN)] + block + text[text.index(END) + len(END):]
    else:
        text = (text or "# Performance\n") + "\n" + block + "\n"
    os.makedirs(os.path.dirname(path) or ".", exist_ok=True)
    with open(path, "w") as f:
        f.write(text)


def main():
    ap = argparse.ArgumentParser(description=__doc__)
    ap.add_argument("json")
    ap.add_argument("--command", default="scripts/bench.sh")
    ap.add_argument("--doc")
    a = ap.parse_args()
    with open(a.json) as f:
        data = json.load(f)
    times, fits = collect(data.get("benchmarks", []))
    rows = pair(times)
    main_table = table(times, rows)
    fitted = fit_table(fits)
    print(main_table)
    if fitted:
        print("\nComplexity fits (time per run as a function of N):\n")
        print(fitted)
    if a.doc:
        stamp = datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d %H:%M UTC")
        machine = f"{os.cpu_count()} CPUs (nproc), {cpu_model()}"
        section = (f"Measured {stamp} on {machine}, with\n\n    {a.command}\n\n"
                   "Times are the median CPU time of the repetitions (real time for the `real_time` rows,\n"
                   "whose work runs on other threads); peer / ole above 1 means ole is faster.\n\n"
                   f"{main_table}\n")
        if fitted:
            section += f"\nComplexity fits (time per run as a function of N, from `->Complexity()`):\n\n{fitted}\n"
        write_doc(a.doc, section)
    return 0


if __name__ == "__main__":
    sys.exit(main())
