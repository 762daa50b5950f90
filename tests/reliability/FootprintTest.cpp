// The footprint each algorithm states for a model against what an instance really holds once
// configured and through its first frame: never less, and not wildly more, so that the limit on
// a configuration's memory is both safe and not needlessly strict.
#include <gtest/gtest.h>

#include <rapidjson/document.h>

#include "FailingAllocator.h"
#include "framework/AlgoFactory.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

constexpr int kModels = 22;
// Allocator rounding, the shared pointer's control block and small per-instance buffers that
// the footprints leave to the configuration's per-entry bookkeeping.
constexpr std::size_t kSmallSlack = 2048;
constexpr std::size_t kOverestimateSlack = 64 * 1024;

// Bytes an instance holds after construction, its parameters and an empty first frame, which
// allocates every table but copies no frame.
std::size_t HeldBytes(int64_t id, LidarType type, const rapidjson::Value* param) {
  const std::size_t before = alloctest::LiveBytes();
  std::size_t held = 0;
  test::CaptureOutput([&] {
    std::shared_ptr<AlgoBase> algo = ConfigureAlgo(id, "", "", type, param);
    std::vector<_ori_point> empty;
    algo->Process(empty);
    held = alloctest::LiveBytes() - before;
  });
  return held;
}

// The first instance of a class on a model in a process also pays for state the process keeps
// once for every instance after it (a few to 30 kB, gone from every later measurement): not an
// instance's.
bool WarmUp() {
  for (int64_t id = kFirstAlgoId; id <= kLastAlgoId; ++id) {
    for (int type = 0; type < kModels; ++type) {
      HeldBytes(id, static_cast<LidarType>(type), nullptr);
    }
  }
  return true;
}

std::size_t MeasuredBytes(int64_t id, LidarType type, const rapidjson::Value* param) {
  static const bool warm = WarmUp();
  static_cast<void>(warm);
  return HeldBytes(id, type, param);
}

void ExpectFootprintFits(int64_t id, LidarType type, const rapidjson::Value* param) {
  const std::size_t measured = MeasuredBytes(id, type, param);
  const std::size_t stated = AlgoFootprint(id, type, param);
  EXPECT_LE(measured, stated + kSmallSlack) << "id " << id << " on " << LidarTypeToStr(type);
  EXPECT_LE(stated, measured + measured / 4 + kOverestimateSlack)
      << "id " << id << " on " << LidarTypeToStr(type);
}

TEST(Footprint, EveryAlgorithmStatesAtLeastWhatItHoldsOnEveryModel) {
  for (int64_t id = kFirstAlgoId; id <= kLastAlgoId; ++id) {
    for (int type = 0; type < kModels; ++type) {
      ExpectFootprintFits(id, static_cast<LidarType>(type), nullptr);
    }
  }
}

TEST(Footprint, SizeDrivingParametersAreCountedUpToTheirBounds) {
  rapidjson::Document params;
  for (const char* text : {R"({"nr_points_max": 1e12, "nr_grids_fine": 1024})",
                           R"({"nr_points_max": 1000, "nr_grids_coarse": 64})",
                           R"({"nr_samples_max_threshold": 60000, "nr_points_max": "text"})"}) {
    params.Parse(text);
    ExpectFootprintFits(35, LIDAR_MARLO128, &params);
  }
  for (const char* text : {R"({"max_samples": 1e12})", R"({"max_samples": 262144})",
                           R"({"estimate_motion": 0, "max_samples": 262144})"}) {
    params.Parse(text);
    ExpectFootprintFits(34, LIDAR_MARLO128, &params);
  }
  EXPECT_EQ(AlgoFootprint(0, LIDAR_MARLO128, nullptr), 0u);
  EXPECT_EQ(AlgoFootprint(36, LIDAR_MARLO128, nullptr), 0u);
}

}  // namespace
}  // namespace velmar
