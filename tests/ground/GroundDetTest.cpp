#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "ground/GroundDet.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

constexpr int kGroundDetId = 35;
constexpr int32_t kUntouchedLabel = 42;

_ori_point Return(double x, double y, double z, uint32_t mirror = 0, uint32_t echo = 1) {
  _ori_point p = test::MakePointXYZ(x, y, z);
  p.distance = std::sqrt(x * x + y * y + z * z);
  p.mirror = mirror;
  p.echo = echo;
  p.label = kUntouchedLabel;
  return p;
}

// A frame opening a revolution on the reference face; its first return is high and far, so it is
// never collected itself.
std::vector<_ori_point> RevolutionStart(double angle = 200.0, uint32_t mirror = 0) {
  _ori_point first = Return(30, 30, 5, mirror);
  first.hor_angle = angle;
  return {first};
}

// Flat ground at z = -2 over four cells next to the sensor: 324 returns per cell.
void AddGround(std::vector<_ori_point>& frame, uint32_t mirror = 0) {
  for (double y = 0.25; y < 18; y += 0.5) {
    for (double x = 0.25; x < 18; x += 0.5) {
      frame.push_back(Return(x, y, -2.0 + 0.01 * std::sin(7 * x + 3 * y), mirror));
    }
  }
}

std::shared_ptr<GroundDet> MakeGroundDet(const std::string& params) {
  return test::MakeAlgoAs<GroundDet>(kGroundDetId, LIDAR_MARLO128, params);
}

struct BandCase {
  double height;
  bool ground;
  bool underground;
};

TEST(GroundDetTest, HeightBandsHaveExactEdges) {
  const double t = static_cast<double>(0.1f);
  const BandCase cases[] = {
      {0.0, true, false},   {t, true, false}, {std::nextafter(t, 1.0), false, false},
      {-1e-12, true, true}, {-t, true, true}, {std::nextafter(-t, -1.0), false, true},
  };
  auto ground_only = MakeGroundDet(R"({"filter_ground_points_flag": 1})");
  EXPECT_TRUE(ground_only->IsSupported("Marlo128") && !ground_only->IsSupported("Marlo128H"));
  auto underground_only = MakeGroundDet(R"({"filter_underground_points_flag": 1})");
  auto labels_only = MakeGroundDet(R"({"debug_using_echo": 3})");
  for (const BandCase& c : cases) {
    _ori_point a = Return(1, 1, -2);
    _ori_point b = a;
    _ori_point l = a;
    ground_only->PredictPoint(c.height, a);
    underground_only->PredictPoint(c.height, b);
    labels_only->PredictPoint(c.height, l);
    EXPECT_EQ(a.distance == 0.0, c.ground) << c.height;
    EXPECT_EQ(b.distance == 0.0, c.underground) << c.height;
    EXPECT_EQ(l.label, c.ground || c.underground ? 3 : kUntouchedLabel) << c.height;
    EXPECT_GT(l.distance, 0.0);
  }
}

TEST(GroundDetTest, CellLookupTruncatesAndSkipsUnusablePlanes) {
  auto det = MakeGroundDet(R"({"debug_using_echo": 3})");
  ASSERT_TRUE(det->Init());
  EXPECT_EQ(det->cell_size_x, 9.0f);
  *det->PlaneAt(0, 0) = GroundPlane{0, 0, 1, 2, kPlaneFitted, 1};  // ground at z = -2
  *det->PlaneAt(0, 2) = GroundPlane{0, 0, 1, 2, kPlaneFitted, 0};  // no support
  _ori_point below_edge = Return(-71.5, -72.5, -1.95);             // row -0.06 truncates to 0
  EXPECT_TRUE(det->FilterPointUsingGroundPlane(below_edge));
  EXPECT_EQ(below_edge.label, 3);
  _ori_point above = Return(-71.5, -71.5, -1.5);
  float height = 0.0f;
  EXPECT_TRUE(det->FilterPointUsingGroundPlane(above, &height));
  EXPECT_EQ(above.label, 2);  // handled, but above the band
  EXPECT_NEAR(height, 0.5f, 1e-6f);
  for (_ori_point p :
       {Return(-71.5, -81.5, -2.0), Return(-62.5, -71.5, -2.0), Return(-53.5, -71.5, -2.0),
        Return(72.0, 0, -2.0), Return(std::nan(""), 0, -2.0)}) {
    EXPECT_FALSE(det->FilterPointUsingGroundPlane(p)) << p.x << "," << p.y;
    EXPECT_EQ(p.label, kUntouchedLabel);
  }
}

TEST(GroundDetTest, FirstFrameWithholdsNearLowReferenceReturnsAndGivesThemBackClassified) {
  auto det = MakeGroundDet(R"({"debug_using_echo": 5})");
  std::vector<_ori_point> frame = RevolutionStart();
  AddGround(frame);
  const std::size_t ground_end = frame.size();
  frame.push_back(Return(4, 4, -1.5));            // withheld, above the band
  frame.push_back(Return(4.2, 4.2, -2.0, 1));     // other face: left in place
  frame.push_back(Return(4.2, 4.2, -2.0, 0, 0));  // other echo: left in place
  _ori_point at_range = Return(4, 4, -2);
  at_range.distance = 40.0;
  frame.push_back(at_range);
  frame.push_back(Return(4, 4, -1.0));  // z at the sampled band's top
  const std::vector<_ori_point> original = frame;
  det->Process(frame);

  ASSERT_EQ(frame.size(), original.size() + ground_end);  // 1296 ground + 1 above
  for (std::size_t i = 1; i <= ground_end; ++i) {
    EXPECT_EQ(frame[i].distance, 0.0) << i;
  }
  for (std::size_t i = ground_end + 1; i < original.size(); ++i) {
    EXPECT_EQ(frame[i].distance, original[i].distance) << i;
    EXPECT_EQ(frame[i].label, kUntouchedLabel) << i;
  }
  // Given back in their original order, labelled.
  for (std::size_t k = 0; k < ground_end; ++k) {
    const _ori_point& back = frame[original.size() + k];
    const _ori_point& was = original[1 + k];
    EXPECT_EQ(back.x, was.x);
    EXPECT_EQ(back.distance, was.distance);
    EXPECT_EQ(back.label, k + 1 < ground_end ? 5 : 4) << k;
  }
  EXPECT_TRUE(det->plane_ready);
  EXPECT_TRUE(det->Collected().empty());
}

TEST(GroundDetTest, LaterFramesClassifyInPlaceUntilAMarkEndsThePlanes) {
  auto det = MakeGroundDet(
      R"({"filter_ground_points_flag": 1, "filter_underground_points_flag": 1,
          "debug_using_echo": 5})");
  std::vector<_ori_point> first = RevolutionStart();
  AddGround(first);
  first.push_back(Return(5, 5, -1.5));
  const std::size_t first_size = first.size();
  det->Process(first);
  ASSERT_EQ(first.size(), first_size + 1);  // only the raised return came back
  EXPECT_EQ(first.back().label, 4);

  std::vector<_ori_point> second = RevolutionStart();
  second.push_back(Return(3, 3, -2.0, 1));  // ground
  second.push_back(Return(3, 3, -2.5, 2));  // underground
  second.push_back(Return(3, 3, -1.5, 0));  // above
  second.back().mark = 1;                   // closes the sweep: the planes end here
  second.push_back(Return(6, 6, -2.0, 0));  // collected again
  second.push_back(Return(6, 6, -1.5, 1));  // other face: untouched while no planes
  AddGround(second);
  det->Process(second);
  EXPECT_EQ(second[1].distance, 0.0);
  EXPECT_EQ(second[2].distance, 0.0);
  EXPECT_EQ(second[3].label, 4);
  EXPECT_GT(second[3].distance, 0.0);
  EXPECT_EQ(second[4].distance, 0.0);
  EXPECT_EQ(second[5].label, kUntouchedLabel);
  // A new fit ran at the end: nothing ground came back, and the planes are in use again.
  EXPECT_EQ(second.size(), 6u + 1296u);
  EXPECT_TRUE(det->plane_ready);
}

TEST(GroundDetTest, FitWaitsForARevolutionStartOnTheReferenceFace) {
  auto det = MakeGroundDet("{}");
  std::vector<_ori_point> empty;
  det->Process(empty);
  EXPECT_TRUE(empty.empty());
  for (const auto& start : {RevolutionStart(150.0), RevolutionStart(200.0, 1)}) {
    std::vector<_ori_point> frame = start;
    frame.push_back(Return(2, 2, -2));
    det->Process(frame);
    EXPECT_EQ(frame.size(), 2u);
    EXPECT_EQ(frame[1].distance, 0.0);
  }
  std::vector<_ori_point> none;
  det->Process(none);
  EXPECT_EQ(det->Collected().size(), 2u);
  EXPECT_FALSE(det->plane_ready);
  std::vector<_ori_point> trigger = RevolutionStart(150.5);
  det->Process(trigger);
  ASSERT_EQ(trigger.size(), 3u);  // both withheld returns, over no plane, come back untouched
  EXPECT_EQ(trigger[1].label, kUntouchedLabel);
  EXPECT_TRUE(det->plane_ready);
}

// Whole frames never open on the reference face beyond 150 degrees, so no fit ever runs: the
// withheld returns stop at the cap instead of growing with every frame, and the rest stay put.
TEST(GroundDetTest, WithheldReturnsAreCappedWhenNoFitComes) {
  auto det = MakeGroundDet("{}");
  det->max_withheld = 1000;
  for (int frame_index = 0; frame_index < 4; ++frame_index) {
    std::vector<_ori_point> frame = RevolutionStart(20.0);
    AddGround(frame);
    det->Process(frame);
    const std::size_t kept = static_cast<std::size_t>(std::count_if(
        frame.begin(), frame.end(), [](const _ori_point& p) { return p.distance > 0.0; }));
    EXPECT_EQ(kept, frame_index == 0 ? frame.size() - 1000 : frame.size()) << frame_index;
    EXPECT_EQ(det->Collected().size(), 1000u);
  }
  EXPECT_FALSE(det->plane_ready);
}

TEST(GroundDetTest, WorkArraysDoublePastTheirCapacity) {
  auto det = MakeGroundDet(R"({"nr_points_max": 100})");
  std::vector<_ori_point> frame = RevolutionStart();
  AddGround(frame);
  det->Process(frame);
  EXPECT_EQ(det->detector_param.nr_points_max, 2592u);
  EXPECT_EQ(det->point_coords.size(), 3u * 2592u);
  EXPECT_EQ(det->point_indices.size(), 2592u);
  EXPECT_EQ(det->point_heights.size(), 2592u);
  EXPECT_NEAR(det->point_heights[0], 0.0f, 0.03f);
}

// The detector's own check runs at the first frame, not in ParseParams; a set it refuses, and
// grids of no or absurd size, classify nothing and never crash.
TEST(GroundDetTest, UnusableDetectorSetsClassifyNothing) {
  const char* const refused = R"({"nr_grids_coarse": 1, "filter_ground_points_flag": 1})";
  for (const char* params : {refused, R"({"nr_grids_coarse": 0})",
                             R"({"nr_grids_coarse": 70000})", R"({"roi_region_rad_x_min": 72})"}) {
    testing::internal::CaptureStderr();
    auto det = MakeGroundDet(params);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    for (int sweep = 0; sweep < 2; ++sweep) {
      std::vector<_ori_point> frame = RevolutionStart();
      AddGround(frame, static_cast<uint32_t>(sweep));
      testing::internal::CaptureStderr();
      const std::string out = test::CaptureOutput([&] { det->Process(frame); });
      const std::string err = testing::internal::GetCapturedStderr();
      if (params == refused && sweep == 0) {
        EXPECT_EQ(err, "Invalid ground detector parameters... \n");
        EXPECT_EQ(out, "failed to call ground detector!");
        EXPECT_EQ(frame.size(), 1u + 2u * 1296u);  // withheld, then given back over no plane
      }
      EXPECT_EQ(frame.back().label, kUntouchedLabel) << params;
      EXPECT_GT(frame.back().distance, 0.0) << params;
    }
  }
}

}  // namespace
}  // namespace velmar
