"""The table of targets, from the lines that the benchmarks print: medians, and ratios to the others.

usage: table.py LINES.jsonl
"""
import json
import re
import statistics
import sys

OURS = "mox"
SIGNALS = ("signals2", "signals2_dummy", "qt6")
REPLICATION = ("protobuf", "qtro", "dds")

# Workloads (a pattern), metric, others, what is said of ours / theirs, the limit. "at least" goes by
# the best of the others; where smaller is better (times), that is the smallest.
TARGETS = [
    ("M1", "ns_per_op", ("floor_snapshot_vector",), "at most", 2),
    ("M1", "ns_per_op", SIGNALS, "at most", 0.1),
    ("M2-.*", "ns_per_op", ("floor_snapshot_vector",), "at most", 1.3),
    ("M2-16", "ns_per_op", SIGNALS, "at most", 0.25),
    ("M3", "ns_per_op", ("floor_snapshot_vector",), "at most", 1.3),
    ("M4-.*", "ns_per_op", ("intrusive_ptr_unsafe",), "at most", 1.2),
    ("M5-(hit|miss|insert_erase)-.*", "ns_per_op", ("std_unordered_map",), "at most", 1),
    ("M5-(hit|miss)-u.*", "ns_per_op", ("boost_intrusive",), "at most", 1.5),
    ("M5-walk-.*", "ns_per_op", ("boost_intrusive",), "at most", 1.25),
    ("M6-.*", "ns_per_op", ("qt6_metaproperty", "capnp_dynamic"), "at most", 1),
    ("M6-.*", "ns_per_op", ("protobuf_cached",), "told", None),
    ("R1-.*", "values_per_s", ("floor",), "at least", 0.5),
    ("R1-.*", "values_per_s", REPLICATION, "at least", 1),
    ("R1-.*", "wire_bytes", ("floor",), "at most", 2),
    ("R2-.*", "changes_per_s", REPLICATION, "at least", 1.2),
    ("R2-.*", "changes_per_s", ("floor",), "told", None),
    ("R3S-T1", "p50_us", ("floor",), "at most", 1.3),
    ("R3-T1", "p50_us", ("floor",), "told", None),
    ("R4-T1", "set_ns", ("floor_coalesce",), "at most", 3),
    ("R4-T1", "catch_up_ms", ("floor_coalesce",), "at most", 5),
]


def natural(text):
    return [int(x) if x.isdigit() else x for x in re.split(r"(\d+)", text)]


def number(value):
    if value >= 1e6:
        return f"{value / 1e6:.3g} M"
    if value >= 1e4:
        return f"{value / 1e3:.3g} k"
    return f"{value:.3g}"


def main(path):
    samples = {}
    with open(path) as lines:
        for line in lines:
            entry = json.loads(line)
            key = (entry["workload"], entry["peer"], entry["metric"])
            samples.setdefault(key, []).append(entry["value"])
    medians = {key: statistics.median(values) for key, values in samples.items()}
    # The pointers' peer stands in one workload and measures both.
    pointer = medians.get(("M4-ptr", "intrusive_ptr_unsafe", "ns_per_op"))
    if pointer:
        medians[("M4-str24", "intrusive_ptr_unsafe", "ns_per_op")] = pointer

    rows = []

    def row(workload, metric, ours, other, theirs, ratio, target, is_met):
        verdict = "" if is_met is None else "yes" if is_met else "**no**"
        rows.append(f"| {workload} | {metric} | {number(ours)} | {other} | {theirs} | {ratio} "
                    f"| {target} | {verdict} |")

    workloads = sorted({key[0] for key in medians}, key=natural)
    for pattern, metric, others, relation, limit in TARGETS:
        for workload in workloads:
            ours = medians.get((workload, OURS, metric))
            if ours is None or not re.fullmatch(pattern, workload):
                continue
            present = {o: medians[(workload, o, metric)] for o in others
                       if (workload, o, metric) in medians}
            if not present:
                row(workload, metric, ours, "", "", "", "", None)
                continue
            best = (max if metric.endswith("_per_s") else min)(present, key=present.get)
            ratio = ours / present[best]
            is_met = {"at most": lambda: ratio <= limit, "at least": lambda: ratio >= limit,
                      "told": lambda: None}[relation]()
            row(workload, metric, ours, best, number(present[best]), f"{ratio:.2f}",
                "" if limit is None else f"{relation} {limit}", is_met)
    speeds = [medians.get((f"R1-{size}", OURS, "values_per_s")) for size in ("T1", "T64")]
    if all(speeds):
        ratio = speeds[1] / speeds[0]
        row("R1-T64", "values_per_s", speeds[1], "itself at T1", number(speeds[0]), f"{ratio:.2f}",
            "at least 0.9", ratio >= 0.9)
    growth = medians.get(("R4-T1", OURS, "rss_growth_kib"))
    if growth is not None:
        row("R4-T1", "rss_growth_kib", growth, "", "", "", "at most 64", growth <= 64)

    if rows:
        print("| workload | metric | here | beside | there | ratio | target | met |")
        print("|---|---|---:|---|---:|---:|---|---|")
        print("\n".join(dict.fromkeys(rows)))
    told = {key: v for key, v in medians.items() if key[0].startswith(("memory", "chips", "build"))}
    if told:
        print("\n| tree | of | metric | value |\n|---|---|---|---:|")
        for (workload, peer, metric), value in sorted(told.items(), key=lambda e: natural(e[0][0])):
            print(f"| {workload} | {peer} | {metric} | {number(value)} |")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])
