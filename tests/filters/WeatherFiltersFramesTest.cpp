// Frames of every awkward size, mixed from one call to the next and full of odd values, through
// each weather filter: nothing may be read outside a frame (the sanitizer build checks), and a
// filter may only remove points, never alter what it does not own.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "support/TestSupport.h"

namespace velmar {
namespace {

using Frame = std::vector<_ori_point>;

constexpr std::size_t kSizes[] = {0, 1, 63, 64, 65, 127, 128, 129, 191, 255, 256, 257};

// Deterministic pseudo-random values, so a failure can be replayed.
class Noise {
 public:
  uint32_t Next() {
    state_ = state_ * 1664525u + 1013904223u;
    return state_ >> 8;
  }
  double Range(double low, double high) {
    return low + (high - low) * static_cast<double>(Next() % 10000) / 10000.0;
  }

 private:
  uint32_t state_ = 12345;
};

_ori_point OddPoint(Noise& noise, uint64_t stamp) {
  _ori_point p = test::MakePoint(noise.Range(0.0, 12.0));
  switch (noise.Next() % 16) {
    case 0:
      p.distance = std::numeric_limits<double>::quiet_NaN();
      break;
    case 1:
      p.distance = std::numeric_limits<double>::infinity();
      break;
    case 2:
      p.distance = -1.0;
      break;
    case 3:
      p.distance = 1e300;
      break;
    default:
      break;
  }
  p.x = noise.Range(-5.0, 5.0);
  p.y = noise.Range(-5.0, 5.0);
  p.z = noise.Range(-1.0, 1.0);
  p.intensity = noise.Range(0.0, 150.0);
  p.pulse_width = noise.Range(0.0, 30.0);
  p.channel = noise.Next() % 8 == 0 ? 0xFFFFFFF0u : noise.Next() % 70;
  p.hor_angle = noise.Range(0.0, 60.0);
  p.mirror = noise.Next() % 3;
  p.echo = noise.Next() % 3;
  p.label = 7;
  p.timestamp = stamp;
  std::memset(p.reserved_b, 0xAB, sizeof(p.reserved_b));
  return p;
}

Frame OddFrame(Noise& noise, std::size_t size, uint64_t stamp) {
  Frame frame;
  for (std::size_t k = 0; k < size; ++k) {
    frame.push_back(OddPoint(noise, stamp));
  }
  return frame;
}

bool SameBits(double a, double b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0;
}

// `after` must be `before` with some ranges zeroed (and, where `coordinates_too`, the position of
// those points as well); every other byte must be untouched. Returns the number of removals.
std::size_t ExpectOnlyRemovals(const Frame& before, const Frame& after, bool coordinates_too) {
  EXPECT_EQ(before.size(), after.size());
  if (before.size() != after.size()) {
    return 0;
  }
  std::size_t removed = 0;
  Frame expected = before;
  for (std::size_t k = 0; k < expected.size(); ++k) {
    if (after[k].distance == 0.0 && !SameBits(before[k].distance, after[k].distance)) {
      expected[k].distance = 0.0;
      ++removed;
      if (coordinates_too) {
        expected[k].x = 0.0;
        expected[k].y = 0.0;
        expected[k].z = 0.0;
      }
    }
  }
  EXPECT_TRUE(test::SameBytes(expected, after));
  return removed;
}

struct FilterCase {
  int id;
  LidarType type;
  const char* params;
  bool coordinates_too;
  bool removes;  // whether these frames give the filter anything to remove
};

void PrintTo(const FilterCase& c, std::ostream* os) {
  *os << "id " << c.id;
}

class WeatherFiltersFrames : public ::testing::TestWithParam<FilterCase> {};

TEST_P(WeatherFiltersFrames, OddSizesOnlyLoseRanges) {
  const FilterCase& c = GetParam();
  auto filter = test::MakeAlgo(c.id, c.type, c.params);
  ASSERT_NE(filter, nullptr);
  Noise noise;
  std::size_t removed = 0;
  for (int round = 0; round < 3; ++round) {
    for (std::size_t size : kSizes) {
      // Each size twice in a row, then the next: consecutive frames differ in size too.
      for (int repeat = 0; repeat < 2; ++repeat) {
        const Frame before = OddFrame(noise, size, size);
        Frame frame = before;
        filter->Process(frame);
        removed += ExpectOnlyRemovals(before, frame, c.coordinates_too);
      }
    }
    filter->ClearCache();
  }
  EXPECT_EQ(removed > 0, c.removes) << removed;
}

// The delaying filter hands back older frames: each output must be the frame that came in
// `delay` calls earlier, with only ranges removed.
TEST(WeatherFiltersFrames, SunlightNoiseOddSizesOnlyLoseRanges) {
  auto filter = test::MakeAlgo(2, LIDAR_MARLO256,
                               R"({"validDistance": 100, "filterWindowV": 3, "filterWindowH": 5})");
  Noise noise;
  std::size_t removed = 0;
  std::vector<Frame> inputs;
  for (int round = 0; round < 3; ++round) {
    inputs.clear();
    for (std::size_t size : kSizes) {
      for (int repeat = 0; repeat < 2; ++repeat) {
        inputs.push_back(OddFrame(noise, size, inputs.size()));
        Frame frame = inputs.back();
        filter->Process(frame);
        const std::size_t call = inputs.size();
        const std::size_t source = call <= 5 ? call : (call <= 10 ? 5 : call - 5);
        removed += ExpectOnlyRemovals(inputs[source - 1], frame, false);
      }
    }
    filter->ClearCache();
  }
  EXPECT_GT(removed, 0u);
}

INSTANTIATE_TEST_SUITE_P(
    AllFilters, WeatherFiltersFrames,
    ::testing::Values(
        FilterCase{13, LIDAR_QUILL_A4, R"({"rainfog_filter_range": 5})", false, true},
        FilterCase{13, LIDAR_QUILL_A4, "{}", false, true},
        FilterCase{3, LIDAR_MARLO256, "{}", true, true},
        FilterCase{3, LIDAR_MARLO256_SMALL_BLIND, "{}", true, true},
        FilterCase{15, LIDAR_ZEPHEL_B1, "{}", false, true},
        FilterCase{20, LIDAR_QUILL_A4, "{}", false, true},
        FilterCase{20, LIDAR_QUILL_A4, R"({"filter_channel_range": -200})", false, false},
        FilterCase{20, LIDAR_QUILL_A4, R"({"filter_channel_range": 200})", false, false}));

}  // namespace
}  // namespace velmar
