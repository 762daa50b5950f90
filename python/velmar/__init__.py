"""libalgo from Python: pipelines over numpy frames, recordings, simulation and evaluation.

    import velmar
    pipeline = velmar.Pipeline("Marlo128", "configs/marlo128.json")
    cleaned = pipeline.process(frame)          # frame: numpy array of velmar.POINT_DTYPE

Batch runs over many recordings on a Dask cluster: ``python3 -m velmar.batch --help``.
"""

import json
import os
import tempfile
import warnings

from . import _velmar

__all__ = [
    "POINT_DTYPE",
    "MODELS",
    "NOISE_KINDS",
    "Pipeline",
    "Recording",
    "RecordingWriter",
    "read_recording",
    "simulate",
    "evaluate",
    "eval_dataframe",
    "model_name",
    "__version__",
]

#: numpy dtype of one point record, byte for byte the library's ``_ori_point`` (152 bytes).
POINT_DTYPE = _velmar.POINT_DTYPE
#: Model names indexed by ``LidarType`` value.
MODELS = tuple(_velmar.MODELS)
#: Noise kinds of the simulator, as ``simulate`` takes them (``close-range`` as ``close_range``).
NOISE_KINDS = tuple(kind.replace("-", "_") for kind in _velmar.NOISE_KINDS)
__version__ = _velmar.VERSION

_ADDED_SUFFIX = " is added!"


def model_name(model):
    """The model name of ``model``, given as a name ("Marlo128") or a ``LidarType`` value (17)."""
    if isinstance(model, bool) or not isinstance(model, (str, int)):
        raise TypeError(f"model must be a model name or a LidarType value, not {type(model).__name__}")
    if isinstance(model, int):
        if not 0 <= model < len(MODELS):
            raise ValueError(f"LidarType value {model} is out of range (0 to {len(MODELS) - 1})")
        return MODELS[model]
    if model not in MODELS:
        raise ValueError(f"unknown model {model!r} (known: {', '.join(MODELS)})")
    return model


def _is_json_text(config):
    return isinstance(config, str) and config.lstrip().startswith(("{", "["))


def _config_path(config):
    """The path of a configuration file, checked to exist."""
    if not isinstance(config, (str, os.PathLike)):
        raise TypeError(f"config must be a path or JSON text, not {type(config).__name__}")
    path = os.fspath(config)
    if not os.path.exists(path):
        raise FileNotFoundError(f"{path}: no such configuration file")
    if os.path.isdir(path):
        raise IsADirectoryError(f"{path}: is a folder, not a configuration file")
    return path


def _entries_for(model, text):
    """(id, name) of the enabled entries of a configuration meant for ``model``.

    An entry whose "lidar_type" names only other models is meant for them and is not counted.
    """
    try:
        document = json.loads(text)
    except ValueError:
        return []
    entries = document.get("algo_list") if isinstance(document, dict) else None
    wanted = []
    for entry in entries if isinstance(entries, list) else []:
        if not isinstance(entry, dict) or entry.get("enabled") is not True:
            continue
        models = entry.get("lidar_type")
        if isinstance(models, list) and models and model not in models:
            continue
        wanted.append((entry.get("id"), entry.get("name")))
    return wanted


class Pipeline(_velmar.Pipeline):
    """A pipeline of libalgo algorithms for one sensor model.

    ``model`` is a model name ("Marlo128") or a ``LidarType`` value; ``config`` is the path of a
    JSON configuration or the JSON text itself. Like ``ILidarAlgo::Create`` this always gives a
    pipeline: entries the library cannot use are left out. What the library printed while
    assembling is kept in ``messages``; when an entry meant for this model was left out (or the
    library complained about a parameter), a ``UserWarning`` says so. A configuration path that
    does not exist raises ``FileNotFoundError``.

    Calls of one pipeline are serialised by the library; ``process`` releases the interpreter
    lock while the algorithms run.
    """

    def __init__(self, model, config):
        name = model_name(model)
        if _is_json_text(config):
            text = config
            super().__init__(MODELS.index(name), text, _velmar.Pipeline.ConfigKind.JSON_TEXT)
        else:
            path = _config_path(config)
            with open(path, "rb") as file:
                text = file.read().decode("utf-8", errors="replace")
            super().__init__(MODELS.index(name), path, _velmar.Pipeline.ConfigKind.PATH)
        self._warn_left_out(text)

    def update(self, json_text):
        """Replaces the whole configuration from JSON text; returns the library's verdict.

        False means the library refused the text (syntax, version, root): the pipeline keeps its
        algorithms. Otherwise entries it could not use are left out, with a warning.
        """
        if not isinstance(json_text, str):
            raise TypeError(f"json_text must be a str, not {type(json_text).__name__}")
        accepted = super().update(json_text)
        if accepted:
            self._warn_left_out(json_text)
        else:
            warnings.warn(self._describe("configuration refused"), stacklevel=2)
        return accepted

    def _complaints(self):
        return [line for line in self.messages if not line.endswith(_ADDED_SUFFIX)]

    def _warn_left_out(self, text):
        missing = list(_entries_for(self.model, text))
        for assembled in self.algorithms:
            for index, (entry_id, entry_name) in enumerate(missing):
                if entry_id == assembled[0] and entry_name == assembled[1]:
                    del missing[index]
                    break
        if self._complaints() or missing:
            unused = "".join(f"; id {i} {n!r} not used" for i, n in missing)
            warnings.warn(self._describe("configuration entries left out or changed") + unused,
                          stacklevel=3)

    def _describe(self, what):
        return f"{self.model} pipeline: {what}" + "".join(f"; {line}" for line in self._complaints())

    def __repr__(self):
        ids = ", ".join(str(i) for i, _ in self.algorithms)
        return f"<velmar.Pipeline {self.model} [{ids}]>"


class Recording(_velmar.RecordingReader):
    """A recording folder: ``metadata`` (a dict), ``len()`` frames, ``rec[i]`` and iteration give
    frames as numpy arrays of POINT_DTYPE (read from disk on each access)."""

    def __init__(self, folder):
        folder = os.fspath(folder)
        if not os.path.isdir(folder):
            raise FileNotFoundError(f"{folder}: no such recording folder")
        super().__init__(folder)
        self.folder = folder

    def __iter__(self):
        for index in range(len(self)):
            yield self[index]

    def __repr__(self):
        return f"<velmar.Recording {self.folder!r}: {self.metadata['model']}, {len(self)} frames>"


def read_recording(folder):
    """Opens a recording folder; iterate it for frames, read ``.metadata`` for its settings."""
    return Recording(folder)


_DEFAULT_METADATA = {
    "packet_points": 0,
    "seed": 0,
    "scene": {"name": "", "ego_speed": 0.0, "ground_slope": 0.0},
    "noise": {},
    "attributes": {},
}
_INFORMATIVE_KEYS = {"frames", "lidar_type"}  # given by a reader's metadata, set by the writer


class RecordingWriter(_velmar.RecordingWriter):
    """Writes a recording folder frame by frame; use as a context manager or call ``close()``.

    ``metadata`` is a dict like ``Recording.metadata`` (a recording's own metadata can be passed
    on as it is); only "model" is required.
    """

    def __init__(self, folder, metadata):
        if not isinstance(metadata, dict):
            raise TypeError(f"metadata must be a dict, not {type(metadata).__name__}")
        unknown = set(metadata) - set(_DEFAULT_METADATA) - _INFORMATIVE_KEYS - {"model"}
        if unknown:
            raise ValueError(f"unknown metadata keys: {', '.join(sorted(unknown))}")
        if "model" not in metadata:
            raise ValueError("metadata needs a \"model\"")
        full = {**_DEFAULT_METADATA, **metadata}
        full["model"] = model_name(metadata["model"])
        full["lidar_type"] = MODELS.index(full["model"])
        full["scene"] = {**_DEFAULT_METADATA["scene"], **full["scene"]}
        full["noise"] = {kind: float(full["noise"].get(kind, 0.0)) for kind in _velmar.NOISE_KINDS}
        super().__init__(os.fspath(folder), full)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()


def simulate(output, model="Marlo128", scene="city", frames=10, seed=1, ego_speed=0.0,
             slope=0.0, **rates):
    """Writes a simulated drive, as ``velmar-algo simulate`` does, and returns it as a Recording.

    Noise rates in [0, 1] are keywords named after the kinds in NOISE_KINDS, e.g.
    ``simulate("drive", rain=0.1, close_range=0.3)``. The same settings give the same bytes.
    """
    unknown = set(rates) - set(NOISE_KINDS)
    if unknown:
        raise TypeError(f"unknown noise kinds: {', '.join(sorted(unknown))} "
                        f"(known: {', '.join(NOISE_KINDS)})")
    if isinstance(frames, bool) or not isinstance(frames, int) or frames < 0:
        raise ValueError(f"frames must be a non-negative integer, not {frames!r}")
    if isinstance(seed, bool) or not isinstance(seed, int) or seed < 0:
        raise ValueError(f"seed must be a non-negative integer, not {seed!r}")
    named = {kind.replace("_", "-"): float(rate) for kind, rate in rates.items()}
    _velmar.simulate(os.fspath(output), model_name(model), scene, frames, seed, float(ego_speed),
                     float(slope), named)
    return Recording(output)


def _config_file(config, folder):
    """A path for ``config``: itself, or a file in ``folder`` holding its JSON text."""
    if not _is_json_text(config):
        return _config_path(config)
    path = os.path.join(folder, "config.json")
    with open(path, "w", encoding="utf-8") as file:
        file.write(config)
    return path


def evaluate(recording, model, config, packet=0, as_dataframe=False):
    """What each algorithm, and the whole pipeline, does to each truth class of a recording.

    Returns the figures of ``velmar-algo eval --json`` as plain Python data: "algorithms" (id,
    name, "by_class" counts, "noise_recall", "real_removed_share") and "pipeline". With
    ``as_dataframe=True`` returns them as a pandas DataFrame instead, one row per step and class
    (pandas is optional; ImportError says so when it is missing).
    """
    folder = os.fspath(recording)
    if not os.path.isdir(folder):
        raise FileNotFoundError(f"{folder}: no such recording folder")
    if isinstance(packet, bool) or not isinstance(packet, int) or packet < 0:
        raise ValueError(f"packet must be a non-negative integer, not {packet!r}")
    name = model_name(model)
    if as_dataframe:
        import pandas  # noqa: F401  (fail before the work when pandas is missing)
    with tempfile.TemporaryDirectory(prefix="velmar-eval-") as scratch:
        path = _config_file(config, scratch)
        report = json.loads(_velmar.evaluate(folder, name, path, packet))
    return eval_dataframe(report) if as_dataframe else report


_COUNT_COLUMNS = ("returns", "removed", "flagged", "moved", "added")


def eval_dataframe(report):
    """The figures of ``evaluate`` as a pandas DataFrame: one row per step and truth class."""
    import pandas

    steps = [(a["id"], a["name"], a) for a in report["algorithms"]]
    steps.append((None, "pipeline", report["pipeline"]))
    rows = []
    for step_id, step_name, step in steps:
        for kind, counts in step["by_class"].items():
            row = {"id": step_id, "step": step_name, "class": kind}
            row.update({column: counts[column] for column in _COUNT_COLUMNS})
            row["share"] = counts["removed"] / counts["returns"] if counts["returns"] else 0.0
            rows.append(row)
    return pandas.DataFrame(rows, columns=["id", "step", "class", *_COUNT_COLUMNS, "share"])
