// The extension module velmar._velmar. The package velmar (python/velmar) is its public face.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <string>
#include <vector>

#include "HostLoop.h"
#include "OutputCapture.h"
#include "Pipeline.h"
#include "PointArray.h"
#include "Recordings.h"
#include "framework/about.h"

namespace py = pybind11;

namespace {

std::vector<std::string> ModelNames() {
  std::vector<std::string> names;
  for (int type = 0; type < velmar::kLidarTypeCount; ++type) {
    names.push_back(velmar::LidarTypeToStr(type));
  }
  return names;
}

}  // namespace

PYBIND11_MODULE(_velmar, module) {
  velmar::python::RouteStandardOutput();
  module.attr("POINT_DTYPE") = velmar::python::PointDtype();
  module.attr("MODELS") = ModelNames();
  module.attr("VERSION") = velmar::ILidarAlgo::VersionNumber();
  velmar::python::BindPipeline(module);
  velmar::python::BindRecordings(module);
  velmar::python::BindHostLoop(module);
}
