// The reference of the Python benchmark (bench/python_bench.py): the loop a C++ host runs, in the
// same binary as the Python calls it is compared with. Each packet is copied into the host's
// vector, as a driver fills it, and processed; only this loop is timed.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

#include "HostLoop.h"
#include "OutputCapture.h"
#include "PointArray.h"

namespace py = pybind11;

namespace velmar {
namespace python {
namespace {

double HostLoopSeconds(uint32_t model, const std::string& configPath, const py::list& frames,
                       std::size_t packetPoints) {
  std::vector<Points> copies;
  for (py::handle frame : frames) {
    copies.emplace_back();
    CopyFromArray(frame, copies.back());
  }
  std::unique_ptr<ILidarAlgo> pipeline;
  CaptureOutputOf(
      [&] { pipeline = ILidarAlgo::Create(static_cast<LidarType>(model), configPath); });
  py::gil_scoped_release unlocked;
  Points host;
  auto start = std::chrono::steady_clock::now();
  for (const Points& frame : copies) {
    const std::size_t step =
        packetPoints == 0 ? std::max<std::size_t>(frame.size(), 1) : packetPoints;
    for (std::size_t offset = 0; offset < frame.size(); offset += step) {
      const std::size_t end = std::min(frame.size(), offset + step);
      host.assign(frame.begin() + static_cast<std::ptrdiff_t>(offset),
                  frame.begin() + static_cast<std::ptrdiff_t>(end));
      pipeline->Process(host);
    }
  }
  std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
  return spent.count();
}

}  // namespace

void BindHostLoop(py::module_& module) {
  module.def("_host_loop_seconds", &HostLoopSeconds, py::arg("model"), py::arg("config"),
             py::arg("frames"), py::arg("packet"),
             "Seconds a C++ host takes to feed the frames through a new pipeline (benchmark "
             "reference).");
}

}  // namespace python
}  // namespace velmar
