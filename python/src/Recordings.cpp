#include "Recordings.h"

#include <pybind11/stl.h>

#include <memory>
#include <string>

#include "CommandSupport.h"
#include "EvalReport.h"
#include "OutputCapture.h"
#include "PointArray.h"
#include "RunRecording.h"
#include "sim/Recording.h"
#include "sim/Simulator.h"

namespace py = pybind11;

namespace velmar {
namespace python {
namespace {

py::dict MetadataOf(const sim::RecordingInfo& info) {
  py::dict scene;
  scene["name"] = info.scene.name;
  scene["ego_speed"] = info.scene.egoSpeed;
  scene["ground_slope"] = info.scene.groundSlope;
  py::dict noise;
  for (const sim::NoiseKindInfo& kind : sim::NoiseKinds()) {
    noise[kind.name] = info.noise[kind.kind];
  }
  py::dict metadata;
  metadata["model"] = info.model;
  metadata["lidar_type"] = info.lidarType;
  metadata["packet_points"] = info.packetPoints;
  metadata["frames"] = info.frames;
  metadata["seed"] = info.seed;
  metadata["scene"] = scene;
  metadata["noise"] = noise;
  metadata["attributes"] = info.attributes;
  return metadata;
}

// The reverse of MetadataOf. The Python side has checked the keys and filled the defaults.
sim::RecordingInfo InfoOf(const py::dict& metadata) {
  sim::RecordingInfo info;
  info.model = metadata["model"].cast<std::string>();
  info.lidarType = metadata["lidar_type"].cast<uint32_t>();
  info.packetPoints = metadata["packet_points"].cast<uint32_t>();
  info.seed = metadata["seed"].cast<uint64_t>();
  py::dict scene = metadata["scene"];
  info.scene.name = scene["name"].cast<std::string>();
  info.scene.egoSpeed = scene["ego_speed"].cast<double>();
  info.scene.groundSlope = scene["ground_slope"].cast<double>();
  py::dict noise = metadata["noise"];
  for (const sim::NoiseKindInfo& kind : sim::NoiseKinds()) {
    info.noise[kind.kind] = noise[kind.name].cast<double>();
  }
  info.attributes = metadata["attributes"].cast<std::map<std::string, std::string>>();
  return info;
}

sim::RecordingInfo CheckedInfoOf(const py::dict& metadata) {
  try {
    return InfoOf(metadata);
  } catch (const py::cast_error&) {
    throw py::type_error("metadata values must be of the types Recording.metadata has");
  }
}

class Reader {
 public:
  explicit Reader(const std::string& folder) : reader_(folder) {}

  py::array Frame(int64_t index) const {
    const int64_t count = reader_.FrameCount();
    if (index < -count || index >= count) {
      throw py::index_error("frame " + std::to_string(index) + " out of range (" +
                            std::to_string(count) + " frames)");
    }
    Points frame;
    {
      py::gil_scoped_release unlocked;
      reader_.ReadFrame(static_cast<uint32_t>(index < 0 ? index + count : index), frame);
    }
    return ToArray(std::move(frame));
  }

  const sim::RecordingReader& Get() const { return reader_; }

 private:
  sim::RecordingReader reader_;
};

class Writer {
 public:
  Writer(const std::string& folder, const py::dict& metadata)
      : writer_(std::make_unique<sim::RecordingWriter>(folder, CheckedInfoOf(metadata))) {}

  void Write(py::handle frame) {
    if (!writer_) {
      throw py::value_error("the recording is already closed");
    }
    CopyFromArray(frame, buffer_);
    py::gil_scoped_release unlocked;
    writer_->WriteFrame(buffer_);
    ++frames_;
  }

  void Close() {
    if (writer_) {
      writer_->Close();
      writer_.reset();
    }
  }

  uint32_t Frames() const { return frames_; }

 private:
  std::unique_ptr<sim::RecordingWriter> writer_;
  Points buffer_;
  uint32_t frames_ = 0;
};

void Simulate(const std::string& folder, const std::string& model, const std::string& scene,
              uint32_t frames, uint64_t seed, double egoSpeed, double slope,
              const std::map<std::string, double>& rates) {
  sim::SimulationSettings settings;
  settings.model = model;
  settings.scene.name = scene;
  settings.scene.egoSpeed = egoSpeed;
  settings.scene.groundSlope = slope;
  settings.frames = frames;
  settings.seed = seed;
  for (const sim::NoiseKindInfo& kind : sim::NoiseKinds()) {
    auto rate = rates.find(kind.name);
    if (rate != rates.end()) {
      settings.noise[kind.kind] = rate->second;
    }
  }
  py::gil_scoped_release unlocked;
  sim::WriteSimulatedRecording(settings, folder);
}

std::string Evaluate(const std::string& recording, const std::string& model,
                     const std::string& config, uint32_t packet) {
  tools::EvalReport report;
  CaptureOutputOf([&] {
    report = tools::Evaluate(tools::EvalOptions{model, config, recording, packet});
  });
  return tools::EvalJson(report);
}

py::dict RunRecording(const std::string& model, const std::string& config, uint32_t packet,
                      const std::string& input, const std::string& output) {
  tools::RunFigures figures;
  std::vector<std::string> messages = CaptureOutputOf([&] {
    figures = tools::RunRecording(tools::RunOptions{model, config, input, output, packet});
  });
  tools::EvalReport classes;
  classes.model = model;
  classes.config = config;
  classes.recording = input;
  classes.frames = figures.frames;
  classes.packetPoints = packet;
  classes.pipeline = figures.tally;
  py::dict result;
  result["frames"] = figures.frames;
  result["points_in"] = figures.pointsIn;
  result["points_out"] = figures.pointsOut;
  result["returns_in"] = figures.returnsIn;
  result["returns_out"] = figures.returnsOut;
  result["unreturned_packets"] = figures.unreturned;
  result["seconds"] = figures.seconds;
  result["eval_json"] = tools::EvalJson(classes);
  result["messages"] = messages;
  return result;
}

std::vector<std::string> NoiseKindNames() {
  std::vector<std::string> names;
  for (const sim::NoiseKindInfo& kind : sim::NoiseKinds()) {
    names.emplace_back(kind.name);
  }
  return names;
}

}  // namespace

void BindRecordings(py::module_& module) {
  py::register_exception_translator([](std::exception_ptr error) {
    try {
      if (error) {
        std::rethrow_exception(error);
      }
    } catch (const sim::RecordingError& problem) {
      PyErr_SetString(PyExc_ValueError, problem.what());
    } catch (const tools::CommandError& problem) {
      PyErr_SetString(PyExc_ValueError, problem.what());
    }
  });

  py::class_<Reader>(module, "RecordingReader")
      .def(py::init<const std::string&>(), py::arg("folder"))
      .def("__len__", [](const Reader& r) { return r.Get().FrameCount(); })
      .def("__getitem__", &Reader::Frame, py::arg("index"))
      .def_property_readonly("metadata", [](const Reader& r) { return MetadataOf(r.Get().Info()); })
      .def("frame_path", [](const Reader& r, uint32_t index) { return r.Get().FramePath(index); });

  py::class_<Writer>(module, "RecordingWriter")
      .def(py::init<const std::string&, const py::dict&>(), py::arg("folder"), py::arg("metadata"))
      .def("write", &Writer::Write, py::arg("frame"))
      .def("close", &Writer::Close)
      .def_property_readonly("frames", &Writer::Frames);

  module.def("simulate", &Simulate, py::arg("folder"), py::arg("model"), py::arg("scene"),
             py::arg("frames"), py::arg("seed"), py::arg("ego_speed"), py::arg("slope"),
             py::arg("rates"));
  module.def("evaluate", &Evaluate, py::arg("recording"), py::arg("model"), py::arg("config"),
             py::arg("packet"));
  module.def("run_recording", &RunRecording, py::arg("model"), py::arg("config"), py::arg("packet"),
             py::arg("input"), py::arg("output"));
  module.attr("NOISE_KINDS") = NoiseKindNames();
}

}  // namespace python
}  // namespace velmar
