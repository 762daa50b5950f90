// Point order, packet shape and per-point conventions of every simulated model.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "CliTestSupport.h"
#include "framework/AlgoCommon.h"
#include "sim/SensorModel.h"

namespace velmar {
namespace sim {
namespace {

// Column of the sweep grid that the library's per-cell algorithms use.
int GridColumn(double angle) {
  return static_cast<int>(std::floor((angle - kSweepGridFirstAngle) / kSweepGridColumnStep));
}

class FrameLayoutTest : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    model_ = FindSensorModel(GetParam());
    ASSERT_NE(model_, nullptr);
    frame_ = clitest::Generate(clitest::Settings(GetParam(), "empty"));
  }
  const SensorModel* model_ = nullptr;
  std::vector<_ori_point> frame_;
};

// Whole packets of columns of every channel in order, each column at one angle and time; faces
// follow their time slots; only the last point is marked; returns lie along their beam.
TEST_P(FrameLayoutTest, EveryPointFollowsTheModelsLayout) {
  EXPECT_EQ(LidarTypeToStr(model_->type), model_->name);
  EXPECT_EQ(model_->elevationDeg.size(), model_->channels);
  ASSERT_EQ(frame_.size(), model_->PointsPerFrame());
  EXPECT_EQ(frame_.size() % model_->packetPoints, 0u);
  EXPECT_EQ(model_->packetPoints % model_->channels, 0u);
  for (std::size_t i = 0; i < frame_.size(); ++i) {
    const _ori_point& p = frame_[i];
    const uint32_t channelIndex = i % model_->channels;
    const uint32_t slot = static_cast<uint32_t>(i / model_->PointsPerFace());
    ASSERT_EQ(p.channel, model_->firstChannel + channelIndex) << "point " << i;
    if (channelIndex > 0) {
      ASSERT_EQ(p.hor_angle, frame_[i - 1].hor_angle) << "point " << i;
      ASSERT_EQ(p.timestamp, frame_[i - 1].timestamp) << "point " << i;
    } else if (i > 0) {
      ASSERT_GT(p.timestamp, frame_[i - 1].timestamp) << "point " << i;
    }
    ASSERT_EQ(p.mark != 0, i + 1 == frame_.size()) << "point " << i;
    ASSERT_EQ(p.mirror, model_->Mirror(slot, channelIndex)) << "point " << i;
    ASSERT_EQ(p.echo, model_->Echo(channelIndex)) << "point " << i;
    ASSERT_LE(p.mirror, 2u);
    ASSERT_LE(p.echo, 1u);
    if (p.distance <= 0.0) {
      ASSERT_EQ(p.x, 0.0);
      continue;
    }
    ASSERT_NEAR(std::sqrt(p.x * p.x + p.y * p.y + p.z * p.z), p.distance, 1e-9);
    // y is the forward axis: the horizontal angle is measured from x towards y.
    ASSERT_NEAR(std::remainder(std::atan2(p.y, p.x) * 180.0 / M_PI - p.hor_angle, 360.0), 0.0,
                1e-9);
  }
  // One sweep: from the first column of a face to the first column after its last one.
  const _ori_point& lastOfFace = frame_[model_->PointsPerFace() - 1];
  const double sweep = 1e-9 * static_cast<double>(lastOfFace.timestamp - frame_[0].timestamp) +
                       model_->ColumnPeriodSec();
  EXPECT_NEAR(sweep, model_->facePeriodSec, 1e-6);
}

// The mirror models sweep the angle grid of the per-cell algorithms.
class MirrorSweepTest : public FrameLayoutTest {};

TEST_P(MirrorSweepTest, EachFaceSweepsTheWholeGridOnceAndCrossesBothEnds) {
  const uint32_t columns = model_->ColumnsPerFace();
  for (uint32_t slot = 0; slot < model_->faces; ++slot) {
    const std::size_t first = std::size_t{slot} * model_->PointsPerFace();
    std::set<int> gridColumns;
    for (uint32_t c = 0; c < columns; ++c) {
      const double angle = frame_[first + std::size_t{c} * model_->channels].hor_angle;
      if (c > 0) {
        const double previous = frame_[first + std::size_t{c - 1} * model_->channels].hor_angle;
        EXPECT_NEAR(angle - previous, kSweepGridColumnStep, 1e-9);
      }
      const int grid = GridColumn(angle);
      if (grid >= 0 && grid < kSweepGridColumns) {
        EXPECT_TRUE(gridColumns.insert(grid).second) << "grid column " << grid << " twice";
      }
    }
    EXPECT_EQ(gridColumns.size(), static_cast<std::size_t>(kSweepGridColumns));
    // Frame-end and re-arm rules look for angles below 30 and above 150 degrees.
    EXPECT_LT(frame_[first].hor_angle, kSweepGridFirstAngle);
    EXPECT_GT(frame_[first + model_->PointsPerFace() - 1].hor_angle, 150.0);
    EXPECT_EQ(
        GridColumn(frame_[first + std::size_t{model_->turnColumns} * model_->channels].hor_angle),
        0);
  }
}

std::string TestName(const ::testing::TestParamInfo<std::string>& info) {
  std::string name;
  for (char c : info.param) {
    name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(Models, FrameLayoutTest,
                         ::testing::Values("Marlo128", "ZephelB2/B3/MP", "QuillA4", "ZephelT",
                                           "Orvik16"),
                         TestName);
INSTANTIATE_TEST_SUITE_P(Models, MirrorSweepTest,
                         ::testing::Values("Marlo128", "ZephelB2/B3/MP", "QuillA4", "ZephelT"),
                         TestName);

// Marlo128's near faces (mirror 2 of the second echo, mirror 1 of the first) see only near
// targets and the other faces only far ones: the library's blind-zone rule, which removes what a
// face cannot see, keeps every return of a clean drive.
TEST(Marlo128LayoutTest, NearFacesSeeOnlyNearTargetsAndOtherFacesOnlyFarOnes) {
  const std::vector<_ori_point> frame = clitest::Generate(clitest::Settings("Marlo128", "city", 5));
  std::vector<_ori_point> filtered = frame;
  test::MakeAlgo(28, LIDAR_MARLO128)->Process(filtered);
  int returns = 0;
  for (std::size_t i = 0; i < frame.size(); ++i) {
    returns += frame[i].distance > 0.0;
    ASSERT_EQ(filtered[i].distance, frame[i].distance) << "point " << i;
  }
  EXPECT_GT(returns, 10000);
}

// Neighbouring channels of a bank are neighbours in elevation, and bank B lies half a step below
// bank A: the two banks interleave.
TEST(Marlo128LayoutTest, BanksInterleaveInElevation) {
  const SensorModel& m = *FindSensorModel("Marlo128");
  for (uint32_t i = 0; i + 1 < 64; ++i) {
    EXPECT_NEAR(m.elevationDeg[i] - m.elevationDeg[i + 1], 0.4, 1e-12) << i;
    EXPECT_NEAR(m.elevationDeg[i] - m.elevationDeg[i + 64], 0.2, 1e-12) << i;
  }
}

TEST(Marlo128LayoutTest, ReferenceFaceSweepEndsWithAPacketBeyond150Degrees) {
  const SensorModel& m = *FindSensorModel("Marlo128");
  const std::vector<_ori_point> frame = clitest::Generate(clitest::Settings("Marlo128", "empty"));
  int triggers = 0;
  for (std::size_t i = 0; i < frame.size(); i += m.packetPoints) {
    const _ori_point& first = frame[i];
    triggers += first.hor_angle > 150.0 && first.echo == 1 && first.mirror == 0;
  }
  EXPECT_GE(triggers, 1);
  EXPECT_LT(triggers, 5);
}

// The simulator's channel groups are exactly the ghost filter's: a strong return of a group's
// first channel condemns a weak return at its range on every other channel of that group and on
// no channel outside it. Together the groups cover every channel once; a packet is one column.
TEST(ZephelTLayoutTest, ChannelGroupsAreTheGhostFiltersGroups) {
  const SensorModel& m = *FindSensorModel("ZephelT");
  EXPECT_EQ(m.packetPoints, m.channels);
  auto filter = test::MakeAlgo(33, LIDAR_ZEPHEL_T);
  std::set<uint32_t> seen;
  for (const auto& group : m.channelGroups) {
    std::vector<_ori_point> column(m.channels, test::MakePoint(20.0));
    for (uint32_t i = 0; i < m.channels; ++i) {
      column[i].channel = m.firstChannel + i;
      column[i].pulse_width = group.front() == column[i].channel ? 50.0 : 10.0;
    }
    filter->Process(column);
    for (const _ori_point& p : column) {
      const bool mate = p.channel != group.front() &&
                        std::find(group.begin(), group.end(), p.channel) != group.end();
      EXPECT_EQ(p.distance == 0.0, mate) << "group of " << group.front() << ", " << p.channel;
    }
    seen.insert(group.begin(), group.end());
  }
  EXPECT_EQ(seen.size(), std::size_t{m.channels});
}

TEST(Zephel64LayoutTest, PacketsHoldTwoColumnsAndOnlyTheTurnPacketsStartOffGrid) {
  const SensorModel& m = *FindSensorModel("ZephelB2/B3/MP");
  const std::vector<_ori_point> frame = clitest::Generate(clitest::Settings(m.name, "empty"));
  ASSERT_EQ(m.packetPoints, 2 * m.channels);
  int beforeGrid = 0;
  for (std::size_t i = 0; i < frame.size(); i += m.packetPoints) {
    beforeGrid +=
        frame[i].hor_angle < kSweepGridFirstAngle || frame[i + 64].hor_angle < kSweepGridFirstAngle;
  }
  EXPECT_EQ(beforeGrid, static_cast<int>(m.faces));
}

TEST(Orvik16LayoutTest, PacketsAreTwentyRunsOfSixteenOverAFullTurn) {
  const SensorModel& m = *FindSensorModel("Orvik16");
  const std::vector<_ori_point> frame = clitest::Generate(clitest::Settings(m.name, "empty"));
  ASSERT_EQ(m.packetPoints, 320u);
  ASSERT_EQ(m.channels, 16u);
  ASSERT_EQ(m.firstChannel, 1u);
  EXPECT_GT(frame.front().hor_angle, 0.0);
  EXPECT_LT(frame.front().hor_angle, 0.2);
  EXPECT_GT(frame.back().hor_angle, 359.8);
  EXPECT_LT(frame.back().hor_angle, 360.0);
  // Neighbours in a run are neighbours in elevation.
  for (uint32_t i = 0; i + 1 < 16; ++i) {
    EXPECT_NEAR(m.elevationDeg[i] - m.elevationDeg[i + 1], 2.0, 1e-12);
  }
}

}  // namespace
}  // namespace sim
}  // namespace velmar
