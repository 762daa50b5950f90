"""Runs a pipeline over many recordings on a Dask cluster, one task per recording.

    python3 -m velmar.batch --model M --config C [--scheduler tcp://HOST:PORT] [--workers N]
                            [--packet N] [--force] [--eval] [--eval-json FILE] IN... OUT_DIR

Each IN is a recording folder or a folder of recordings; each recording's output goes to
OUT_DIR/<its folder name>, with the frames `velmar-algo run` writes, byte for byte. Without
--scheduler a LocalCluster of one worker process per core (or --workers) runs on this machine.

A task keeps a recording's frames in order (the algorithms carry state from frame to frame),
writes into a hidden folder beside its output and renames it into place once complete, so a
killed worker leaves no partial output and Dask's retry of the task starts afresh. An output
whose batch.json shows it was made from the same input, model, configuration text and packet
size is complete and is skipped (resume) unless --force. One batch at a time per OUT_DIR.
"""

import argparse
import hashlib
import json
import logging
import os
import shutil
import sys
import time
import uuid
from dataclasses import dataclass

from . import _velmar, model_name

SIDECAR = "batch.json"
PART_MARK = ".velmar-part-"
SURFACE_CLASSES = ("real", "ground")
COUNTS = ("returns", "removed", "flagged", "moved", "added")

# The allocator settings a worker process starts with. A Marlo128 frame is 42 MB, larger than
# anything glibc serves from its heap, so each frame buffer is mapped afresh and unmapped when
# freed; Dask's nanny also starts workers with a small MALLOC_TRIM_THRESHOLD_, and a task's
# thread allocates from an arena of its own. Every recording then faulted its frames' pages in
# anew, which on a virtual machine took longer than the pipeline itself. A worker that serves
# everything from one heap and never trims it reuses the same pages from one recording to the
# next; in exchange it keeps its peak memory (a few hundred MB with Marlo128 frames).
WORKER_MEMORY_ENVIRON = {
    "MALLOC_ARENA_MAX": "1",
    "MALLOC_MMAP_MAX_": "0",
    "MALLOC_TRIM_THRESHOLD_": str(4 << 30),
}


@dataclass(frozen=True)
class Job:
    """One recording to run: everything a worker needs, in plain values."""

    input: str
    output: str
    model: str
    config: str
    config_sha256: str
    packet: int
    force: bool = False

    @property
    def name(self):
        return os.path.basename(self.output)


class BatchError(Exception):
    """A problem with the command line's inputs, reported as one line."""


# ----------------------------------------------------------------------------------- worker side


def _stamp(job):
    """What an output must have been made from to count as complete."""
    return {"input": job.input, "model": job.model, "config_sha256": job.config_sha256,
            "packet": job.packet}


def _finished(job):
    """The recorded result of a complete output for this job, or None."""
    try:
        with open(os.path.join(job.output, SIDECAR), encoding="utf-8") as file:
            sidecar = json.load(file)
    except (OSError, ValueError):
        return None
    if not isinstance(sidecar, dict) or sidecar.get("made_from") != _stamp(job):
        return None
    return sidecar.get("result")


def _move_into_place(part, final):
    """Renames the finished part folder to ``final``, replacing an older output."""
    if os.path.exists(final):
        old = f"{os.path.dirname(final)}/{PART_MARK}old-{uuid.uuid4().hex}"
        os.rename(final, old)
        os.rename(part, final)
        shutil.rmtree(old, ignore_errors=True)
    else:
        os.rename(part, final)


def process_recording(job):
    """Runs one recording (on a worker) and returns its figures; skips a complete output."""
    if not job.force:
        done = _finished(job)
        if done is not None:
            return {**done, "name": job.name, "status": "skipped"}
    started = time.perf_counter()
    part = os.path.join(os.path.dirname(job.output), f"{PART_MARK}{job.name}-{uuid.uuid4().hex}")
    try:
        figures = _velmar.run_recording(job.model, job.config, job.packet, job.input, part)
        result = {key: figures[key] for key in ("frames", "points_in", "points_out",
                                                 "returns_in", "returns_out",
                                                 "unreturned_packets", "seconds")}
        result["by_class"] = json.loads(figures["eval_json"])["pipeline"]["by_class"]
        result["messages"] = figures["messages"]
        result["task_seconds"] = time.perf_counter() - started
        with open(os.path.join(part, SIDECAR), "w", encoding="utf-8") as file:
            json.dump({"made_from": _stamp(job), "result": result}, file, indent=1)
        _move_into_place(part, job.output)
    finally:
        shutil.rmtree(part, ignore_errors=True)
    return {**result, "name": job.name, "status": "done"}


# ----------------------------------------------------------------------------------- driver side


def find_recordings(inputs):
    """Recording folders named by ``inputs``: each is a recording or a folder of recordings."""
    found = []
    for given in inputs:
        if os.path.isfile(os.path.join(given, "recording.json")):
            found.append(given)
        elif os.path.isdir(given):
            inside = sorted(entry.path for entry in os.scandir(given)
                            if os.path.isfile(os.path.join(entry.path, "recording.json")))
            if not inside:
                raise BatchError(f"{given}: neither a recording nor a folder of recordings")
            found.extend(inside)
        else:
            raise BatchError(f"{given}: no such recording folder")
    names = [os.path.basename(os.path.normpath(path)) for path in found]
    repeated = sorted({name for name in names if names.count(name) > 1})
    if repeated:
        raise BatchError(f"two inputs would write the same output: {', '.join(repeated)}")
    return [os.path.abspath(path) for path in found]


def make_jobs(inputs, out_dir, model, config, packet, force):
    if not os.path.isfile(config):
        raise BatchError(f"{config}: no such configuration file")
    with open(config, "rb") as file:
        digest = hashlib.sha256(file.read()).hexdigest()
    name = model_name(model)
    out_dir = os.path.abspath(out_dir)
    return [Job(input=path, output=os.path.join(out_dir, os.path.basename(path)), model=name,
                config=os.path.abspath(config), config_sha256=digest, packet=packet, force=force)
            for path in find_recordings(inputs)]


def remove_parts(out_dir):
    """Removes what killed tasks of earlier runs left behind."""
    for entry in os.scandir(out_dir):
        if entry.name.startswith(PART_MARK):
            shutil.rmtree(entry.path, ignore_errors=True)


class Progress:
    """A bar redrawn in place on a terminal, one line per recording otherwise; on stderr."""

    WIDTH = 30

    def __init__(self, total, stream=sys.stderr):
        self.total, self.done, self.stream = total, 0, stream
        self.live = stream.isatty()

    def step(self, text):
        self.done += 1
        if self.live:
            filled = self.done * self.WIDTH // max(self.total, 1)
            self.stream.write(f"\rbatch [{'#' * filled}{' ' * (self.WIDTH - filled)}] "
                              f"{self.done}/{self.total} {text[:40]:<40}")
            if self.done == self.total:
                self.stream.write("\n")
        else:
            self.stream.write(f"[{self.done}/{self.total}] {text}\n")
        self.stream.flush()


def run_batch(client, jobs, progress=None):
    """Runs the jobs on the cluster of ``client``; returns one result per job, in job order.

    A recording that fails gives a result with status "failed" and the error; the others go on.
    """
    from distributed import as_completed

    # pure=False: a rerun of the same job (after --force, or a changed output) must run again.
    futures = client.map(process_recording, jobs, pure=False,
                         key=[f"velmar-{job.name}-{uuid.uuid4().hex[:8]}" for job in jobs])
    order = {future.key: index for index, future in enumerate(futures)}
    results = [None] * len(jobs)
    for future in as_completed(futures):
        job = jobs[order[future.key]]
        try:
            result = future.result()
        except Exception as error:  # the task's error, reported per recording
            result = {"name": job.name, "status": "failed", "error": f"{type(error).__name__}: {error}"}
        results[order[future.key]] = result
        if progress is not None:
            progress.step(f"{job.name} {result['status']}")
    return results


def eval_totals(results):
    """Per-class counts summed over every complete recording, with the two summary shares."""
    by_class = {}
    complete = [r for r in results if r["status"] != "failed"]
    for result in complete:
        for kind, counts in result["by_class"].items():
            total = by_class.setdefault(kind, dict.fromkeys(COUNTS, 0))
            for column in COUNTS:
                total[column] += counts[column]

    def share(classes):
        returns = sum(c["returns"] for k, c in by_class.items() if classes(k))
        removed = sum(c["removed"] for k, c in by_class.items() if classes(k))
        return removed / returns if returns else 0.0

    return {"recordings": len(complete), "frames": sum(r["frames"] for r in complete),
            "by_class": by_class,
            "noise_recall": share(lambda kind: kind not in SURFACE_CLASSES),
            "real_removed_share": share(lambda kind: kind in SURFACE_CLASSES)}


def summary_table(results, wall_seconds):
    rows = [("recording", "status", "frames", "points in", "points out", "removed", "process s",
             "task s")]
    for r in results:
        if r["status"] == "failed":
            rows.append((r["name"], "failed", "", "", "", "", "", ""))
            continue
        removed = r["returns_in"] - r["returns_out"]
        rows.append((r["name"], r["status"], str(r["frames"]), str(r["points_in"]),
                     str(r["points_out"]), str(removed), f"{r['seconds']:.2f}",
                     f"{r['task_seconds']:.2f}"))
    complete = [r for r in results if r["status"] != "failed"]
    rows.append(("total", f"{len(complete)}/{len(results)}",
                 str(sum(r["frames"] for r in complete)),
                 str(sum(r["points_in"] for r in complete)),
                 str(sum(r["points_out"] for r in complete)),
                 str(sum(r["returns_in"] - r["returns_out"] for r in complete)),
                 f"{sum(r['seconds'] for r in complete):.2f}", ""))
    lines = _columns(rows)
    ran = [r for r in results if r["status"] == "done"]
    frames = sum(r["frames"] for r in ran)
    lines.append(f"ran {len(ran)}, skipped {len(complete) - len(ran)} (already complete), failed "
                 f"{len(results) - len(complete)}; {frames} frames in {wall_seconds:.2f} s "
                 f"({frames / wall_seconds if wall_seconds > 0 else 0.0:.2f} frames/s)")
    for r in results:
        if r["status"] == "failed":
            lines.append(f"failed: {r['name']}: {r['error']}")
    return "\n".join(lines)


def eval_table(totals):
    rows = [("class", *COUNTS, "share")]
    for kind, counts in totals["by_class"].items():
        share = counts["removed"] / counts["returns"] if counts["returns"] else 0.0
        rows.append((kind, *(str(counts[c]) for c in COUNTS), f"{100 * share:.2f}%"))
    lines = [f"eval over {totals['recordings']} recordings, {totals['frames']} frames"]
    lines += _columns(rows)
    lines.append(f"noise removal recall {100 * totals['noise_recall']:.2f}%, real returns "
                 f"wrongly removed {100 * totals['real_removed_share']:.3f}%")
    return "\n".join(lines)


def _columns(rows):
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    return ["  ".join(cell.ljust(w) if i == 0 else cell.rjust(w)
                      for i, (cell, w) in enumerate(zip(row, widths))).rstrip() for row in rows]


def _connect(scheduler, workers):
    """A client of the cluster at ``scheduler``, or of a new LocalCluster; and what to close."""
    from distributed import Client

    if scheduler:
        client = Client(scheduler)
        return client, [client]
    cluster = local_cluster(workers or os.cpu_count() or 1)
    client = Client(cluster)
    return client, [client, cluster]


def local_cluster(workers):
    """A LocalCluster of ``workers`` single-threaded worker processes, started with
    WORKER_MEMORY_ENVIRON (workers started by hand take the same variables). Dask sets them in
    this process's environment before it starts a worker, so processes started from here later
    inherit them too."""
    import dask
    from distributed import LocalCluster

    key = "distributed.nanny.pre-spawn-environ"
    environ = {**dask.config.get(key, default={}), **WORKER_MEMORY_ENVIRON}
    with dask.config.set({key: environ}):
        return LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                            dashboard_address=None, silence_logs=logging.ERROR)


def parse_arguments(argv):
    parser = argparse.ArgumentParser(
        prog="python3 -m velmar.batch",
        description="Run a pipeline over many recordings on a Dask cluster, one task per "
                    "recording; outputs as velmar-algo run writes them.")
    parser.add_argument("--model", required=True, help="sensor model, e.g. Marlo128")
    parser.add_argument("--config", required=True, help="pipeline configuration (JSON file)")
    parser.add_argument("--scheduler", help="address of a running Dask scheduler "
                                            "(default: a LocalCluster on this machine)")
    parser.add_argument("--workers", type=int, default=0,
                        help="worker processes of the LocalCluster (default: one per core)")
    parser.add_argument("--packet", type=int, default=0,
                        help="feed packets of N points instead of whole frames")
    parser.add_argument("--force", action="store_true", help="rerun complete outputs too")
    parser.add_argument("--eval", action="store_true",
                        help="print the per-class figures summed over all recordings and write "
                             "them as JSON")
    parser.add_argument("--eval-json", help="where --eval writes its JSON "
                                            "(default OUT_DIR/eval.json)")
    parser.add_argument("inputs", nargs="+", metavar="IN",
                        help="recording folder, or folder of recordings")
    parser.add_argument("out_dir", metavar="OUT_DIR", help="folder of the output recordings")
    args = parser.parse_args(argv)
    if args.packet < 0 or args.workers < 0:
        parser.error("--packet and --workers take non-negative numbers")
    return args


def main(argv=None):
    args = parse_arguments(argv)
    try:
        jobs = make_jobs(args.inputs, args.out_dir, args.model, args.config, args.packet,
                         args.force)
    except (BatchError, ValueError, TypeError) as error:
        print(f"velmar.batch: {error}", file=sys.stderr)
        return 1
    os.makedirs(args.out_dir, exist_ok=True)
    remove_parts(args.out_dir)
    client, to_close = _connect(args.scheduler, args.workers)
    try:
        workers = len(client.scheduler_info()["workers"])
        print(f"velmar.batch: {len(jobs)} recordings on {workers} workers "
              f"({args.scheduler or 'LocalCluster'})", file=sys.stderr)
        started = time.perf_counter()
        results = run_batch(client, jobs, Progress(len(jobs)))
        wall = time.perf_counter() - started
    finally:
        for closable in to_close:
            closable.close()
    remove_parts(args.out_dir)
    for message in sorted({m for r in results for m in r.get("messages", [])
                           if not m.endswith(" is added!")}):
        print(f"velmar.batch: library said: {message}", file=sys.stderr)
    print(summary_table(results, wall))
    if args.eval:
        totals = eval_totals(results)
        path = args.eval_json or os.path.join(args.out_dir, "eval.json")
        with open(path, "w", encoding="utf-8") as file:
            json.dump(totals, file, indent=1)
        print()
        print(eval_table(totals))
        print(f"written to {path}")
    return 1 if any(r["status"] == "failed" for r in results) else 0


if __name__ == "__main__":
    # The tasks must name this module by its import path, not as __main__, for the workers.
    from velmar.batch import main as batch_main

    sys.exit(batch_main())
