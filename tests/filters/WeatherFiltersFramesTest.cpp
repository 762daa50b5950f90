// The weather filters through the public interface, and frames of awkward sizes, changing from
// call to call and full of odd values, through each of them: nothing may be read outside a frame
// (the sanitizer build checks that), and a filter may only remove points, never alter anything
// else.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <random>

#include "support/TestSupport.h"

namespace velmar {
namespace {

using Frame = std::vector<_ori_point>;

struct FilterCase {
  int id;
  LidarType type;
  const char* params;
  bool removes;  // whether these frames give the filter anything to remove
};

void PrintTo(const FilterCase& c, std::ostream* os) {
  *os << "id " << c.id << " " << c.params;
}

Frame OddFrame(std::mt19937& random, std::size_t size) {
  const double odd_ranges[] = {std::numeric_limits<double>::quiet_NaN(),
                               std::numeric_limits<double>::infinity(), -1.0, 1e300};
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  Frame frame(size, test::MakePoint());
  for (_ori_point& p : frame) {
    const uint32_t pick = random();
    p.distance = pick % 16 < 4 ? odd_ranges[pick % 4] : 12.0 * unit(random);
    p.x = unit(random);
    p.intensity = 150.0 * unit(random);
    p.pulse_width = 30.0 * unit(random);
    p.hor_angle = 60.0 * unit(random);
    p.channel = pick % 8 == 7 ? 0xFFFFFFF0u : random() % 70;
    p.mirror = random() % 3;
    p.echo = random() % 3;
    p.timestamp = random();
  }
  return frame;
}

// Counts the points of `before` whose range `after` has zeroed (with the position, for the
// filter that clears both) and expects every other byte unchanged.
std::size_t Removals(const Frame& before, const Frame& after, bool with_position) {
  EXPECT_EQ(before.size(), after.size());
  Frame expected = before;
  std::size_t removed = 0;
  for (std::size_t k = 0; k < expected.size() && k < after.size(); ++k) {
    if (after[k].distance == 0.0 && std::memcmp(&before[k].distance, &after[k].distance, 8)) {
      ++removed;
      expected[k].distance = 0.0;
      if (with_position) {
        expected[k].x = expected[k].y = expected[k].z = 0.0;
      }
    }
  }
  EXPECT_TRUE(test::SameBytes(expected, after));
  return removed;
}

class WeatherFiltersFramesTest : public ::testing::TestWithParam<FilterCase> {};

TEST_P(WeatherFiltersFramesTest, OddSizesOnlyLoseRanges) {
  const FilterCase& c = GetParam();
  auto filter = test::MakeAlgo(c.id, c.type, c.params);
  std::mt19937 random(12345);
  std::size_t removed = 0;
  for (int round = 0; round < 3; ++round) {
    std::vector<Frame> inputs;
    for (std::size_t size : {0, 1, 63, 64, 65, 127, 128, 129, 191, 255, 256, 257}) {
      for (int repeat = 0; repeat < 2; ++repeat) {
        inputs.push_back(OddFrame(random, size));
        Frame frame = inputs.back();
        filter->Process(frame);
        // The sunlight history hands back frame 5 from call 6 to 10, then the frame of 5 calls ago.
        const std::size_t call = inputs.size();
        const std::size_t source =
            c.id != 2 || call <= 5 ? call : std::max<std::size_t>(5, call - 5);
        removed += Removals(inputs[source - 1], frame, c.id == 3);
      }
    }
    filter->ClearCache();
  }
  EXPECT_EQ(removed > 0, c.removes) << removed;
}

INSTANTIATE_TEST_SUITE_P(
    AllFilters, WeatherFiltersFramesTest,
    ::testing::Values(
        FilterCase{2, LIDAR_MARLO256,
                   R"({"validDistance": 100, "filterWindowV": 3, "filterWindowH": 5})", true},
        FilterCase{3, LIDAR_MARLO256, "{}", true},
        FilterCase{3, LIDAR_MARLO256_SMALL_BLIND, "{}", true},
        FilterCase{13, LIDAR_QUILL_A4, R"({"rainfog_filter_range": 5})", true},
        FilterCase{15, LIDAR_ZEPHEL_B1, "{}", true}, FilterCase{20, LIDAR_QUILL_A4, "{}", true},
        FilterCase{20, LIDAR_QUILL_A4, R"({"filter_channel_range": -200})", false},
        FilterCase{20, LIDAR_QUILL_A4, R"({"filter_channel_range": 200})", false}));

// Which models accept which weather filter, through the assembly of one configuration.
TEST(WeatherPipelineTest, EachModelGetsItsFilters) {
  using test::EntryJson;
  const std::string config = test::ConfigJson(
      EntryJson(20, "close") + "," + EntryJson(15, "sun3") + "," +
      EntryJson(13, "rain", R"({"rainfog_filter_range": 1})") + "," + EntryJson(3, "sun2") + "," +
      EntryJson(2, "sun", R"({"validDistance": 10, "filterWindowV": 3, "filterWindowH": 5})"));
  const auto added = [&](LidarType type) {
    std::string output;
    test::CreatePipeline(type, config, &output);
    return output;
  };
  const std::string close_and_rain = "[algo]: close is added!\n[algo]: rain is added!\n";
  EXPECT_EQ(added(LIDAR_ZEPHEL_B1), "[algo]: sun3 is added!\n[algo]: rain is added!\n");
  EXPECT_EQ(added(LIDAR_MARLO256), "[algo]: sun2 is added!\n[algo]: sun is added!\n");
  EXPECT_EQ(added(LIDAR_MARLO128H), "[algo]: sun is added!\n");
  EXPECT_EQ(added(LIDAR_QUILL_A4), close_and_rain);
  EXPECT_EQ(added(LIDAR_ZEPHEL_B2_B3_MP), close_and_rain);
  EXPECT_EQ(added(LIDAR_QUILL_A2), "[algo]: rain is added!\n");
  EXPECT_EQ(added(LIDAR_ORVIK48), "[algo]: rain is added!\n");
}

}  // namespace
}  // namespace velmar
