#!/usr/bin/env bash
# Builds the release preset and runs the registry benchmarks, then prints a
# table of the figures and of each ratio against the baseline measured beside
# it in the same run. Extra arguments go to the benchmark binary, e.g.
#   scripts/bench.sh --benchmark_filter='BM_LookUp'
#   scripts/bench.sh --benchmark_repetitions=3
# KRC_BENCH names another benchmark binary, e.g.
#   KRC_BENCH=ScenarioBenchmark scripts/bench.sh
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset release >/dev/null
bench="${KRC_BENCH:-RegistryBenchmark}"
nice cmake --build --preset release --target "$bench" >&2
out="$(mktemp "${TMPDIR:-/tmp}/krc-bench-XXXXXX.json")"
trap 'rm -f "$out"' EXIT
"./build/release/Benchmarks/$bench" --benchmark_out="$out" --benchmark_out_format=json \
    "$@" >&2
python3 - "$out" <<'PY'
import json, sys

runs = json.load(open(sys.argv[1]))["benchmarks"]
def fmt(v):
    if v >= 100: return f"{v:,.0f}"
    if v >= 10: return f"{v:.1f}"
    return f"{v:.2f}"

rows = []
for r in runs:
    if r.get("error_occurred"):
        rows.append((r["name"], "ERROR: " + r.get("error_message", ""), "", "", ""))
        continue
    c = {k: v for k, v in r.items() if isinstance(v, (int, float)) and k not in (
        "iterations", "real_time", "cpu_time", "repetitions", "repetition_index",
        "threads", "family_index", "per_family_instance_index")}
    unit = r.get("time_unit", "ns")
    figure = f'{fmt(r["real_time"])} {unit}'
    label = r.get("label", "")
    bases = ", ".join(f"{k[:-3]} {fmt(v)} us" for k, v in c.items()
                      if k.endswith("_us") and k != "subject_us")
    ratios = ", ".join(f"{k[6:]} {v:.2f}x" for k, v in c.items() if k.startswith("ratio_"))
    rest = ", ".join(f"{k} {fmt(v)}" for k, v in c.items()
                     if not k.endswith("_us") and not k.startswith("ratio_"))
    side = f'subject {fmt(c["subject_us"])} us' if "subject_us" in c else ""
    rows.append((r["name"] + (f" ({label})" if label else ""), figure,
                 "; ".join(x for x in (side, bases) if x), ratios, rest))

head = ("benchmark", "time", "side by side", "ratios", "counts")
widths = [max(len(str(x[i])) for x in rows + [head]) for i in range(5)]
line = lambda x: " | ".join(str(v).ljust(w) for v, w in zip(x, widths))
print(line(head))
print("-+-".join("-" * w for w in widths))
for row in rows:
    print(line(row))
PY
