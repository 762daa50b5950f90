#!/usr/bin/python3
"""Figures of the crosstalk and high-reflectivity filters (ids 8, 14, 17, 29, 30) on simulated
drives, as quoted in docs/algorithms.md and docs/performance.md.

For every simulated model these filters support, a city drive (8 m/s) and a highway drive
(25 m/s), each dry and with rain, are simulated with the artefacts the model's filters handle and
the usual noise of the other kinds. On each drive `velmar-algo eval` measures every filter alone
(its entry of configs/<model>.json, fed packets as the sensor sends them) and the model's default
pipeline with and without the five filters.

    /usr/bin/python3 tools/strong-return-figures.py [--build build] [--frames 10] [--work DIR]
"""

import argparse
import json
import os
import shutil
import subprocess
import sys
import tempfile

NEW_IDS = (8, 14, 17, 29, 30)

# The noise of the other kinds every drive carries (the rates of the demo drive).
BACKGROUND = {"ghost": 0.5, "close-range": 0.3, "interference": 0.01, "drag": 0.5,
              "sunlight": 0.01, "fixed-echo": 0.5}
RAIN = 0.08

# Model, its configuration, its packet size, the artefacts switched on and which filter answers
# which truth kind.
MODELS = [
    ("ZephelB2/B3/MP", "zephelb2.json", 128, ["crosstalk-v", "crosstalk-h"],
     {8: "crosstalk-v", 14: "ghost", 17: "crosstalk-h"}),
    ("QuillA4", "quilla4.json", 128, ["crosstalk-v", "crosstalk-h"],
     {8: "crosstalk-v", 14: "ghost", 17: "crosstalk-h"}),
    ("ZephelT", "zephelt.json", 96, ["crosstalk-v", "crosstalk-h"],
     {8: "crosstalk-v", 17: "crosstalk-h"}),
    ("Marlo128", "marlo128.json", 128, ["bloom"], {29: "bloom"}),
    ("Orvik48", "orvik48.json", 128, ["bloom"], {30: "bloom"}),
]
SCENES = [("city", 8.0), ("highway", 25.0)]


def run(args):
    result = subprocess.run(args, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if result.returncode != 0:
        sys.exit(" ".join(args) + " failed:\n" + result.stderr)
    return result.stdout


def write_config(path, entries):
    with open(path, "w") as f:
        json.dump({"version": "2.0.6", "enabled": True, "algo_list": entries}, f, indent=2)


def evaluate(tool, model, packet, config, drive, work):
    out = os.path.join(work, "eval.json")
    run([tool, "eval", "--model", model, "--packet", str(packet), "--config", config,
         "--json", out, drive])
    with open(out) as f:
        return json.load(f)


def share(part, whole):
    return 100.0 * part / whole if whole else 0.0


def real_removed(block, recorded):
    by_class = block["by_class"]
    removed = sum(by_class.get(k, {}).get("removed", 0) for k in ("real", "ground"))
    returns = sum(recorded["by_class"].get(k, {}).get("returns", 0) for k in ("real", "ground"))
    return share(removed, returns)


def real_count(block):
    return sum(block["by_class"].get(k, {}).get("removed", 0) for k in ("real", "ground"))


def signs_removed(block):
    return block.get("signs", {}).get("removed", 0)


# Real returns that each other stage removes more (or fewer) with the new filters than without.
def rise_by_stage(before, after):
    removed = {s["id"]: real_count(s) for s in before["algorithms"]}
    parts = []
    for stage in after["algorithms"]:
        if stage["id"] in NEW_IDS:
            continue
        change = real_count(stage) - removed.get(stage["id"], 0)
        if change:
            parts.append("%d: %+d" % (stage["id"], change))
    return ", ".join(parts) or "none"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default="build")
    parser.add_argument("--frames", type=int, default=10)
    parser.add_argument("--work", default=None, help="scratch folder (default: a temporary one)")
    options = parser.parse_args()
    tool = os.path.join(options.build, "tools", "velmar-algo")
    work = options.work or tempfile.mkdtemp(prefix="strong-returns-")
    os.makedirs(work, exist_ok=True)
    filters, pipelines = [], []
    for model, config_name, packet, kinds, own_kind in MODELS:
        with open(os.path.join("configs", config_name)) as f:
            config = json.load(f)
        entries = {e["id"]: e for e in config["algo_list"]}
        for scene, speed in SCENES:
            for rain in (0.0, RAIN):
                drive = os.path.join(work, "drive")
                shutil.rmtree(drive, ignore_errors=True)
                noise = dict(BACKGROUND, **{k: 1.0 for k in kinds})
                if rain:
                    noise["rain"] = rain
                args = [tool, "simulate", "--model", model, "--scene", scene, "--ego-speed",
                        str(speed), "--frames", str(options.frames), "--seed", "1", "-o", drive]
                for kind, rate in noise.items():
                    args += ["--" + kind, str(rate)]
                run(args)
                label = (model, scene, "rain %.2f" % rain if rain else "dry")
                for algo_id, kind in own_kind.items():
                    single = os.path.join(work, "single.json")
                    write_config(single, [entries[algo_id]])
                    report = evaluate(tool, model, packet, single, drive, work)
                    stage, recorded = report["algorithms"][0], report["pipeline"]
                    own = recorded["by_class"].get(kind, {"returns": 0})
                    signs = recorded.get("signs", {"returns": 0, "removed": 0})
                    filters.append(label + (algo_id, kind, own["returns"],
                                            share(stage["by_class"].get(kind, {}).get("removed", 0),
                                                  own["returns"]),
                                            real_count(stage), real_removed(stage, recorded),
                                            signs["returns"],
                                            share(signs["returns"] - signs["removed"],
                                                  signs["returns"])))
                without = os.path.join(work, "without.json")
                write_config(without, [e for e in config["algo_list"] if e["id"] not in NEW_IDS])
                before = evaluate(tool, model, packet, without, drive, work)
                after = evaluate(tool, model, packet, os.path.join("configs", config_name), drive,
                                 work)
                returns = sum(after["pipeline"]["by_class"].get(k, {}).get("returns", 0)
                              for k in ("real", "ground"))
                own = sum(real_count(s) for s in after["algorithms"] if s["id"] in NEW_IDS)
                pipelines.append(label + (
                    returns, real_count(before["pipeline"]), real_count(after["pipeline"]), own,
                    rise_by_stage(before, after), signs_removed(before["pipeline"]),
                    signs_removed(after["pipeline"]), 100.0 * before["pipeline"]["noise_recall"],
                    100.0 * after["pipeline"]["noise_recall"]))
                shutil.rmtree(drive, ignore_errors=True)
    print("| Model | Scene | Weather | Id | Kind | Returns of the kind | Removed |"
          " Real returns removed | Sign returns | Sign returns kept |")
    print("|---|---|---|---|---|---|---|---|---|---|")
    for row in filters:
        print("| %s | %s | %s | %d | %s | %d | %.2f %% | %d (%.4f %%) | %d | %.2f %% |" % row)
    print()
    print("| Model | Scene | Weather | Real returns | Real removed without 8/14/17/29/30 | with |"
          " by the five | other stages' change | Sign returns removed without | with |"
          " Noise recall without | with |")
    print("|---|---|---|---|---|---|---|---|---|---|---|---|")
    for row in pipelines:
        print("| %s | %s | %s | %d | %d | %d | %d | %s | %d | %d | %.2f %% | %.2f %% |" % row)
    if options.work is None:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
