"""python3 -m velmar.batch on Dask: the same frames as the serial command, whole outputs even
when a worker dies mid-batch, and resume."""

import json
import os
import re
import signal
import subprocess
import sys
import time

import pytest
from distributed import Client

from velmar import batch

from conftest import BATCH_CONFIG, BATCH_MODEL, BATCH_PACKET, frame_bytes

PART_MARK = ".velmar-part-"


def batch_command(drives, out, *options):
    return [sys.executable, "-m", "velmar.batch", "--model", BATCH_MODEL, "--config",
            str(BATCH_CONFIG), "--packet", str(BATCH_PACKET), *options, *map(str, drives),
            str(out)]


def run_batch(drives, out, *options):
    result = subprocess.run(batch_command(drives, out, *options), capture_output=True,
                            text=True, timeout=300)
    assert result.returncode == 0, result.stderr
    return result.stdout


def assert_outputs_match(out, serial_outputs):
    listed = set(os.listdir(out)) - {"eval.json"}
    assert listed == set(serial_outputs)  # no part folder left behind
    for name, frames in serial_outputs.items():
        assert frame_bytes(out / name) == frames, name


def test_local_cluster_equals_serial_run(drives, serial_outputs, tmp_path):
    out = tmp_path / "out"
    # The drives' parent folder is a folder of recordings: all four are found.
    summary = run_batch([drives[0].parent], out, "--workers", "2", "--eval")
    assert_outputs_match(out, serial_outputs)
    assert re.search(r"ran 4, skipped 0 .* failed 0; 4 frames", summary)
    totals = json.loads((out / "eval.json").read_text())
    assert totals["recordings"] == 4 and totals["frames"] == 4
    assert totals["by_class"]["rain"]["removed"] > 0.9 * totals["by_class"]["rain"]["returns"]
    assert "noise removal recall" in summary


@pytest.fixture(scope="module")
def killed_batch(cluster, drives, tmp_path_factory):
    """A batch on the two-worker cluster during which one worker process is killed mid-task."""
    out = tmp_path_factory.mktemp("killed") / "out"
    with Client(cluster) as client:
        pids = client.run(os.getpid)  # worker address -> process id
        batch_process = subprocess.Popen(
            batch_command(drives, out, "--scheduler", cluster.scheduler_address),
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        victim = None
        deadline = time.monotonic() + 60
        while victim is None and time.monotonic() < deadline and batch_process.poll() is None:
            parts = [e for e in os.listdir(out) if e.startswith(PART_MARK)] if out.exists() else []
            busy = [address for address, keys in client.processing().items() if keys]
            if parts and busy:
                victim = pids[busy[0]]
                os.kill(victim, signal.SIGKILL)  # mid-task: its part folder is being written
            time.sleep(0.01)
        stdout, stderr = batch_process.communicate(timeout=300)
    return out, victim, batch_process.returncode, stdout, stderr


def test_killed_worker_leaves_every_output_complete(killed_batch, serial_outputs):
    out, victim, status, stdout, stderr = killed_batch
    assert victim is not None, "no task was caught running"
    assert status == 0, stderr
    assert "ran 4, skipped 0" in stdout
    assert_outputs_match(out, serial_outputs)


def test_workers_keep_their_allocator_settings_after_a_restart(cluster, killed_batch):
    assert killed_batch[1] is not None, "no worker was killed"
    with Client(cluster) as client:
        client.wait_for_workers(2, timeout=60)
        pids = client.run(os.getpid)
        settings = client.run(lambda: {k: os.environ.get(k) for k in batch.WORKER_MEMORY_ENVIRON})
    assert killed_batch[1] not in pids.values()
    assert list(settings.values()) == [batch.WORKER_MEMORY_ENVIRON] * 2


def test_resume_skips_complete_outputs(cluster, killed_batch, drives, serial_outputs, capsys):
    out = killed_batch[0]

    def run_in_process(chosen, *options):  # main() itself, without a new interpreter
        assert batch.main(batch_command(chosen, out, "--scheduler", cluster.scheduler_address,
                                        *options)[3:]) == 0
        return capsys.readouterr().out

    written = {d.name: os.stat(out / d.name / "frame_000000.pcd").st_mtime_ns for d in drives}
    (out / drives[1].name / "batch.json").unlink()  # an output not known to be complete
    assert "ran 1, skipped 3" in run_in_process(drives)
    again = {d.name: os.stat(out / d.name / "frame_000000.pcd").st_mtime_ns for d in drives}
    assert {n for n in written if written[n] != again[n]} == {drives[1].name}
    assert_outputs_match(out, serial_outputs)
    assert "ran 1, skipped 0" in run_in_process(drives[:1], "--force")
