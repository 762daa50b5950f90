#include "Pipeline.h"

#include <pybind11/stl.h>

#include "OutputCapture.h"

namespace py = pybind11;

namespace velmar {
namespace python {
namespace {

const char* const kProcessDoc =
    R"doc(Runs every algorithm over a frame or packet and returns the result.

`frame` is a one-dimensional, contiguous numpy array of velmar.POINT_DTYPE: a whole frame or one
packet, fed in recording order as a driver does. It is copied once into the library's vector
(numpy memory cannot become one); the returned array is that vector itself, with no copy out.
Its length may differ from the input's: the drag filter answers a packet with the previous one,
ground detection appends returns it held back. The input array is left unchanged.)doc";

}  // namespace

Pipeline::Pipeline(LidarType model, const std::string& config, ConfigKind kind) : model_(model) {
  messages_ = CaptureOutputOf([&] {
    if (kind == ConfigKind::kPath) {
      pipeline_ = ILidarAlgo::Create(model, config);
      return;
    }
    // An empty pipeline, whose note that no file was named is not kept, then the text.
    {
      CapturedOutput discarded;
      pipeline_ = ILidarAlgo::Create(model, "");
    }
    pipeline_->UpdateAlgoParam(config);
  });
}

py::array Pipeline::Process(py::handle frame) {
  Points points = pool_->Take();
  CopyFromArray(frame, points);
  {
    py::gil_scoped_release unlocked;
    pipeline_->Process(points);
  }
  return ToArray(std::move(points), pool_);
}

bool Pipeline::Update(const std::string& json) {
  bool accepted = false;
  messages_ = CaptureOutputOf([&] { accepted = pipeline_->UpdateAlgoParam(json); });
  return accepted;
}

void Pipeline::ClearCache() {
  py::gil_scoped_release unlocked;
  pipeline_->ClearCache();
}

std::vector<std::pair<uint32_t, std::string>> Pipeline::Algorithms() {
  std::vector<std::pair<uint32_t, std::string>> list;
  // Create makes a LidarAlgo; its list is internal, not part of the host interface.
  auto* assembled = dynamic_cast<LidarAlgo*>(pipeline_.get());
  if (assembled != nullptr) {
    for (const auto& algorithm : assembled->Algorithms()) {
      list.emplace_back(algorithm->Id(), algorithm->name);
    }
  }
  return list;
}

void BindPipeline(py::module_& module) {
  py::class_<Pipeline> pipeline(module, "Pipeline");
  py::enum_<Pipeline::ConfigKind>(pipeline, "ConfigKind")
      .value("PATH", Pipeline::ConfigKind::kPath)
      .value("JSON_TEXT", Pipeline::ConfigKind::kJsonText);
  pipeline
      .def(py::init([](uint32_t model, const std::string& config, Pipeline::ConfigKind kind) {
             return std::make_unique<Pipeline>(static_cast<LidarType>(model), config, kind);
           }),
           py::arg("model"), py::arg("config"), py::arg("kind"))
      .def("process", &Pipeline::Process, py::arg("frame"), kProcessDoc)
      .def("update", &Pipeline::Update, py::arg("json_text"),
           "Replaces the whole configuration from JSON text; False when the library refused it "
           "(the pipeline then keeps its algorithms). The messages are those of this update.")
      .def("clear_cache", &Pipeline::ClearCache,
           "Forgets every algorithm's state carried between frames, e.g. after a seek.")
      .def_property_readonly("algorithms", &Pipeline::Algorithms,
                             "(id, name) of each algorithm, in processing order.")
      .def_property_readonly("messages", &Pipeline::Messages,
                             "Lines the library printed during the last assembly.")
      .def_property_readonly("lidar_type",
                             [](const Pipeline& p) { return static_cast<uint32_t>(p.Model()); })
      .def_property_readonly("model", [](const Pipeline& p) { return LidarTypeToStr(p.Model()); })
      .def_property_readonly_static(
          "version", [](py::handle) { return ILidarAlgo::VersionNumber(); },
          "The library's version text.");
}

}  // namespace python
}  // namespace velmar
