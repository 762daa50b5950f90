// Data files from outside: the bytes are a road-boundary map or a reflectance calibration table,
// whichever header they carry (both readers see every input). A reader must accept the text or
// refuse it with a reason, never crash, and what it accepts must answer as the text says:
//  - the map's raster agrees with an even-odd count over all of its edges, wherever a point is
//    clearly off every boundary;
//  - the calibration algorithm, loading the same bytes as a file named by a configuration, gives
//    every return the intensity its channel's curve gives, within the scale;
//  - the region filter, loading them too, keeps exactly the returns the map contains.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "geometry/CalibTable.h"
#include "geometry/RoadMap.h"
#include "support/EvenOdd.h"
#include "velmar/lidar_algo.h"

namespace {

using velmar::_ori_point;
using velmar::CalibTable;
using velmar::MapPoint;
using velmar::MapRing;
using velmar::RoadMap;

constexpr int kCalibId = 11;
constexpr int kRegionId = 32;
// Queries per map: around its first vertices, and spread over its extent.
constexpr std::size_t kVertexQueries = 48;
constexpr std::size_t kSpreadQueries = 48;
// A query this close to an edge (relative to the map's extent) may fall either way.
constexpr double kBoundaryMargin = 1e-7;
constexpr double kHeight = 0.5;  // inside the region filter's default height band

void Require(bool condition) {
  if (!condition) {
    std::abort();
  }
}

double SegmentDistance(const MapPoint& a, const MapPoint& b, double x, double y) {
  const double dx = b.x - a.x;
  const double dy = b.y - a.y;
  const double length2 = dx * dx + dy * dy;
  double t = length2 > 0.0 ? ((x - a.x) * dx + (y - a.y) * dy) / length2 : 0.0;
  t = t < 0.0 ? 0.0 : (t > 1.0 ? 1.0 : t);
  return std::hypot(a.x + t * dx - x, a.y + t * dy - y);
}

bool NearBoundary(const std::vector<MapRing>& rings, double x, double y, double margin) {
  for (const MapRing& ring : rings) {
    const std::size_t n = ring.points.size();
    for (std::size_t i = 0, j = n - 1; i < n; j = i++) {
      if (SegmentDistance(ring.points[j], ring.points[i], x, y) <= margin) {
        return true;
      }
    }
  }
  return false;
}

struct Extent {
  double x0 = 0.0, y0 = 0.0, x1 = 0.0, y1 = 0.0;
  double Size() const { return std::max(x1 - x0, y1 - y0); }
};

Extent ExtentOf(const std::vector<MapRing>& rings) {
  Extent e{rings[0].points[0].x, rings[0].points[0].y, rings[0].points[0].x, rings[0].points[0].y};
  for (const MapRing& ring : rings) {
    for (const MapPoint& p : ring.points) {
      e.x0 = std::min(e.x0, p.x);
      e.y0 = std::min(e.y0, p.y);
      e.x1 = std::max(e.x1, p.x);
      e.y1 = std::max(e.y1, p.y);
    }
  }
  return e;
}

// Points just off the first vertices (on either side of their edges) and points spread over the
// map's extent and a little beyond, chosen by the input's bytes.
std::vector<MapPoint> QueryPoints(const std::vector<MapRing>& rings, const uint8_t* data,
                                  std::size_t size) {
  const Extent e = ExtentOf(rings);
  const double step = std::max(e.Size(), 1e-3) * 0.013;
  std::vector<MapPoint> queries;
  for (const MapRing& ring : rings) {
    for (const MapPoint& p : ring.points) {
      if (queries.size() >= kVertexQueries) {
        break;
      }
      queries.push_back({p.x + step, p.y + 0.7 * step});
      queries.push_back({p.x - 0.6 * step, p.y - step});
    }
  }
  const double width = (e.x1 - e.x0) * 1.2 + step;
  const double height = (e.y1 - e.y0) * 1.2 + step;
  for (std::size_t k = 0; k < kSpreadQueries; ++k) {
    const double u = (data[(2 * k) % size] + 0.5 + k * 0.618) / 256.0;
    const double v = (data[(2 * k + 1) % size] + 0.5 + k * 0.382) / 256.0;
    queries.push_back({e.x0 - 0.1 * width + std::fmod(u, 1.0) * width,
                       e.y0 - 0.1 * height + std::fmod(v, 1.0) * height});
  }
  return queries;
}

void CheckMap(const RoadMap& map, const uint8_t* data, std::size_t size) {
  const std::vector<MapRing>& rings = map.Rings();
  const Extent e = ExtentOf(rings);
  const double margin =
      kBoundaryMargin *
      (1.0 + std::max({std::fabs(e.x0), std::fabs(e.x1), std::fabs(e.y0), std::fabs(e.y1)}));
  for (const MapPoint& q : QueryPoints(rings, data, size)) {
    if (!NearBoundary(rings, q.x, q.y, margin)) {
      Require(map.Contains(q.x, q.y) == velmar::test::EvenOdd(rings, q.x, q.y));
    }
  }
  const double nan = std::nan("");
  const double inf = HUGE_VAL;
  Require(!map.Contains(nan, 0.0) && !map.Contains(0.0, nan));
  Require(!map.Contains(inf, 0.0) && !map.Contains(-inf, -inf) && !map.Contains(1e300, 1e300));
}

void CheckTable(const CalibTable& table) {
  for (const velmar::CalibCurve& curve : table.Curves()) {
    for (uint32_t k = 0; k < curve.knots; ++k) {
      const double at_knot = curve.Apply(curve.raw[k]);
      const double expected = std::min(curve.calibrated[k], CalibTable::kFullScale);
      Require(std::fabs(at_knot - expected) <= 1e-6 * (1.0 + expected));
    }
  }
}

// Returns at the map's query points (or along a line when there is no map): every other one on a
// channel the table calibrates, at a knot or between knots, the rest on any channel, with
// intensities across and beyond the scale.
std::vector<_ori_point> Returns(const RoadMap& map, const CalibTable& table, const uint8_t* data,
                                std::size_t size) {
  std::vector<MapPoint> where;
  if (!map.Empty()) {
    where = QueryPoints(map.Rings(), data, size);
  } else {
    for (int k = 0; k < 64; ++k) {
      where.push_back({1.0 + k, 0.5 * k});
    }
  }
  std::vector<uint32_t> calibrated;
  for (uint32_t channel = 0; channel < table.Curves().size(); ++channel) {
    if (table.Curves()[channel].knots >= 2) {
      calibrated.push_back(channel);
    }
  }
  const double intensities[] = {0.0, 1.0, 37.5, 100.0, 254.9, 255.0, 300.0, 999.0, -5.0};
  constexpr std::size_t kIntensities = sizeof(intensities) / sizeof(intensities[0]);
  std::vector<_ori_point> frame;
  for (std::size_t k = 0; k < where.size(); ++k) {
    _ori_point p{};
    p.x = where[k].x;
    p.y = where[k].y;
    p.z = kHeight;
    p.distance = 1.0;
    p.timestamp = k + 1;
    p.channel = static_cast<uint32_t>((k * 7 + data[k % size]) % 140);
    p.intensity = intensities[k % kIntensities];
    if (k % 2 == 0 && !calibrated.empty()) {
      const velmar::CalibCurve& curve = table.Curves()[calibrated[(k / 2) % calibrated.size()]];
      p.channel = calibrated[(k / 2) % calibrated.size()];
      const uint32_t knot = static_cast<uint32_t>(k / 2) % curve.knots;
      p.intensity = k % 4 == 0 ? curve.raw[knot] : curve.raw[knot] + 0.37;
    }
    frame.push_back(p);
  }
  return frame;
}

std::string Entry(int id, const std::string& name, const std::string& params) {
  return "{\"id\": " + std::to_string(id) + ", \"enabled\": true, \"name\": \"" + name +
         "\", \"desc\": \"\", \"lidar_type\": [\"Marlo128\"], \"param\": " + params + "}";
}

// The calibration, then the region filter, both reading the file at `path`.
std::string Configuration(const std::string& path) {
  const std::string file = "\"" + path + "\"";
  return "{\"version\": \"" + velmar::ILidarAlgo::VersionNumber() + "\", \"algo_list\": [" +
         Entry(kCalibId, "calib", "{\"calib_file\": " + file + "}") + ", " +
         Entry(kRegionId, "region", "{\"road_map_boundary_path\": " + file + "}") + "]}";
}

// What the pipeline made of the returns: the calibration's intensities and the region's cut.
void CheckPipeline(const std::vector<_ori_point>& before, const std::vector<_ori_point>& after,
                   const RoadMap& map, const CalibTable& table) {
  Require(before.size() == after.size());
  const auto& curves = table.Curves();
  for (std::size_t k = 0; k < before.size(); ++k) {
    const _ori_point& in = before[k];
    const _ori_point& out = after[k];
    Require(out.timestamp == in.timestamp);
    const bool calibrated = in.channel < curves.size() && curves[in.channel].knots >= 2;
    Require(out.intensity == (calibrated ? curves[in.channel].Apply(in.intensity) : in.intensity));
    const bool kept = map.Empty() || map.Contains(in.x, in.y);
    Require(out.distance == (kept ? in.distance : 0.0));
  }
}

std::unique_ptr<velmar::ILidarAlgo> g_pipeline;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  velmar::fuzz::SilenceLibraryOutput();
  g_pipeline = velmar::ILidarAlgo::Create(velmar::LIDAR_MARLO128, "");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::string problem;
  RoadMap map;
  if (map.Parse(text, problem)) {
    CheckMap(map, data, size);
  } else {
    Require(!problem.empty());
    Require(map.Empty() && !map.Contains(0.0, 0.0));
  }
  CalibTable table;
  problem.clear();
  if (table.Parse(text, problem)) {
    CheckTable(table);
  } else {
    Require(!problem.empty());
    Require(table.Empty());
  }

  const std::string path = velmar::fuzz::InMemoryFile(data, size);
  g_pipeline->UpdateAlgoParam(Configuration(path));
  const std::vector<_ori_point> before = Returns(map, table, data, size);
  std::vector<_ori_point> after = before;
  g_pipeline->Process(after);
  CheckPipeline(before, after, map, table);
  return 0;
}
