// What hostile or careless input can do to a pipeline: deep nesting, size-driving parameters far
// out of range, oversized configurations. None may crash the host, throw, or lose the running
// pipeline; each is refused or bounded with its message.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <functional>

#include "filters/SunlightNoise.h"
#include "framework/AlgoFactory.h"
#include "framework/DataFile.h"
#include "framework/LidarAlgo.h"
#include "ground/GroundDet.h"
#include "support/SmallStack.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

using test::CaptureOutput;

constexpr std::size_t kDeepLevels = 100000;

const char* const kUnderground =
    R"({"version": "2.0.6", "algo_list": [{"id": 5, "enabled": true, "name": "under",
        "param": {"filter_ground_height": 1.0}}]})";

// The frame that tells whether the underground filter (1 m) is still running: two of three
// returns lie below it.
int UndergroundRemovals(ILidarAlgo& pipeline) {
  std::vector<_ori_point> frame;
  for (double z : {-2.0, -0.5, -1.5}) {
    _ori_point p = test::MakePointXYZ(1.0, 2.0, z);
    p.distance = 5.0;
    frame.push_back(p);
  }
  pipeline.Process(frame);
  int removed = 0;
  for (const _ori_point& p : frame) {
    removed += p.distance == 0.0;
  }
  return removed;
}

std::unique_ptr<ILidarAlgo> UndergroundPipeline() {
  std::unique_ptr<ILidarAlgo> pipeline;
  CaptureOutput([&] { pipeline = ILidarAlgo::Create(LIDAR_MARLO128, ""); });
  bool accepted = false;
  CaptureOutput([&] { accepted = pipeline->UpdateAlgoParam(kUnderground); });
  EXPECT_TRUE(accepted);
  EXPECT_EQ(UndergroundRemovals(*pipeline), 2);
  return pipeline;
}

// An update refused with `message` keeps the running configuration.
void ExpectRefusedKeepingPipeline(ILidarAlgo& pipeline, const std::string& text,
                                  const std::string& message) {
  bool accepted = true;
  EXPECT_EQ(CaptureOutput([&] { accepted = pipeline.UpdateAlgoParam(text); }), message + "\n");
  EXPECT_FALSE(accepted);
  EXPECT_EQ(UndergroundRemovals(pipeline), 2);
}

std::string Repeated(std::size_t count, const std::string& entry) {
  std::string list;
  for (std::size_t i = 0; i < count; ++i) {
    list += (i == 0 ? "" : ",") + entry;
  }
  return list;
}

std::string Configuration(const std::string& list) {
  return R"({"version": "2.0.6", "algo_list": [)" + list + "]}";
}

std::string Entries(std::size_t count, const std::string& entry) {
  return Configuration(Repeated(count, entry));
}

// 1. A document nested 100,000 levels deep, as text and as a file, on a host thread with a
// 256 KiB stack: refused when it does not parse or is no configuration, accepted when the deep
// part sits where assembly does not look.
TEST(Reliability, DeepNestingNeitherOverflowsTheStackNorLosesThePipeline) {
  const std::string open(kDeepLevels, '[');
  const std::string closed = open + std::string(kDeepLevels, ']');
  const std::string deep_param =
      R"({"version": "2.0.6", "algo_list": [{"id": 5, "enabled": true, "name": "deep",
          "lidar_type": [)" +
      closed + R"(, "Marlo128"], "param": {"filter_ground_height": 1.0, "x": )" + closed + "}}]}";
  ASSERT_TRUE(test::OnSmallStack([&] {
    std::unique_ptr<ILidarAlgo> pipeline = UndergroundPipeline();
    ExpectRefusedKeepingPipeline(*pipeline, open, "[algo]: parse json failed!");
    ExpectRefusedKeepingPipeline(*pipeline, closed,
                                 "[algo]: json root is not an object, configuration refused!");
    bool accepted = false;
    EXPECT_EQ(CaptureOutput([&] { accepted = pipeline->UpdateAlgoParam(deep_param); }),
              "[algo]: deep is added!\n");
    EXPECT_TRUE(accepted);
    EXPECT_EQ(UndergroundRemovals(*pipeline), 2);

    std::unique_ptr<ILidarAlgo> from_file;
    EXPECT_EQ(CaptureOutput([&] {
                from_file = ILidarAlgo::Create(LIDAR_MARLO128, test::WriteTempFile(open));
              }),
              "[algo]: parse json failed!\n");
    EXPECT_EQ(UndergroundRemovals(*from_file), 0);
  }));
}

// 2. and 3. Size-driving parameters far out of range are bounded by each algorithm's own rule
// and never reach an allocation or a loop as they stand, so nothing throws.
TEST(Reliability, SizeDrivingParametersAreBoundedByTheAlgorithmsOwnRule) {
  std::string printed;
  auto ground = test::MakeAlgoAs<GroundDet>(
      35, LIDAR_MARLO128,
      R"({"nr_points_max": 1e308, "nr_ransac_iter_threshold": 1e12, "nr_smooth_iter": 101})",
      &printed);
  EXPECT_EQ(printed,
            "[algo]:GroundDet nr_points_max is not in the correct range!\n"
            "[algo]:GroundDet nr_ransac_iter_threshold is not in the correct range!\n"
            "[algo]:GroundDet nr_smooth_iter is not in the correct range!\n");
  EXPECT_EQ(ground->detector_param.nr_points_max, kPointsMaxBound.max);
  EXPECT_EQ(ground->detector_param.nr_ransac_iter_threshold, 1000);
  EXPECT_EQ(ground->detector_param.nr_smooth_iter, 100);
  std::vector<_ori_point> frame = test::MakeFrame(8);
  EXPECT_NO_THROW(ground->Process(frame));

  // At the bounds, values are taken as given and nothing is printed.
  ground = test::MakeAlgoAs<GroundDet>(
      35, LIDAR_MARLO128,
      R"({"nr_points_max": 1048576, "nr_ransac_iter_threshold": 1000, "nr_smooth_iter": 100})",
      &printed);
  EXPECT_EQ(printed, "");
  EXPECT_EQ(ground->detector_param.nr_points_max, 1048576u);

  auto sunlight = test::MakeAlgoAs<SunlightNoise>(
      2, LIDAR_MARLO256, R"({"filterWindowV": 129, "filterWindowH": 1e300})", &printed);
  EXPECT_EQ(printed,
            "[algo]:SunlightNoise filterWindowV is not in the correct range!\n"
            "[algo]:SunlightNoise filterWindowH is not in the correct range!\n");
  EXPECT_EQ(sunlight->filter_window_v, 0);
  EXPECT_EQ(sunlight->filter_window_h, 0);
  sunlight = test::MakeAlgoAs<SunlightNoise>(
      2, LIDAR_MARLO256, R"({"filterWindowV": 128, "filterWindowH": 10})", &printed);
  EXPECT_EQ(printed, "");
  EXPECT_EQ(sunlight->filter_window_v, 128);
  EXPECT_EQ(sunlight->filter_window_h, 10);
}

// Grid sizes and sample counts beyond their bounds fail the detector's own check, with its
// message; at their bounds they pass it.
TEST(Reliability, DetectorCheckRefusesGridsAndSampleCountsBeyondTheirBounds) {
  const std::vector<
      std::pair<ParamBound, std::function<void(PlaneFitGroundDetectorParam&, uint32_t)>>>
      bounded = {
          {kGridsFineBound, [](auto& p, uint32_t v) { p.nr_grids_fine = v; }},
          {kGridsCoarseBound, [](auto& p, uint32_t v) { p.nr_grids_coarse = p.nr_grids_fine = v; }},
          {kZCompCandidatesBound, [](auto& p, uint32_t v) { p.nr_z_comp_candis = v; }},
          {kSamplesMinBound, [](auto& p, uint32_t v) { p.nr_samples_min_threshold = v; }},
          {kSamplesMaxBound, [](auto& p, uint32_t v) { p.nr_samples_max_threshold = v; }},
          {kPointsMaxBound, [](auto& p, uint32_t v) { p.nr_points_max = v; }},
      };
  for (const auto& [bound, set] : bounded) {
    PlaneFitGroundDetectorParam at;
    set(at, bound.max);
    PlaneFitGroundDetectorParam beyond;
    set(beyond, bound.max + 1);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(at.Validate()) << bound.key;
    EXPECT_FALSE(beyond.Validate()) << bound.key;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Invalid ground detector parameters... \n");
  }
}

// 4. Oversized configurations are refused before anything is built, with one message; the
// running pipeline keeps running, and Create gives a pipeline that passes frames through.
TEST(Reliability, OversizedConfigurationsAreRefusedBeforeAnythingIsBuilt) {
  std::unique_ptr<ILidarAlgo> pipeline = UndergroundPipeline();
  const std::string cheap = R"({"id": 5, "enabled": true, "name": "u", "param": {}})";
  ExpectRefusedKeepingPipeline(
      *pipeline, Entries(200000, cheap),
      "[algo]: algo_list has 200000 enabled entries, more than 256, configuration refused!");
  // About 24 MB each for a ZephelB2: a hundred would need 2.3 GB (a thousand, as the entry limit
  // also refuses, 23 GB).
  const std::string undistort = R"({"id": 1, "enabled": true, "name": "u1", "param": {}})";
  std::unique_ptr<ILidarAlgo> zephel;
  CaptureOutput([&] { zephel = ILidarAlgo::Create(LIDAR_ZEPHEL_B2_B3_MP, ""); });
  bool accepted = true;
  const std::string printed =
      CaptureOutput([&] { accepted = zephel->UpdateAlgoParam(Entries(100, undistort)); });
  EXPECT_FALSE(accepted);
  EXPECT_EQ(printed.find("[algo]: configuration needs about "), 0u) << printed;
  EXPECT_NE(printed.find(" MiB with the running one, more than 1024 MiB, configuration refused!\n"),
            std::string::npos);
  EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 1);

  // Disabled entries and duplicates of one id within the limit are fine.
  const std::string disabled = R"({"id": 5, "enabled": false, "name": "off"})";
  CaptureOutput([&] {
    accepted = pipeline->UpdateAlgoParam(
        Configuration(Repeated(256, cheap) + "," + Repeated(1000, disabled)));
  });
  EXPECT_TRUE(accepted);
  EXPECT_EQ(static_cast<LidarAlgo&>(*pipeline).Algorithms().size(), 256u);

  // Create over a limit: the message and a pipeline that changes nothing.
  const std::string path = test::WriteTempFile(Entries(257, cheap));
  std::unique_ptr<ILidarAlgo> created;
  EXPECT_EQ(CaptureOutput([&] { created = ILidarAlgo::Create(LIDAR_MARLO128, path); }),
            "[algo]: algo_list has 257 enabled entries, more than 256, configuration refused!\n");
  EXPECT_EQ(UndergroundRemovals(*created), 0);
}

// While a new configuration is built the running one is still alive, so the two count together:
// one that fits alone is refused beside a large running one, and accepted once that is gone.
TEST(Reliability, TheRunningConfigurationCountsWhileTheNextIsBuilt) {
  // Ground detection allocates its tables at its first frame, so these build in no time; each
  // is estimated at about 200 MB with the capacity at its bound.
  const std::string ground =
      R"({"id": 35, "enabled": true, "name": "g", "param": {"nr_points_max": 1048576}})";
  const std::size_t one = AlgoFootprint(35, LIDAR_MARLO128, nullptr);
  ASSERT_GT(one, 0u);
  std::unique_ptr<ILidarAlgo> pipeline;
  CaptureOutput([&] { pipeline = ILidarAlgo::Create(LIDAR_MARLO128, ""); });
  bool accepted = false;
  CaptureOutput([&] { accepted = pipeline->UpdateAlgoParam(Entries(3, ground)); });
  EXPECT_TRUE(accepted);
  EXPECT_NE(CaptureOutput([&] {
              accepted = pipeline->UpdateAlgoParam(Entries(3, ground));
            }).find("configuration refused!"),
            std::string::npos);
  EXPECT_FALSE(accepted);
  EXPECT_EQ(static_cast<LidarAlgo&>(*pipeline).Algorithms().size(), 3u);
  CaptureOutput([&] { accepted = pipeline->UpdateAlgoParam(R"({"version": "2.0.6"})"); });
  CaptureOutput([&] { accepted = pipeline->UpdateAlgoParam(Entries(3, ground)); });
  EXPECT_TRUE(accepted);
}

// Data files named by parameters are read with the pipeline's mutex held: a FIFO without a
// writer, a device or a folder must be refused at once, and a file over the cap unread.
TEST(Reliability, DataFilesAreRegularFilesOfBoundedSize) {
  std::string contents = "stale";
  const std::string small = test::WriteTempFile("0 1 2\n");
  EXPECT_EQ(ReadDataFile(small, contents), DataFileStatus::kRead);
  EXPECT_EQ(contents, "0 1 2\n");
  EXPECT_EQ(ReadDataFile(small, contents, 3), DataFileStatus::kTooLarge);
  EXPECT_EQ(contents, "");
  const std::string fifo = small + ".fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(ReadDataFile(fifo, contents), DataFileStatus::kNotRegular);
  unlink(fifo.c_str());
  EXPECT_EQ(ReadDataFile("/dev/zero", contents), DataFileStatus::kNotRegular);
  EXPECT_EQ(ReadDataFile("/tmp", contents), DataFileStatus::kNotRegular);
  EXPECT_EQ(ReadDataFile(small + ".missing", contents), DataFileStatus::kCannotOpen);
}

}  // namespace
}  // namespace velmar
