"""Shared fixtures of the Python package's tests: paths, simulated drives, the C++ command's
own outputs for them, and a two-worker Dask cluster.

Run by ctest; by hand from the repository root:
    PYTHONPATH=build/python /usr/bin/python3 -m pytest tests/python
"""

import os
import subprocess
from pathlib import Path

import pytest

REPO = Path(__file__).resolve().parents[2]
CONFIGS = REPO / "configs"
VELMAR_ALGO = Path(os.environ.get("VELMAR_ALGO", REPO / "build" / "tools" / "velmar-algo"))

# ZephelT packets of 96 points: the drag filter answers each packet with the previous one, so
# the command's reassembly of delayed packets is part of every comparison.
BATCH_MODEL = "ZephelT"
BATCH_CONFIG = CONFIGS / "zephelt.json"
BATCH_PACKET = 96
DRIVE_COUNT = 4
DRIVE_FRAMES = 1


def velmar_algo(*arguments):
    """Runs the C++ command; its output when it succeeds."""
    result = subprocess.run([str(VELMAR_ALGO), *map(str, arguments)], capture_output=True,
                            text=True)
    assert result.returncode == 0, result.stderr
    return result.stdout


def frame_bytes(folder):
    """The frame files of a recording folder, by name."""
    return {path.name: path.read_bytes() for path in sorted(Path(folder).glob("frame_*.pcd"))}


@pytest.fixture(scope="session")
def drives(tmp_path_factory):
    """Four short rainy ZephelT drives with drag smears, each from its own seed."""
    root = tmp_path_factory.mktemp("drives")
    folders = []
    for seed in range(1, DRIVE_COUNT + 1):
        folder = root / f"drive{seed}"
        velmar_algo("simulate", "--model", BATCH_MODEL, "--frames", DRIVE_FRAMES, "--rain", 0.05,
                    "--drag", 0.5, "--seed", seed, "-o", folder)
        folders.append(folder)
    return folders


@pytest.fixture(scope="session")
def serial_outputs(drives, tmp_path_factory):
    """Frame files of `velmar-algo run` over each drive, by drive name."""
    root = tmp_path_factory.mktemp("serial")
    outputs = {}
    for drive in drives:
        velmar_algo("run", "--model", BATCH_MODEL, "--config", BATCH_CONFIG, "--packet",
                    BATCH_PACKET, drive, root / drive.name)
        outputs[drive.name] = frame_bytes(root / drive.name)
    return outputs


@pytest.fixture(scope="module")
def cluster():
    """The batch command's LocalCluster, of two single-threaded worker processes."""
    from velmar import batch

    with batch.local_cluster(2) as local:
        yield local
