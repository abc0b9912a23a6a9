#!/usr/bin/env python3
"""Time and peak memory of the tool's record conversions and queries on a
generated JSON file, beside jq and Python's json module doing the same work
in the same run.

    python3 bench/records_pipeline.py [--nvk build/default/nvk] [--mb 100] [--dir DIR]

Generates DIR/records.json of about MB megabytes (an array of records, one a
line, the shape of the tool tests' generated records), then runs each task
once per program, output to files in DIR, and prints one Markdown table:
wall and CPU time (user and system, which a loaded machine disturbs less),
peak resident size (GNU time's %M), both per MB of input, and the
peer's CPU time and memory as multiples of nvk's. Peers: jq reading the whole
array and jq's streaming form; Python's json.load of the whole file and
json.loads a line at a time (the file has one record a line). The peers know
no node file, so for the node-file rows they do their JSON work.
DIR defaults to a new temporary folder, removed at the end.
"""
import argparse
import os
import shutil
import subprocess
import sys
import tempfile

WORDS = ["alpha", "gamma \\u00e9t\\u00e9", "line\\nbreak", "\\\"quoted\\\"", "\\u2713 ok", "</tag>", "", "12"]


def generate(path, megabytes):
    """Records as tests/tools/GeneratedRecords.h writes them."""
    limit = megabytes << 20
    state, n, written = 1, 0, 1
    mask = (1 << 64) - 1
    with open(path, "w", encoding="utf-8") as out:
        out.write("[")
        chunk = []
        while written < limit:
            state = (state * 6364136223846793005 + 1442695040888963407) & mask
            r = state >> 33
            line = (",\n" if n else "") + (
                '{"id":%d,"name":"item-%d","score":%d.%d,"ok":%s,"note":"%s","none":null,"tags":["%s","b"],'
                '"grid":[[1,2],[3,%d]],"place":{"x":%d,"y":%d.25,"label":"%s"},'
                '"parts":[{"k":1,"w":"%s"},{"k":2,"w":"x"}]}'
                % (n, r % 1000, r % 997, r % 10, "true" if r & 1 else "false", WORDS[r % 8], WORDS[(r >> 3) % 8],
                   r % 50, r % 200 - 100, r % 7, WORDS[(r >> 6) % 8], WORDS[(r >> 9) % 8]))
            chunk.append(line)
            written += len(line.encode("utf-8"))
            n += 1
            if len(chunk) == 4096:
                out.write("".join(chunk))
                chunk = []
        out.write("".join(chunk) + "]\n")
    return n


PY_TO_JSON = ("import json,sys\n"
              "data=json.load(open(sys.argv[1],encoding='utf-8'))\n"
              "out=open(sys.argv[2],'w',encoding='utf-8')\n"
              "for r in data: out.write(json.dumps(r,ensure_ascii=False,separators=(',',':'))+'\\n')\n")
PY_QUERY = ("import json,sys\n"
            "data=json.load(open(sys.argv[1],encoding='utf-8'))\n"
            "out=sys.stdout\n"
            "for r in data: out.write(r['name']+'\\n')\n")
# The same a line at a time, which the file's layout (one record a line) allows: memory bounded.
PY_LINES = ("import json,sys\n"
            "def records(path):\n"
            "    for line in open(path,encoding='utf-8'):\n"
            "        line=line.strip().lstrip('[').rstrip(']').rstrip(',')\n"
            "        if line: yield json.loads(line)\n")
PY_LINES_TO_JSON = PY_LINES + (
    "out=open(sys.argv[2],'w',encoding='utf-8')\n"
    "for r in records(sys.argv[1]): out.write(json.dumps(r,ensure_ascii=False,separators=(',',':'))+'\\n')\n")
PY_LINES_QUERY = PY_LINES + (
    "out=sys.stdout\n"
    "for r in records(sys.argv[1]): out.write(r['name']+'\\n')\n")
# jq's streaming form reads a record at a time too (memory bounded, more work per value).
JQ_STREAM = "fromstream(1|truncate_stream(inputs))"


def measure(argv, stdout_path):
    """Wall seconds, CPU seconds (user and system) and peak resident KiB of one run.

    GNU time starts the program: a child forked from this Python process would
    count Python's own pages in its peak until it calls exec."""
    report = stdout_path + ".time"
    with open(stdout_path, "wb") as out:
        status = subprocess.call(["/usr/bin/time", "-f", "%e %U %S %M", "-o", report] + argv, stdout=out)
    if status != 0:
        sys.exit("failed (%d): %s" % (status, " ".join(argv)))
    with open(report) as f:
        wall, user, system, kib = f.read().split()[-4:]
    return float(wall), float(user) + float(system), int(kib)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--nvk", default="build/default/nvk")
    ap.add_argument("--mb", type=int, default=100)
    ap.add_argument("--dir")
    ap.add_argument("--skip", action="append", default=[],
                    help="leave out the peers whose name starts so (e.g. 'jq -c' when it would not fit in memory)")
    args = ap.parse_args()
    nvk = os.path.abspath(args.nvk)
    work = args.dir or tempfile.mkdtemp(prefix="nvk-records-bench-")
    os.makedirs(work, exist_ok=True)
    try:
        src = os.path.join(work, "records.json")
        nodes = os.path.join(work, "records.nvkb")
        count = generate(src, args.mb)
        size_mb = os.path.getsize(src) / (1 << 20)
        print("%d records, %.1f MB of JSON (%s)\n" % (count, size_mb, src))
        o = lambda name: os.path.join(work, name)
        peers_to_json = [
            ("jq -c '.[]'", ["jq", "-c", ".[]", src]),
            ("jq -cn --stream", ["jq", "-cn", "--stream", JQ_STREAM, src]),
            ("python3 json.load", [sys.executable, "-c", PY_TO_JSON, src, o("py.jsonl")]),
            ("python3 json.loads a line", [sys.executable, "-c", PY_LINES_TO_JSON, src, o("py.jsonl")]),
        ]
        peers_query = [
            ("jq -r '.[].name'", ["jq", "-r", ".[].name", src]),
            ("jq -rn --stream", ["jq", "-rn", "--stream", JQ_STREAM + " | .name", src]),
            ("python3 json.load", [sys.executable, "-c", PY_QUERY, src]),
            ("python3 json.loads a line", [sys.executable, "-c", PY_LINES_QUERY, src]),
        ]
        keep = lambda peers: [p for p in peers if not any(p[0].startswith(x) for x in args.skip)]
        peers_to_json, peers_query = keep(peers_to_json), keep(peers_query)
        tasks = [
            ("JSON to node file", "nvk json F --to-bin B", [nvk, "json", src, "--to-bin", nodes, "--quiet"], peers_to_json),
            ("JSON to JSON", "nvk json F --to-json O", [nvk, "json", src, "--to-json", o("nvk.json"), "--quiet"],
             peers_to_json),
            ("node file to JSON", "nvk bin B --to-json O", [nvk, "bin", nodes, "--to-json", o("bin.json"), "--quiet"],
             peers_to_json),
            ("query, JSON", "nvk query @name F", [nvk, "query", "@name", src, "--quiet"], peers_query),
            ("query, node file", "nvk query @name B", [nvk, "query", "@name", nodes, "--quiet"], peers_query),
        ]
        print("| task | program | wall | CPU | CPU s per MB | peak memory | peak MB per MB | time vs nvk | memory vs nvk |")
        print("|---|---|---|---|---|---|---|---|---|")
        peer_runs = {}
        for task, label, argv, peers in tasks:
            ours = measure(argv, o("stdout"))
            rows = [(label, ours)]
            for name, peer_argv in peers:
                key = tuple(peer_argv)
                if key not in peer_runs:
                    peer_runs[key] = measure(peer_argv, o("stdout"))
                rows.append((name, peer_runs[key]))
            for name, (seconds, cpu, kib) in rows:
                peak = kib / 1024
                ratio = "1 | 1" if name == label else "%.2f | %.1f" % (cpu / ours[1], kib / ours[2])
                print("| %s | %s | %.2f s | %.2f s | %.4f | %.0f MB | %.3f | %s |" % (
                    task, name, seconds, cpu, cpu / size_mb, peak, peak / size_mb, ratio))
            sys.stdout.flush()
        with open(o("nvk.json"), "rb") as a, open(o("bin.json"), "rb") as b:
            if a.read() != b.read():
                sys.exit("the JSON written from the node file differs from the JSON written from JSON")
    finally:
        if not args.dir:
            shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
