"""Prints the results of bench/run: each figure beside its floor or its peer of the same run.

table.py DIRECTORY [--growth|--parts]; with one of these the columns of a plot instead."""
import collections
import glob
import json
import os
import statistics
import sys

SIZES = (1, 10, 100, 1000)


def read(path, time="cpu_time"):
    """Median time in microseconds and the counters, by benchmark name (name/size)."""
    if not os.path.exists(path):
        return {}
    unit = {"ns": 1e-3, "us": 1.0, "ms": 1e3}
    runs = collections.defaultdict(list)
    for row in json.load(open(path))["benchmarks"]:
        if row["run_type"] == "iteration" and not row.get("error_occurred"):
            name = row["run_name"].replace("/manual_time", "").replace("/real_time", "")
            runs[name].append(row | {"us": row[time] * unit[row["time_unit"]]})
    return {name: rows[0] | {"us": statistics.median(r["us"] for r in rows)} for name, rows in runs.items()}


def us(results, name):
    return results.get(name, {}).get("us")


def show(value):
    return "-" if value is None else f"{value:,.0f}" if value >= 100 else f"{value:.2f}"


def line(title, size, value, beside, base, aim):
    size = f"{size:,}" if size else ""
    ratio = "-" if not value or not base else f"{value / base:.2f}"
    print(f"| {title} | {size} | {show(value)} | {beside} | {show(base)} | {ratio} | {aim} |")


def heading(title):
    print(f"\n### {title}\n\n| what | file systems | µs | beside | µs | ratio | aim |\n|---|--:|--:|---|--:|--:|--:|")


def exporter(directory, size):
    path = f"{directory}/real-exporter-{size}.txt"
    values = [float(text) * 1e6 for text in open(path)] if os.path.exists(path) else []
    return min(values) if values else None  # it tells the time on the clock: the least is the least disturbed


def fixtures(directory):
    results, traced, off = (read(f"{directory}/{name}.json") for name in ("pass", "traced", "off"))
    heading("Pass, nobody listens")
    for n in SIZES:
        line("pass", n, us(results, f"pass/{n}"), "floor, each step asks", us(results, f"floorBySteps/{n}"), "1.15")
    for n in SIZES:
        line("pass", n, us(results, f"pass/{n}"), "floor, all once", us(results, f"floorOnce/{n}"), "1.15")
    heading("Pass, the trace stand-in bound")
    for n in SIZES:
        plain, bare = us(traced, f"pass/{n}"), us(traced, f"bareWrites/{n}")
        lines = traced.get(f"bareWrites/{n}", {}).get("lines", 0)
        aim = plain + 2 * bare if plain and bare else None
        line(f"normal lines on: {lines:,.0f}", n, us(traced, f"passTraced/{n}"), "pass + 2 bare writes a line", aim, "1")
    for n in SIZES:
        line("normal lines off", n, us(off, f"passNormalOff/{n}"), "pass", us(off, f"pass/{n}"), "1.3")
    heading("Parts")
    for part in ("save", "load", "peek", "resize"):
        for n in SIZES:
            line(part, n, us(results, f"{part}/{n}"), "pass", us(results, f"pass/{n}"), "")


def writer(directory):
    results = read(f"{directory}/writer.json")
    heading("One trace line")
    for threads in (1, 8):
        bare = us(results, f"bareWrite/threads:{threads}")
        for name, title in (("traceFailure", "written"), ("traceSwitchedOff", "switched off")):
            value = next((row["us"] for key, row in results.items()
                          if key.startswith(name) and key.endswith(f"threads:{threads}")), None)
            line(f"{title}, {threads} {'thread' if threads == 1 else 'threads'}", 0, value, "bare write", bare, "2" if name == "traceFailure" else "")


def host(directory):
    results = read(f"{directory}/host.json")
    heading("Requests in the host")
    for mode in ("Outside", "Service"):
        for n in SIZES:
            read_us, enum = us(results, f"read{mode}/{n}"), us(results, f"enumerate{mode}/{n}")
            each = (enum - read_us) / n if enum and read_us else None
            line(f"EnumInstances, {mode.lower()}", n, enum, "reading", read_us, "")
            if each is not None:
                print(f"| an instance over reading | {n:,} | {show(each)} | 17 properties, each | {show(each / 17)} | | 5 µs |")
            line(f"GetInstance, {mode.lower()}", n, us(results, f"get{mode}/{n}"), "reading", read_us, "")
    memory = read(f"{directory}/memory.json")
    print("\n### Memory\n\n| file systems | at rest | more at a pass's peak | a pass leaves | allocations |\n|--:|--:|--:|--:|--:|")
    for n in SIZES[1:]:
        row = next((r for k, r in memory.items() if k.startswith(f"memory/{n}/")), None)
        calls = next((r for k, r in memory.items() if k.startswith(f"allocations/{n}/")), None)
        if row and calls:
            print(f"| {n:,} | {row['resting']:.2f} records | {row['peak']:.2f} records | {row['growth']:.0f} bytes "
                  f"| {calls['perInstance']:.2f} an instance |")


def mounts(directory):
    if not glob.glob(f"{directory}/real-*.json"):
        return
    heading("Bind mounts, nobody listens")
    for n in SIZES[1:]:
        ours = read(f"{directory}/real-pass-{n}.json")
        processes = read(f"{directory}/real-process-{n}.json", "real_time")
        value = us(ours, f"pass/{n}")
        line("pass", n, value, "floor, each step asks", us(ours, f"floorBySteps/{n}"), "1.15")
        line("pass", n, value, "df -P, process", us(processes, "df"), "1")
        line("pass", n, value, "node_exporter's collector", exporter(directory, n), "1")
        tool = us(processes, "oxtfsctl")
        line("oxtfsctl list, process", n, tool, "df -P, process", us(processes, "df"), "1.5")
        line("oxtfsctl list, process", n, tool, "findmnt --df, process", us(processes, "findmnt"), "1.5")


def growth(directory):
    results = read(f"{directory}/pass.json")
    print('size "pass" "floor" "pass, bind mounts" "df -P" "node_exporter"')
    for n in SIZES[1:]:
        processes = read(f"{directory}/real-process-{n}.json", "real_time")
        columns = (us(results, f"pass/{n}"), us(results, f"floorBySteps/{n}"),
                   us(read(f"{directory}/real-pass-{n}.json"), f"pass/{n}"), us(processes, "df"), exporter(directory, n))
        print(n, *("-" if value is None else f"{value / n:.2f}" for value in columns))


def parts(directory):
    """What a pass over bind mounts (a fixture without them) is made of, per file system; the rest is its own work."""
    print('size "both files" "stat, statfs" "segments" "save" "own work"')
    for n in SIZES[1:]:
        results = read(f"{directory}/real-pass-{n}.json") or read(f"{directory}/pass.json")
        values = [us(results, f"part{name}/{n}") for name in ("Files", "Questions", "Segments", "Save")]
        total = us(results, f"pass/{n}")
        if total and None not in values:
            print(f'"{n:,}"', *(f"{value / n:.2f}" for value in values + [max(0, total - sum(values))]))


def main():
    directory = sys.argv[1]
    for option, print_columns in (("--growth", growth), ("--parts", parts)):
        if option in sys.argv:
            print_columns(directory)
            return
    fixtures(directory)
    writer(directory)
    host(directory)
    mounts(directory)
    results = read(f"{directory}/pass.json")
    few, many = us(results, "pass/10"), us(results, "pass/1000")
    if few and many:
        print(f"\nGrowth: a file system of 1,000 costs {many / 1000 / (few / 10):.2f} of one of 10 (aim: 1.5).")


main()
