// The road-boundary map (parsing, the raster lookup against a plain even-odd count) and the
// region-of-interest filter that reads it from a file named relative to its configuration.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>

#include "geometry/FilterPointsOfInterest.h"
#include "geometry/RoadMap.h"
#include "support/EvenOdd.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

constexpr int kRoiId = 32;

// A road 10 m wide along y with a median island, and a separate square parking lot.
const char* const kRoadMap = R"(# test road
velmar-roadmap 1
polygon   # the road
-5 -50
5 -50
5 50
-5 50
end

hole      # median
-1 -10
1 -10
1 10
-1 10
-1 -10    # may repeat its first point
end
polygon
20 0
30 0
30 10
20 10
end
)";

RoadMap Parsed(const std::string& text) {
  RoadMap map;
  std::string problem;
  EXPECT_TRUE(map.Parse(text, problem)) << problem;
  return map;
}

TEST(RoadMap, SeveralPolygonsWithAHole) {
  const RoadMap map = Parsed(kRoadMap);
  EXPECT_EQ(map.Rings().size(), 3u);
  EXPECT_TRUE(map.Rings()[1].hole);
  EXPECT_EQ(map.Rings()[1].points.size(), 4u);
  EXPECT_TRUE(map.Contains(3.0, 0.0));
  EXPECT_FALSE(map.Contains(0.0, 0.0));  // on the median
  EXPECT_TRUE(map.Contains(0.0, 20.0));  // beyond the median's end
  EXPECT_TRUE(map.Contains(25.0, 5.0));
  EXPECT_FALSE(map.Contains(12.0, 5.0));
  EXPECT_FALSE(map.Contains(0.0, 60.0));
  EXPECT_FALSE(map.Contains(NAN, 0.0));
  EXPECT_FALSE(map.Contains(0.0, INFINITY));
}

// Points on an edge or a vertex count as inside; a hair beyond them does not.
TEST(RoadMap, EdgesAndVerticesExactly) {
  const RoadMap map = Parsed(kRoadMap);
  const double hair = 1e-9;
  struct Case {
    double x, y;
    bool inside;
  };
  const Case cases[] = {
      {5.0, 0.0, true},
      {5.0 - hair, 0.0, true},
      {5.0 + hair, 0.0, false},
      {5.0, 50.0, true},
      {5.0 - hair, 50.0 - hair, true},
      {5.0 + hair, 50.0, false},
      {5.0, 50.0 + hair, false},
      {-5.0, -50.0, true},
      {1.0, 0.0, true},
      {1.0 - hair, 0.0, false},
      {1.0 + hair, 0.0, true},
      {1.0, 10.0, true},
      {1.0 + hair, 10.0 + hair, true},
      {1.0 - hair, 10.0 - hair, false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(map.Contains(c.x, c.y), c.inside) << c.x << " " << c.y;
  }
}

// A U-shaped (concave) road and a star of many vertices: the raster agrees everywhere with an
// even-odd count over all edges.
TEST(RoadMap, ConcaveRoadsAgreeWithAnEvenOddCount) {
  MapRing u;
  u.points = {{0, 0}, {30, 0}, {30, 30}, {20, 30}, {20, 10}, {10, 10}, {10, 30}, {0, 30}};
  MapRing star;
  std::mt19937 random(7);
  std::uniform_real_distribution<double> radius(20.0, 60.0);
  constexpr int kStarPoints = 2000;
  for (int i = 0; i < kStarPoints; ++i) {
    const double angle = 2.0 * M_PI * i / kStarPoints;
    const double r = radius(random);
    star.points.push_back({100.0 + r * std::cos(angle), r * std::sin(angle)});
  }
  RoadMap map;
  std::string problem;
  ASSERT_TRUE(map.Build({u, star}, problem)) << problem;
  EXPECT_FALSE(map.Contains(15.0, 20.0));  // in the notch of the U
  EXPECT_TRUE(map.Contains(15.0, 5.0));
  std::uniform_real_distribution<double> x(-10.0, 170.0), y(-70.0, 70.0);
  int disagreements = 0;
  for (int i = 0; i < 20000; ++i) {
    const double px = x(random), py = y(random);
    disagreements += map.Contains(px, py) != test::EvenOdd(map.Rings(), px, py) ? 1 : 0;
  }
  EXPECT_EQ(disagreements, 0);
}

TEST(RoadMap, MalformedMapsAreRefusedWithTheirLine) {
  const std::string header = "velmar-roadmap 1\n";
  const std::string square = "polygon\n0 0\n1 0\n1 1\n0 1\nend\n";
  struct Case {
    std::string text;
    const char* problem;
  };
  const Case cases[] = {
      {"", "no header"},
      {"velmar-roadmap 2\n" + square, "line 1: expected the header"},
      {header + "polygon\n0 0\n1 x\n1 1\nend\n", "line 4: expected two numbers"},
      {header + "polygon\n0 0\n1 0 2\n1 1\nend\n", "line 4: expected two numbers"},
      {header + "polygon\n0 0\n1 nan\n1 1\nend\n", "line 4: expected two numbers"},
      {header + "polygon\n0 0\n1 1e9\n1 1\nend\n", "line 4: coordinate"},
      {header + "0 0\n", "line 2: a point outside a ring"},
      {header + "end\n", "line 2: \"end\" with no ring"},
      {header + "polygon\n0 0\npolygon\n", "line 4: a ring begins"},
      {header + "polygon extra\n", "line 2: \"polygon\" stands alone"},
      {header + "circle\n", "line 2: a point outside a ring"},
      {header + "polygon\n0 0\n1 0\n1 1\n", "ring of line 2 is not closed"},
      {header + "polygon\n0 0\n1 0\n0 0\nend\n", "line 3: a ring needs three"},
      {header + "polygon\n0 0\n1 1\n1 0\n0 1\nend\n", "line 3: the edge from here meets"},
      {header + "polygon\n0 0\n2 0\n1 0\nend\n", "meets"},  // folds back on itself
      {header + square + "polygon\n0.5 0.5\n3 0.5\n3 3\nend\n", "meets the edge of line"},
      {header + square + "polygon\n1 0\n2 0\n2 1\nend\n", "meets"},  // touches at a vertex
      {header, "holds no ring"},
  };
  for (const Case& c : cases) {
    RoadMap map;
    std::string problem;
    EXPECT_FALSE(map.Parse(c.text, problem)) << c.text;
    EXPECT_NE(problem.find(c.problem), std::string::npos) << c.text << " -> " << problem;
    EXPECT_TRUE(map.Empty());
    EXPECT_FALSE(map.Contains(0.5, 0.5));
  }
}

std::vector<_ori_point> RoadFrame() {
  std::vector<_ori_point> frame = {
      test::MakePointXYZ(3.0, 0.0, 0.5), test::MakePointXYZ(0.0, 0.0, 0.5),
      test::MakePointXYZ(12.0, 5.0, 0.5), test::MakePointXYZ(3.0, 5.0, 4.0)};
  for (_ori_point& p : frame) {
    p.distance = 10.0;
  }
  return frame;
}

std::vector<bool> Kept(const std::vector<_ori_point>& frame) {
  std::vector<bool> kept;
  for (const _ori_point& p : frame) {
    kept.push_back(p.distance != 0.0);
  }
  return kept;
}

std::string RoiParams(const std::string& path, const std::string& extra = "") {
  return "{\"road_map_boundary_path\": \"" + path + "\"" + extra + "}";
}

TEST(FilterPointsOfInterest, KeepsTheRegionAndTheHeightBandOrTheInverse) {
  const std::string path = test::WriteTempFile(kRoadMap);
  const auto run = [&](const std::string& extra) {
    std::vector<_ori_point> frame = RoadFrame();
    test::MakeAlgo(kRoiId, LIDAR_MARLO128, RoiParams(path, extra))->Process(frame);
    return Kept(frame);
  };
  EXPECT_EQ(run(""), (std::vector<bool>{true, false, false, true}));
  EXPECT_EQ(run(", \"max_height\": 2"), (std::vector<bool>{true, false, false, false}));
  EXPECT_EQ(run(", \"invert_region\": 1"), (std::vector<bool>{false, true, true, false}));
  std::string output;
  test::MakeAlgo(kRoiId, LIDAR_MARLO128, RoiParams(path, ", \"min_height\": 5, \"max_height\": 2"),
                 &output);
  EXPECT_EQ(output, "[algo]:FilterPointsOfInterest min_height is not in the correct range!\n");
}

// Whatever is wrong with the file, one message and frames pass unchanged.
TEST(FilterPointsOfInterest, UnusableFilesLeaveFramesUnchanged) {
  const std::string bad = test::WriteTempFile("velmar-roadmap 1\npolygon\n0 0\n1 0\n");
  const std::string fifo = bad + ".fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::pair<std::string, std::string> cases[] = {
      {bad, " is not closed by \"end\"!\n"},
      {bad + ".missing", " cannot be opened!\n"},
      {fifo, " is not a regular file!\n"},
      {"/tmp", " is not a regular file!\n"},
  };
  for (const auto& [path, tail] : cases) {
    std::string output;
    auto algo =
        test::MakeAlgoAs<FilterPointsOfInterest>(kRoiId, LIDAR_MARLO128, RoiParams(path), &output);
    EXPECT_EQ(output.rfind("[algo]:FilterPointsOfInterest road_map_boundary_path " + path, 0), 0u)
        << output;
    EXPECT_NE(output.find(tail), std::string::npos) << output;
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 1);
    std::vector<_ori_point> frame = RoadFrame();
    const std::vector<_ori_point> before = frame;
    algo->Process(frame);
    EXPECT_TRUE(test::SameBytes(frame, before));
  }
  unlink(fifo.c_str());
}

std::string BaseName(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

// A relative path is taken from the configuration file's folder; configuration text given to
// UpdateAlgoParam takes it from the working directory. Each configuration reads the file anew.
TEST(FilterPointsOfInterest, RelativePathsAndReloadOnEveryConfiguration) {
  const std::string path = test::WriteTempFile(kRoadMap);
  const std::string json =
      test::ConfigJson(test::EntryJson(kRoiId, "roi", RoiParams(BaseName(path))));
  std::string output;
  auto pipeline = test::CreatePipeline(LIDAR_MARLO128, json, &output);
  EXPECT_EQ(output.find("cannot be opened"), std::string::npos) << output;
  std::vector<_ori_point> frame = RoadFrame();
  pipeline->Process(frame);
  EXPECT_EQ(Kept(frame), (std::vector<bool>{true, false, false, true}));

  // Replaced by a map of the parking lot only; the running configuration keeps its map.
  std::ofstream(path, std::ios::trunc)
      << "velmar-roadmap 1\npolygon\n10 0\n14 0\n14 10\n10 10\nend\n";
  frame = RoadFrame();
  pipeline->Process(frame);
  EXPECT_EQ(Kept(frame), (std::vector<bool>{true, false, false, true}));

  const std::string absolute = test::ConfigJson(test::EntryJson(kRoiId, "roi", RoiParams(path)));
  output = test::CaptureOutput([&] { EXPECT_TRUE(pipeline->UpdateAlgoParam(absolute)); });
  frame = RoadFrame();
  pipeline->Process(frame);
  EXPECT_EQ(Kept(frame), (std::vector<bool>{false, false, true, false}));

  if (access(BaseName(path).c_str(), F_OK) != 0) {
    output = test::CaptureOutput([&] { EXPECT_TRUE(pipeline->UpdateAlgoParam(json)); });
    EXPECT_NE(output.find("road_map_boundary_path " + BaseName(path) + " cannot be opened!"),
              std::string::npos)
        << output;
    frame = RoadFrame();
    pipeline->Process(frame);
    EXPECT_EQ(Kept(frame), (std::vector<bool>{true, true, true, true}));
  }
}

}  // namespace
}  // namespace velmar
