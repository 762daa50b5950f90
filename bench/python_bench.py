"""Speed of the Python package (make bench-python; figures in docs/performance.md).

1. Pipeline.process against the C++ host loop for the default Marlo128 pipeline, over a whole
   simulated drive, fed as packets of 128 points (as a driver does) and as whole frames. Both
   sides copy each packet in once; the C++ loop runs in the same extension binary, and the two
   are measured in alternation so that a busy spell on the shared machine weighs on both.
2. Batch throughput of velmar.batch in frames per second on a LocalCluster of one and of two
   workers started as the batch command starts them, over the same set of recordings (cluster
   start-up and each cluster's first round not counted). The recordings and
   outputs live in memory (/dev/shm when there is one): each task reads and writes 42 MB per
   Marlo128 frame, and the shared machine's disk would otherwise set the pace.
"""

import argparse
import os
import statistics
import sys
import tempfile
import time
from pathlib import Path

import velmar
from velmar import _velmar, batch

REPO = Path(__file__).resolve().parents[1]
MODEL = "Marlo128"
CONFIG = REPO / "configs" / "marlo128.json"
PACKET = 128
# The drive of algo_bench: rainy city, ego speed 8 m/s, seed 7, with the demo's other noise.
DRIVE = dict(model=MODEL, scene="city", seed=7, ego_speed=8.0, rain=0.08, ghost=0.5,
             close_range=0.3, interference=0.01, fixed_echo=0.5)


def python_seconds(frames, packet):
    pipeline = velmar.Pipeline(MODEL, CONFIG)
    start = time.perf_counter()
    for frame in frames:
        if packet:
            for offset in range(0, len(frame), packet):
                pipeline.process(frame[offset:offset + packet])
        else:
            pipeline.process(frame)
    return time.perf_counter() - start


def cpp_seconds(frames, packet):
    return _velmar._host_loop_seconds(velmar.MODELS.index(MODEL), str(CONFIG), frames, packet)


def compare_calls(frames, rounds):
    print(f"== Pipeline.process against the C++ host loop: {MODEL}, {CONFIG.name}, "
          f"{len(frames)} frames of {len(frames[0])} points, medians of {rounds} rounds")
    print(f"{'fed as':<22}{'C++ ms/frame':>14}{'Python ms/frame':>17}{'ratio':>8}"
          f"{'ratio range':>16}")
    for label, packet in ((f"packets of {PACKET}", PACKET), ("whole frames", 0)):
        cpp, py, ratios = [], [], []
        for _ in range(rounds):
            c, p = cpp_seconds(frames, packet), python_seconds(frames, packet)
            cpp.append(c)
            py.append(p)
            ratios.append(p / c)
        per_frame = 1000.0 / len(frames)
        print(f"{label:<22}{statistics.median(cpp) * per_frame:>14.1f}"
              f"{statistics.median(py) * per_frame:>17.1f}{statistics.median(ratios):>8.3f}"
              f"{min(ratios):>8.3f} - {max(ratios):.3f}")


def batch_throughput(inputs, out_dir, worker_counts, rounds):
    from distributed import Client

    jobs = batch.make_jobs(inputs, out_dir, MODEL, str(CONFIG), PACKET, force=True)
    frames = sum(len(velmar.read_recording(job.input)) for job in jobs)
    print(f"\n== velmar.batch throughput: {len(jobs)} recordings, {frames} frames, "
          f"packets of {PACKET}, {rounds} rounds per cluster size after one untimed")
    rates = {}
    for workers in worker_counts:
        with batch.local_cluster(workers) as cluster, Client(cluster) as client:
            runs = []
            for _ in range(rounds + 1):
                start = time.perf_counter()
                results = batch.run_batch(client, jobs)
                runs.append(time.perf_counter() - start)
                assert all(r["status"] == "done" for r in results), results
        # The first round is each worker's first recordings: its heap grows to a frame's worth
        # of buffers, which a long batch does once and then reuses.
        first, timed = runs[0], runs[1:]
        rates[workers] = frames / statistics.median(timed)
        print(f"{workers} worker{'s' if workers > 1 else ' '}: {rates[workers]:6.2f} frames/s "
              f"(median of {', '.join(f'{r:.2f}' for r in timed)} s; first round {first:.2f} s)")
    if 1 in rates and 2 in rates:
        print(f"two workers / one: {rates[2] / rates[1]:.2f}x")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--frames", type=int, default=12, help="frames of the call drive")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--recordings", type=int, default=6, help="recordings of the batch")
    parser.add_argument("--recording-frames", type=int, default=4)
    parser.add_argument("--skip-batch", action="store_true")
    parser.add_argument("--batch-dir", default="/dev/shm" if os.path.isdir("/dev/shm") else None,
                        help="where the batch's recordings are written (default /dev/shm)")
    args = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="velmar-bench-") as scratch:
        drive = velmar.simulate(Path(scratch) / "drive", frames=args.frames, **DRIVE)
        frames = list(drive)
        compare_calls(frames, args.rounds)
        del frames
        if args.skip_batch:
            return 0
    with tempfile.TemporaryDirectory(prefix="velmar-bench-", dir=args.batch_dir) as scratch:
        inputs = Path(scratch) / "recordings"
        for index in range(args.recordings):
            velmar.simulate(inputs / f"drive{index}", frames=args.recording_frames,
                            **{**DRIVE, "seed": 100 + index})
        print(f"\n(batch recordings in {scratch})")
        batch_throughput([inputs], Path(scratch) / "out", (1, 2), max(1, args.rounds // 2))
    return 0


if __name__ == "__main__":
    sys.exit(main())
