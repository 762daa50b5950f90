"""The velmar package against the C++ library and tools: the record's layout, pipelines,
recordings, simulation and evaluation, and the exceptions bad input gets."""

import json
import warnings

import numpy as np
import pytest

import velmar
from conftest import CONFIGS, frame_bytes, velmar_algo

# The record's offsets as the public header pins them with static_asserts.
RECORD_LAYOUT = [
    ("x", "<f8", 0), ("y", "<f8", 8), ("z", "<f8", 16), ("intensity", "<f8", 24),
    ("distance", "<f8", 32), ("channel", "<u4", 40), ("reserved_a", "<u4", 44),
    ("hor_angle", "<f8", 48), ("pulse_width", "<f8", 56), ("label", "<i4", 64),
    ("mirror", "<u4", 68), ("echo", "<u4", 72), ("drag_level", "<u4", 76),
    ("reserved_b", ("u1", (32,)), 80), ("motion_flag", "<f8", 112),
    ("reserved_c", ("u1", (8,)), 120), ("mark", "u1", 128), ("aux_flag", "u1", 129),
    ("reserved_d", ("u1", (6,)), 130), ("aux_index", "<i4", 136), ("aux_value", "<u4", 140),
    ("timestamp", "<u8", 144),
]

QUILL_CONFIG = CONFIGS / "quilla4.json"


@pytest.fixture(scope="module")
def quill_drive(tmp_path_factory):
    """Two rainy QuillA4 frames with moving traffic, written by the Python simulate."""
    folder = tmp_path_factory.mktemp("quill") / "drive"
    velmar.simulate(folder, model="QuillA4", frames=2, seed=5, ego_speed=8.0, rain=0.05,
                    close_range=0.3)
    return folder


def test_dtype_is_the_record_byte_for_byte(quill_drive):
    names, formats, offsets = zip(*RECORD_LAYOUT)
    expected = np.dtype({"names": names, "formats": formats, "offsets": offsets,
                         "itemsize": 152})
    assert velmar.POINT_DTYPE == expected
    assert velmar.POINT_DTYPE.names == names  # same order, not only the same fields
    # Fields read from a frame the C++ simulator wrote mean what their names say.
    frame = velmar.read_recording(quill_drive)[0]
    returns = frame[frame["distance"] > 0]
    norm = np.sqrt(returns["x"] ** 2 + returns["y"] ** 2 + returns["z"] ** 2)
    np.testing.assert_allclose(norm, returns["distance"], rtol=1e-9)
    assert frame["channel"].min() == 1 and frame["channel"].max() == 64
    assert set(np.unique(frame["mirror"])) == {0, 1, 2}
    assert np.flatnonzero(frame["mark"]).tolist() == [len(frame) - 1]
    assert np.all(np.diff(frame["timestamp"].astype(np.int64)) >= 0)


def test_process_equals_the_cpp_host_path(quill_drive, tmp_path):
    # velmar-algo run feeds whole frames through ILidarAlgo::Process, as a C++ host does.
    velmar_algo("run", "--model", "QuillA4", "--config", QUILL_CONFIG, quill_drive,
                tmp_path / "cpp")
    pipeline = velmar.Pipeline("QuillA4", QUILL_CONFIG)
    recording = velmar.read_recording(quill_drive)
    outputs = []
    for frame in recording:
        before = frame.copy()
        outputs.append(pipeline.process(frame))
        assert np.array_equal(frame, before)  # the input is only read
    # Written only now: a result's storage must stay its own while the array lives.
    with velmar.RecordingWriter(tmp_path / "py", recording.metadata) as writer:
        for out in outputs:
            assert out.dtype == velmar.POINT_DTYPE and out.base is not None
            assert out.flags.writeable and not out.flags.owndata
            writer.write(out)
    assert frame_bytes(tmp_path / "py") == frame_bytes(tmp_path / "cpp")
    assert frame_bytes(tmp_path / "py") != frame_bytes(quill_drive)


def test_recordings_round_trip_and_simulate_matches_the_command(quill_drive, tmp_path):
    recording = velmar.read_recording(quill_drive)
    assert recording.metadata["model"] == "QuillA4" and len(recording) == 2
    assert recording.metadata["noise"]["close-range"] == 0.3
    with velmar.RecordingWriter(tmp_path / "copy", recording.metadata) as writer:
        for frame in recording:
            writer.write(frame)
    assert frame_bytes(tmp_path / "copy") == frame_bytes(quill_drive)
    assert velmar.read_recording(tmp_path / "copy").metadata == recording.metadata
    np.testing.assert_array_equal(recording[-1], recording[1])

    velmar_algo("simulate", "--model", "Orvik16", "--frames", 2, "--seed", 9, "--ego-speed", 5,
                "--slope", 0.02, "--fixed-echo", 0.4, "--close-range", 0.2, "-o",
                tmp_path / "cli")
    velmar.simulate(tmp_path / "py", model="Orvik16", frames=2, seed=9, ego_speed=5,
                    slope=0.02, fixed_echo=0.4, close_range=0.2)
    assert frame_bytes(tmp_path / "py") == frame_bytes(tmp_path / "cli")


def test_messages_and_warnings():
    with warnings.catch_warnings():
        warnings.simplefilter("error")  # a complete configuration warns about nothing
        pipeline = velmar.Pipeline(17, CONFIGS / "marlo128.json")
        # demo.json's delete_point entry is meant for ZephelB1 only: not a left-out entry.
        velmar.Pipeline("Marlo128", CONFIGS / "demo.json")
    assert [i for i, _ in pipeline.algorithms] == [4, 5, 23, 24, 25, 26, 27, 28, 29, 31, 34, 35]
    assert pipeline.messages[0] == "[algo]: rain_point is added!"
    assert pipeline.version == velmar.__version__ == "2.0.6"

    text = json.dumps({"version": "2.0.6", "algo_list": [
        {"id": 99, "enabled": True, "name": "nothing"},
        {"id": 3, "enabled": True, "name": "sunlight_noise_2"},  # not for ZephelT, silently
        {"id": 5, "enabled": True, "name": "under_ground_point"}]})
    with pytest.warns(UserWarning, match=r"unknown packet algorithm id 99.*id 3 'sunlight_noise_2'"):
        partial = velmar.Pipeline("ZephelT", text)
    assert partial.algorithms == [(5, "under_ground_point")]
    assert "[algo]: unknown packet algorithm id 99 !" in partial.messages
    with pytest.warns(UserWarning, match="parse json failed"):
        empty = velmar.Pipeline("ZephelT", "{ not json")
    assert empty.algorithms == []


def test_update_and_clear_cache(tmp_path):
    recording = velmar.simulate(tmp_path / "drive", model="ZephelT", frames=1, drag=0.5)
    frame = recording[0]
    packets = [frame[i:i + 96] for i in range(96 * 40, 96 * 45, 96)]
    # The drag filter alone, so that a packet comes back exactly one call late.
    zephelt = json.loads((CONFIGS / "zephelt.json").read_text())
    zephelt["algo_list"] = [entry for entry in zephelt["algo_list"] if entry["id"] == 12]
    config = json.dumps(zephelt)
    kept, cleared, fresh = (velmar.Pipeline("ZephelT", config) for _ in range(3))
    for packet in packets[:4]:
        kept.process(packet)
        cleared.process(packet)
    cleared.clear_cache()
    # The drag filter answers with the previous packet once it holds one; cleared, it holds none.
    late, restarted = kept.process(packets[4]), cleared.process(packets[4])
    assert np.array_equal(late["hor_angle"], packets[3]["hor_angle"])
    assert np.array_equal(restarted["hor_angle"], packets[4]["hor_angle"])
    assert np.array_equal(restarted, fresh.process(packets[4]))

    rain = {"validDistance": 15.0, "reflectionThreshold": 10.0, "intensityThreshold": 299.0}
    assert kept.update(json.dumps({"version": "2.0.6", "algo_list": [
        {"id": 4, "enabled": True, "name": "rain_point", "param": rain}]})) is True
    assert kept.algorithms == [(4, "rain_point")]
    assert kept.messages == ["[algo]: rain_point is added!"]
    with pytest.warns(UserWarning, match="configuration refused.*version unmatched"):
        assert kept.update('{"version": "1.0", "algo_list": []}') is False
    assert kept.algorithms == [(4, "rain_point")]


def test_evaluate_matches_the_command(quill_drive, tmp_path):
    velmar_algo("eval", "--model", "QuillA4", "--config", QUILL_CONFIG, "--json",
                tmp_path / "eval.json", quill_drive)
    expected = json.loads((tmp_path / "eval.json").read_text())
    report = velmar.evaluate(quill_drive, "QuillA4", QUILL_CONFIG.read_text())  # JSON text
    assert report["config"] != expected.pop("config")  # the text went through a scratch file
    assert {k: v for k, v in report.items() if k != "config"} == expected
    assert report["pipeline"]["by_class"]["rain"]["removed"] > 0

    pandas = pytest.importorskip("pandas", reason="pandas is not installed (python3-pandas)")
    table = velmar.eval_dataframe(report)
    assert isinstance(table, pandas.DataFrame)
    whole = table[table["step"] == "pipeline"].set_index("class")
    assert whole.loc["rain", "removed"] == report["pipeline"]["by_class"]["rain"]["removed"]
    assert len(table) == sum(len(s["by_class"]) for s in [*report["algorithms"], report["pipeline"]])


def test_bad_input_raises_clean_exceptions(quill_drive, tmp_path):
    pipeline = velmar.Pipeline("QuillA4", QUILL_CONFIG)
    frame = velmar.read_recording(quill_drive)[0]
    broken = tmp_path / "broken"
    broken.mkdir()
    (broken / "recording.json").write_text('{"format": "velmar-recording", "format_version": 1')
    cases = [
        (TypeError, "dtype velmar.POINT_DTYPE", lambda: pipeline.process(np.zeros(4))),
        (TypeError, "not list", lambda: pipeline.process([1, 2])),
        (ValueError, "contiguous", lambda: pipeline.process(frame[::2])),
        (ValueError, "one-dimensional", lambda: pipeline.process(frame[:10].reshape(2, 5))),
        (ValueError, "unknown model", lambda: velmar.Pipeline("Marlo999", QUILL_CONFIG)),
        (ValueError, "out of range", lambda: velmar.Pipeline(22, QUILL_CONFIG)),
        (TypeError, "LidarType", lambda: velmar.Pipeline(True, QUILL_CONFIG)),
        (FileNotFoundError, "no such configuration", lambda: velmar.Pipeline(8, "nope.json")),
        (FileNotFoundError, "no such recording", lambda: velmar.read_recording(tmp_path / "x")),
        (FileNotFoundError, "no such recording",
         lambda: velmar.evaluate(tmp_path / "x", "QuillA4", QUILL_CONFIG)),
        (ValueError, "invalid JSON", lambda: velmar.read_recording(broken)),
        (ValueError, "not \"ZephelT\"", lambda: velmar.evaluate(quill_drive, "ZephelT",
                                                                CONFIGS / "zephelt.json")),
        (IndexError, "out of range", lambda: velmar.read_recording(quill_drive)[2]),
        (ValueError, "rate of rain", lambda: velmar.simulate(tmp_path / "s", rain=2.0)),
        (ValueError, "unknown scene", lambda: velmar.simulate(tmp_path / "s", scene="moon")),
        (TypeError, "unknown noise kinds", lambda: velmar.simulate(tmp_path / "s", snow=0.1)),
        (ValueError, "unknown metadata", lambda: velmar.RecordingWriter(tmp_path / "w",
                                                                        {"model": 8, "fps": 1})),
        (TypeError, "metadata values", lambda: velmar.RecordingWriter(tmp_path / "w",
                                                                      {"model": 8, "seed": "x"})),
    ]
    for error, message, call in cases:
        with pytest.raises(error, match=message):
            call()
    # A truncated frame file is reported, never read partially.
    copy = tmp_path / "truncated"
    velmar.simulate(copy, model="Orvik16", frames=1)
    path = copy / "frame_000000.pcd"
    path.write_bytes(path.read_bytes()[:-100])
    with pytest.raises(ValueError, match="frame_000000.pcd"):
        velmar.read_recording(copy)[0]
