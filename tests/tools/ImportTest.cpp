// velmar-algo import: KITTI .bin and SemanticKITTI .label files into recordings of ours, on
// hand-built clouds whose every point is known, and on the shared snowfall frame when present.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "CliTestSupport.h"
#include "framework/AlgoCommon.h"
#include "sim/Import.h"
#include "sim/Recording.h"
#include "support/TestSupport.h"

namespace velmar {
namespace clitest {
namespace {

using sim::TruthKind;

// Beams of a spinning sensor are not evenly spaced: dense near the horizon, sparse below.
const std::vector<double> kBeamElevationsDeg = {-24.0, -16.5, -11.0, -8.0, -6.2,
                                                -5.4,  -4.9,  -1.0,  0.3,  4.0};
constexpr int kAzimuthSteps = 180;  // 2 degrees apart
const uint32_t kClasses[] = {110, 40, 111, 50, 0, 81};

struct KittiPoint {
  float x, y, z, intensity;
};

// A full turn of every beam at 10 m, KITTI axes (x forward, y left), intensities 0..1.
std::vector<KittiPoint> UnevenBeamCloud() {
  std::vector<KittiPoint> cloud;
  for (int a = 0; a < kAzimuthSteps; ++a) {
    for (double elevation : kBeamElevationsDeg) {
      const double az = a * 2.0 * kDegToRad;
      const double el = elevation * kDegToRad;
      // Half a bin of wobble around the beam's elevation, as measured returns show.
      const double wobble = ((a % 5) - 2) * 0.004 * kDegToRad;
      const double r = 10.0;
      cloud.push_back({static_cast<float>(r * std::cos(el + wobble) * std::cos(az)),
                       static_cast<float>(r * std::cos(el + wobble) * std::sin(az)),
                       static_cast<float>(r * std::sin(el + wobble)),
                       static_cast<float>((a % 10) / 10.0)});
    }
  }
  return cloud;
}

template <typename T>
void WriteBinary(const std::string& path, const std::vector<T>& values, std::size_t dropBytes = 0) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(values.data()),
            static_cast<std::streamsize>(values.size() * sizeof(T) - dropBytes));
}

TEST(ImportTest, AxesBeamsLabelsAndIntensityOfAGenericImport) {
  ScratchFolder scratch;
  const std::vector<KittiPoint> cloud = UnevenBeamCloud();
  std::vector<uint32_t> labels;
  for (std::size_t i = 0; i < cloud.size(); ++i) {
    labels.push_back(kClasses[i % 6] | (7u << 16));  // the instance half is not ours to keep
  }
  WriteBinary(scratch.Path("f.bin"), cloud);
  WriteBinary(scratch.Path("f.label"), labels);
  const CommandResult run = RunCli("import " + scratch.Path("f.bin") + " --label " +
                                       scratch.Path("f.label") + " -o " + scratch.Path("rec"),
                                   scratch);
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, ::testing::HasSubstr("10 beams"));
  const std::vector<std::vector<_ori_point>> frames = ReadRecording(scratch.Path("rec"));
  ASSERT_EQ(frames.size(), 1u);
  const std::vector<_ori_point>& frame = frames[0];
  ASSERT_EQ(frame.size(), cloud.size());
  std::vector<bool> seen(cloud.size(), false);
  for (std::size_t j = 0; j < frame.size(); ++j) {
    const _ori_point& p = frame[j];
    EXPECT_EQ(p.mark, j + 1 == frame.size() ? 1 : 0) << j;
    // The source point it came from: ours is x right (KITTI -y), y forward (KITTI x).
    std::size_t i = 0;
    while (i < cloud.size() &&
           !(std::fabs(cloud[i].x - p.y) < 1e-5 && std::fabs(-cloud[i].y - p.x) < 1e-5 &&
             std::fabs(cloud[i].z - p.z) < 1e-5)) {
      ++i;
    }
    ASSERT_LT(i, cloud.size()) << j;
    seen[i] = true;
    EXPECT_NEAR(p.distance, 10.0, 1e-4);
    const std::size_t beamFromBottom = i % kBeamElevationsDeg.size();
    EXPECT_EQ(p.channel, kBeamElevationsDeg.size() - beamFromBottom) << j;  // 1 = the top beam
    EXPECT_NEAR(p.intensity, cloud[i].intensity * 255.0, 1e-3);
    EXPECT_GT(p.pulse_width, 0.0);
    const uint32_t datasetClass = kClasses[i % 6];
    EXPECT_EQ(sim::TruthObjectOf(p), datasetClass);
    EXPECT_EQ(sim::TruthKindOf(p), sim::TruthOfDatasetClass(datasetClass));
  }
  EXPECT_EQ(std::count(seen.begin(), seen.end(), true), static_cast<long>(cloud.size()));
  EXPECT_EQ(sim::TruthOfDatasetClass(110), TruthKind::kSnow);
  EXPECT_EQ(sim::TruthOfDatasetClass(111), TruthKind::kGround);
  EXPECT_EQ(sim::TruthOfDatasetClass(72), TruthKind::kGround);
  EXPECT_EQ(sim::TruthOfDatasetClass(0), TruthKind::kUnlabelled);
  EXPECT_EQ(sim::TruthOfDatasetClass(80), TruthKind::kReal);

  // eval scores falling snow, leaves the unlabelled out and reports every dataset class.
  WriteText(scratch.Path("c.json"), test::ConfigJson(test::EntryJson(19, "d")));
  const CommandResult eval = RunCli(
      "eval --model KR360 --config " + scratch.Path("c.json") + " " + scratch.Path("rec"), scratch);
  ASSERT_EQ(eval.status, 0) << eval.err;
  EXPECT_THAT(eval.out, ::testing::HasSubstr("by class of the imported dataset"));
  EXPECT_THAT(eval.out, ::testing::HasSubstr("110 falling snow (snow)"));
  EXPECT_THAT(eval.out, ::testing::HasSubstr("81 traffic-sign (real)"));
}

TEST(ImportTest, BeamsAreFoundFromUnevenElevations) {
  std::vector<double> elevations;
  for (int a = 0; a < 50; ++a) {
    for (double e : kBeamElevationsDeg) {
      elevations.push_back(e + ((a % 5) - 2) * 0.004);
    }
  }
  const std::vector<double> boundaries = sim::FindBeamBoundaries(elevations);
  ASSERT_EQ(boundaries.size(), kBeamElevationsDeg.size() - 1);
  for (std::size_t k = 0; k < boundaries.size(); ++k) {
    EXPECT_GT(boundaries[k], kBeamElevationsDeg[k]) << k;
    EXPECT_LT(boundaries[k], kBeamElevationsDeg[k + 1]) << k;
  }
  EXPECT_TRUE(sim::FindBeamBoundaries({}).empty());
  EXPECT_TRUE(sim::FindBeamBoundaries({3.0, 3.0}).empty());
}

// A 16-beam turn stored ring after ring, as KITTI's files are, from lasers mounted 5 cm above
// or below the origin in turn: seen from the origin, each beam's elevation swings with range by
// more than half the degree between beams, so the elevations alone cannot tell the beams apart.
// Each ring starts a little further round than the last, and returns are missing here and there
// (the first of the first ring among them).
sim::SourceCloud RingAfterRingCloud(bool clockwise) {
  constexpr int kRings = 16;
  constexpr int kSteps = 200;  // 1.8 degrees apart
  sim::SourceCloud cloud;
  for (int ring = 0; ring < kRings; ++ring) {
    const double elevation = (-16.0 + 1.0 * ring) * kDegToRad;
    const double mount = ring % 2 == 0 ? 0.05 : -0.05;
    // The last ring runs on a fifth of a turn past its start, as the last of a frame may.
    const int steps = ring + 1 == kRings ? kSteps + kSteps / 5 : kSteps;
    for (int step = 0; step < steps; ++step) {
      if ((ring * 7 + step) % 23 == 0) {
        continue;  // no return
      }
      const double turn = (step + 0.3 * ring) * 1.8 * (clockwise ? -1.0 : 1.0);
      const double azimuth = (turn - 180.0) * kDegToRad;
      const double range = 4.0 + 15.0 * (1.0 + std::sin(3.0 * azimuth));
      cloud.x.push_back(static_cast<float>(range * std::cos(elevation) * std::cos(azimuth)));
      cloud.y.push_back(static_cast<float>(range * std::cos(elevation) * std::sin(azimuth)));
      cloud.z.push_back(static_cast<float>(range * std::sin(elevation) + mount));
      cloud.intensity.push_back(0.5f);
    }
  }
  return cloud;
}

TEST(ImportTest, BeamsOfAFileStoredRingAfterRingComeFromItsOrder) {
  for (bool clockwise : {false, true}) {
    const sim::SourceCloud cloud = RingAfterRingCloud(clockwise);
    // Where each source point lands (our x is KITTI's -y, our y its x), and its ring.
    auto key = [](double x, double y, double z) {
      return std::make_tuple(std::llround(x * 1e4), std::llround(y * 1e4), std::llround(z * 1e4));
    };
    std::map<std::tuple<long long, long long, long long>, uint32_t> ringAt;
    std::size_t index = 0;
    for (uint32_t ring = 0; ring < 16; ++ring) {
      for (int step = 0; step < (ring == 15 ? 240 : 200); ++step) {
        if ((ring * 7 + step) % 23 != 0) {
          ringAt[key(-cloud.y[index], cloud.x[index], cloud.z[index])] = ring;
          ++index;
        }
      }
    }
    ASSERT_EQ(index, cloud.Size());

    sim::ImportReport report;
    const std::vector<_ori_point> frame = sim::MapFrame(cloud, sim::ImportOptions{}, 0, &report);
    EXPECT_EQ(report.beams, 16u) << "clockwise " << clockwise;
    std::size_t checked = 0;
    for (const _ori_point& p : frame) {
      if (p.distance == 0.0) {
        continue;
      }
      const auto found = ringAt.find(key(p.x, p.y, p.z));
      ASSERT_NE(found, ringAt.end());
      // Channel 1 is the top beam: the last ring stored, the highest elevation.
      EXPECT_EQ(p.channel, 16u - found->second) << "clockwise " << clockwise;
      ++checked;
    }
    EXPECT_EQ(checked, cloud.Size());
  }
}

TEST(ImportTest, TheMarlo128MappingFillsTheSensorsFrameLayout) {
  ScratchFolder scratch;
  WriteBinary(scratch.Path("f.bin"), UnevenBeamCloud());
  const CommandResult run = RunCli("import --mapping marlo128 --assume real " +
                                       scratch.Path("f.bin") + " -o " + scratch.Path("rec"),
                                   scratch);
  ASSERT_EQ(run.status, 0) << run.err;
  sim::RecordingReader reader(scratch.Path("rec"));
  EXPECT_EQ(reader.Info().model, "Marlo128");
  EXPECT_EQ(reader.Info().packetPoints, 128u);
  const std::vector<_ori_point> frame = ReadRecording(scratch.Path("rec"))[0];
  ASSERT_EQ(frame.size() % 128, 0u);
  std::size_t returns = 0;
  for (std::size_t j = 0; j < frame.size(); ++j) {
    EXPECT_EQ(frame[j].mark, j + 1 == frame.size() ? 1 : 0);
    if (frame[j].distance > 0.0) {
      ++returns;
      EXPECT_EQ(sim::TruthKindOf(frame[j]), TruthKind::kReal);
    }
  }
  EXPECT_GT(returns, 0u);  // the front of the turn, within the sensor's field
}

TEST(ImportTest, ATruncatedBinOrAMismatchedLabelFileWritesNothing) {
  ScratchFolder scratch;
  const std::vector<KittiPoint> cloud = UnevenBeamCloud();
  WriteBinary(scratch.Path("good.bin"), cloud);
  WriteBinary(scratch.Path("cut.bin"), cloud, 6);
  WriteBinary(scratch.Path("short.label"), std::vector<uint32_t>(cloud.size() - 1, 40));
  const std::string out = scratch.Path("rec");
  struct Case {
    std::string arguments;
    std::string named;
    std::string says;
  };
  const Case cases[] = {
      {scratch.Path("cut.bin"), "cut.bin", "not a whole number of 16-byte points"},
      {scratch.Path("good.bin") + " --label " + scratch.Path("short.label"), "short.label",
       "one 4-byte label per point"},
      {scratch.Path("good.bin") + " " + scratch.Path("missing.bin"), "missing.bin", "cannot open"},
  };
  for (const Case& c : cases) {
    const CommandResult run = RunCli("import " + c.arguments + " -o " + out, scratch);
    EXPECT_NE(run.status, 0) << c.named;
    EXPECT_THAT(run.err, ::testing::HasSubstr(c.named));
    EXPECT_THAT(run.err, ::testing::HasSubstr(c.says));
    EXPECT_FALSE(std::filesystem::exists(out)) << c.named;
  }
}

// Values no sensor reports still map to returns every algorithm can take: a negative intensity
// reads as none (it once gave a pulse width that was not a number), in both mappings.
TEST(ImportTest, ANegativeIntensityMapsToADarkReturn) {
  sim::SourceCloud cloud;
  for (const float intensity : {-8.5f, -0.0f, 0.5f}) {
    cloud.x.push_back(10.0f);  // straight ahead, within the Marlo128 field
    cloud.y.push_back(0.1f * static_cast<float>(cloud.x.size()));
    cloud.z.push_back(-1.0f);
    cloud.intensity.push_back(intensity);
  }
  for (const auto mapping : {sim::ImportMapping::kGeneric, sim::ImportMapping::kMarlo128}) {
    sim::ImportOptions options;
    options.mapping = mapping;
    sim::ImportReport report;
    const std::vector<_ori_point> frame = sim::MapFrame(cloud, options, 0, &report);
    ASSERT_EQ(report.written, 3u);
    for (const _ori_point& p : frame) {
      if (p.distance > 0.0) {
        EXPECT_GE(p.intensity, 0.0);
        EXPECT_TRUE(std::isfinite(p.pulse_width));
        EXPECT_GE(p.pulse_width, 1.5);
      }
    }
  }
}

std::string AsciiPcd(const std::string& rows, std::size_t points) {
  return "VERSION 0.7\nFIELDS x y z intensity ring label\nSIZE 4 4 4 4 4 4\nTYPE F F F F F F\n"
         "COUNT 1 1 1 1 1 1\nWIDTH " +
         std::to_string(points) +
         "\nHEIGHT 1\n"
         "VIEWPOINT 0 0 0 1 0 0 0\nPOINTS " +
         std::to_string(points) + "\nDATA ascii\n" + rows;
}

// Ring and label fields may be stored as floats: whole numbers are read, anything their integer
// type cannot hold refuses the file instead of wrapping (or worse) in a cast.
TEST(ImportTest, PcdRingsAndLabelsMustBeWholeNumbersThatFit) {
  ScratchFolder scratch;
  WriteText(scratch.Path("good.pcd"), AsciiPcd("5 1 0 10 3 40\n5 2 0 10 -1 110\n", 2));
  const sim::SourceCloud cloud = sim::ReadPcdCloud(scratch.Path("good.pcd"));
  EXPECT_THAT(cloud.ring, ::testing::ElementsAre(3, -1));
  EXPECT_THAT(cloud.label, ::testing::ElementsAre(40u, 110u));
  for (const char* row :
       {"5 1 0 10 1e20 40\n", "5 1 0 10 2.5 40\n", "5 1 0 10 3 -1\n", "5 1 0 10 3 5e9\n"}) {
    WriteText(scratch.Path("bad.pcd"), AsciiPcd(row, 1));
    try {
      sim::ReadPcdCloud(scratch.Path("bad.pcd"));
      ADD_FAILURE() << row << "was read";
    } catch (const sim::ImportError& error) {
      EXPECT_THAT(error.what(), ::testing::HasSubstr("bad.pcd"));
      EXPECT_THAT(error.what(), ::testing::HasSubstr("is not a whole number")) << row;
    }
  }
}

// The shared snowfall frame: 64 beams found, every point written, the classes the dataset's
// notes list.
TEST(ImportTest, TheSharedSnowfallFrame) {
  const std::string root = std::string(VELMAR_SHARED_DATA_DIR) + "/wads-sample";
  if (!std::filesystem::exists(root + "/sample.bin")) {
    GTEST_SKIP() << root << " is absent: the real frames live beside the repository, not in it";
  }
  const sim::SourceCloud cloud = sim::ReadKittiBin(root + "/sample.bin", root + "/sample.label");
  sim::ImportReport report;
  const std::vector<_ori_point> frame = sim::MapFrame(cloud, sim::ImportOptions{}, 0, &report);
  EXPECT_EQ(report.beams, 64u);
  EXPECT_EQ(frame.size(), cloud.Size());
  std::size_t snow = 0;
  std::size_t unlabelled = 0;
  for (const _ori_point& p : frame) {
    snow += sim::TruthKindOf(p) == TruthKind::kSnow;
    unlabelled += sim::TruthKindOf(p) == TruthKind::kUnlabelled;
  }
  EXPECT_EQ(snow, 14276u);
  EXPECT_EQ(unlabelled, 10722u);
}

}  // namespace
}  // namespace clitest
}  // namespace velmar
