#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <tuple>
#include <vector>

#include "ground/i_ground.h"

namespace velmar {
namespace {

// A cell of the default 16 x 16 grid over +-72 m spans 9 m; cell (row 8, column 8) starts at the
// sensor and its centre is (4.5, 4.5).
constexpr float kCell = 9.0f;

struct Plane {
  float slope_x;
  float slope_y;
  float z0;
  float At(float x, float y) const { return z0 + slope_x * x + slope_y * y; }
};

// Ground returns every `step` metres over [x0, x0 + size) x [y0, y0 + size), with a small
// deterministic ripple of +-2 cm.
void AddGround(std::vector<float>& out, const Plane& plane, float x0, float y0, float size,
               float step = 0.25f) {
  int k = 0;
  for (float y = y0 + step / 2; y < y0 + size; y += step) {
    for (float x = x0 + step / 2; x < x0 + size; x += step) {
      const float ripple = 0.02f * std::sin(1.7f * static_cast<float>(k++));
      out.insert(out.end(), {x, y, plane.At(x, y) + ripple});
    }
  }
}

PlaneFitGroundDetector MakeDetector(const PlaneFitGroundDetectorParam& param = {}) {
  PlaneFitGroundDetector detector(param);
  EXPECT_TRUE(detector.Init());
  return detector;
}

bool Detect(PlaneFitGroundDetector& detector, const std::vector<float>& xyz) {
  return detector.Detect(xyz.data(), static_cast<unsigned>(xyz.size() / 3), 3);
}

const GroundPlane* CellAt(const PlaneFitGroundDetector& d, float x, float y) {
  return d.GetGroundPlane(static_cast<int>((y + 72.0f) / kCell),
                          static_cast<int>((x + 72.0f) / kCell));
}

float HeightOfGround(const GroundPlane& p, float x, float y) {
  return -(p.a * x + p.b * y + p.d) / p.c;
}

// The ground height at (x, y) by the plane of its cell; NaN where the cell has none.
float GroundAt(const PlaneFitGroundDetector& d, float x, float y) {
  const GroundPlane* plane = CellAt(d, x, y);
  return plane == nullptr ? std::nanf("") : HeightOfGround(*plane, x, y);
}

// A detector of `param` after one successful detection over `xyz`.
PlaneFitGroundDetector Fitted(const std::vector<float>& xyz,
                              const PlaneFitGroundDetectorParam& param = {}) {
  PlaneFitGroundDetector detector = MakeDetector(param);
  EXPECT_TRUE(Detect(detector, xyz));
  return detector;
}

TEST(PlaneFitGroundDetectorTest, RecoversATiltedPlaneDespiteOutliers) {
  const Plane truth{0.03f, -0.02f, -2.0f};
  std::vector<float> xyz;
  AddGround(xyz, truth, -18, -18, 36);
  // Car undersides 40 cm up where no ground is seen, and single returns 50 cm under the ground
  // that become the lowest of their fine cell: together a quarter of the cells' samples.
  for (float y = -17.9f; y < 18; y += 0.3f) {
    for (float x = -17.9f; x < 18; x += 0.3f) {
      const int pattern = static_cast<int>(std::floor(x)) + 3 * static_cast<int>(std::floor(y));
      if (pattern % 5 == 0) {
        xyz.insert(xyz.end(), {x, y, truth.At(x, y) + 0.4f});
      } else if (pattern % 11 == 0) {
        xyz.insert(xyz.end(), {x, y, truth.At(x, y) - 0.5f});
      }
    }
  }
  PlaneFitGroundDetector detector = Fitted(xyz);
  const float length = std::sqrt(1 + truth.slope_x * truth.slope_x + truth.slope_y * truth.slope_y);
  for (float cy : {-13.5f, -4.5f, 4.5f, 13.5f}) {
    for (float cx : {-13.5f, -4.5f, 4.5f, 13.5f}) {
      const GroundPlane* plane = CellAt(detector, cx, cy);
      ASSERT_NE(plane, nullptr) << cx << "," << cy;
      EXPECT_EQ(plane->origin, kPlaneFitted);
      EXPECT_NEAR(plane->a, -truth.slope_x / length, 0.004f);
      EXPECT_NEAR(plane->b, -truth.slope_y / length, 0.004f);
      EXPECT_NEAR(HeightOfGround(*plane, cx, cy), truth.At(cx, cy), 0.015f);
      EXPECT_GE(plane->support, 8u);
    }
  }
}

TEST(PlaneFitGroundDetectorTest, ResultsDependOnTheFrameAloneNotOnCallHistory) {
  // Heights scattered over +-25 cm: every hypothesis keeps a different inlier set, so the plane
  // depends on which samples were drawn.
  std::vector<float> noisy;
  AddGround(noisy, {0.01f, 0.0f, -2.0f}, -18, -18, 36, 0.5f);
  for (std::size_t k = 2; k < noisy.size(); k += 3) {
    noisy[k] += 0.25f * std::sin(12.9898f * static_cast<float>(k));
  }
  std::vector<float> other;
  AddGround(other, {0.0f, 0.02f, -1.8f}, -9, -9, 27);
  PlaneFitGroundDetector detector = Fitted(noisy);
  const GroundPlane first = *CellAt(detector, 4.5f, 4.5f);
  ASSERT_TRUE(Detect(detector, other));
  ASSERT_TRUE(Detect(detector, noisy));
  const GroundPlane again = *CellAt(detector, 4.5f, 4.5f);
  EXPECT_EQ(std::tie(first.a, first.b, first.c, first.d, first.support),
            std::tie(again.a, again.b, again.c, again.d, again.support));
}

TEST(PlaneFitGroundDetectorTest, SparseOrDegenerateCellsGetNoPlane) {
  std::vector<float> xyz;
  AddGround(xyz, {0, 0, -2}, 36.5f, 36.5f, 2.75f);  // 121 samples, below the 128 needed
  // A single scan line: it lies in countless planes.
  for (int k = 0; k < 400; ++k) {
    xyz.insert(xyz.end(), {-40.0f + 0.02f * k, -40.0f + 0.01f * k, -2.0f - 0.005f * k});
  }
  // A 40-degree ramp: plenty of samples, but no ground.
  for (float y = -58; y < -50; y += 0.25f) {
    for (float x = 40; x < 41.5f; x += 0.1f) {
      xyz.insert(xyz.end(), {x, y, -3.0f + 0.84f * (x - 40)});
    }
  }
  PlaneFitGroundDetector detector = Fitted(xyz);
  EXPECT_EQ(CellAt(detector, 37, 37), nullptr);
  EXPECT_EQ(CellAt(detector, -39, -39), nullptr);
  EXPECT_EQ(CellAt(detector, 40.5f, -55), nullptr);

  PlaneFitGroundDetectorParam fewer;
  fewer.nr_samples_min_threshold = 121;
  PlaneFitGroundDetector lenient = Fitted(xyz, fewer);
  EXPECT_NEAR(GroundAt(lenient, 37, 37), -2.0f, 0.01f);
}

// Three rows of cells; the middle one of the centre row is given only `middle` returns.
std::vector<float> GroundWithSparseMiddle(float middle_rise, float middle_step) {
  std::vector<float> xyz;
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 3; ++column) {
      const bool middle = row == 1 && column == 1;
      AddGround(xyz, {0, 0, middle ? -2.0f + middle_rise : -2.0f}, column * kCell, row * kCell,
                kCell, middle ? middle_step : 0.5f);
    }
  }
  return xyz;
}

TEST(PlaneFitGroundDetectorTest, FillsASparseCellOnlyWhenItsReturnsAgree) {
  PlaneFitGroundDetector detector = MakeDetector();
  ASSERT_TRUE(Detect(detector, GroundWithSparseMiddle(0.0f, 1.0f)));  // 81 returns
  ASSERT_NEAR(GroundAt(detector, 13.5f, 13.5f), -2.0f, 0.01f);
  EXPECT_EQ(CellAt(detector, 13.5f, 13.5f)->origin, kPlaneFilled);

  ASSERT_TRUE(Detect(detector, GroundWithSparseMiddle(0.5f, 1.0f)));  // a raised platform
  EXPECT_EQ(CellAt(detector, 13.5f, 13.5f), nullptr);
  EXPECT_NE(CellAt(detector, 4.5f, 4.5f), nullptr);
}

// A cell too sparse to fit takes the lean of its neighbours and the height of its own lowest
// returns: a raised verge keeps its own level, and a car's underside over sparse ground does not
// lift the ground, even where the car gives more returns than the ground.
TEST(PlaneFitGroundDetectorTest, FilledCellTakesItsHeightFromItsOwnLowestReturns) {
  PlaneFitGroundDetector detector = MakeDetector();
  ASSERT_TRUE(Detect(detector, GroundWithSparseMiddle(0.15f, 1.0f)));
  const GroundPlane* verge = CellAt(detector, 13.5f, 13.5f);
  ASSERT_NE(verge, nullptr);
  EXPECT_EQ(verge->origin, kPlaneFilled);
  EXPECT_NEAR(GroundAt(detector, 13.5f, 13.5f), -1.85f, 0.02f);
  EXPECT_NEAR(GroundAt(detector, 4.5f, 4.5f), -2.0f, 0.01f);

  std::vector<float> xyz = GroundWithSparseMiddle(0.0f, 1.5f);  // 36 ground returns in the middle
  for (float y = 10.125f; y < 12.0f; y += 0.25f) {  // 64 returns of a car's underside, 25 cm up
    for (float x = 10.125f; x < 12.0f; x += 0.25f) {
      xyz.insert(xyz.end(), {x, y, -1.75f});
    }
  }
  ASSERT_TRUE(Detect(detector, xyz));
  ASSERT_NE(CellAt(detector, 13.5f, 13.5f), nullptr);
  EXPECT_NEAR(GroundAt(detector, 13.5f, 13.5f), -2.0f, 0.02f);
}

TEST(PlaneFitGroundDetectorTest, RejectsACellLeaningAwayFromTheRestOfTheGround) {
  std::vector<float> xyz;
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 3; ++column) {
      const bool middle = row == 1 && column == 1;
      const float rise = middle ? 0.14f : 0.0f;  // about 8 degrees
      AddGround(xyz, {rise, 0, -2.0f - rise * 13.5f}, column * kCell, row * kCell, kCell, 0.5f);
    }
  }
  PlaneFitGroundDetector strict = Fitted(xyz);
  EXPECT_EQ(CellAt(strict, 13.5f, 13.5f), nullptr);
  PlaneFitGroundDetectorParam loose;
  loose.planefit_orien_threshold = 10.0f;
  PlaneFitGroundDetector tolerant = Fitted(xyz, loose);
  ASSERT_NE(CellAt(tolerant, 13.5f, 13.5f), nullptr);
  EXPECT_EQ(CellAt(tolerant, 13.5f, 13.5f)->origin, kPlaneFitted);
}

TEST(PlaneFitGroundDetectorTest, InlierBandWidensBeyondTheNearZone) {
  // The same +-15 cm scatter in a near cell and in one past roi_near_rad (32 m).
  std::vector<float> xyz;
  for (float x0 : {0.0f, 36.0f}) {
    int k = 0;
    for (float y = 0.25f; y < kCell; y += 0.5f) {
      for (float x = x0 + 0.25f; x < x0 + kCell; x += 0.5f) {
        xyz.insert(xyz.end(), {x, y, -2.0f + 0.15f * static_cast<float>(k++ % 7 - 3) / 3});
      }
    }
  }
  PlaneFitGroundDetectorParam p;
  p.planefit_filter_threshold = 0.5f;  // keep the whole scatter as samples
  PlaneFitGroundDetector detector = Fitted(xyz, p);
  const GroundPlane* near = CellAt(detector, 4.5f, 4.5f);
  const GroundPlane* far = CellAt(detector, 40.5f, 4.5f);
  ASSERT_NE(near, nullptr);
  ASSERT_NE(far, nullptr);
  EXPECT_GE(far->support, 324u * 95 / 100);
  EXPECT_LT(near->support, 324u * 6 / 7);
}

TEST(PlaneFitGroundDetectorTest, SmoothingPullsAgreeingNeighboursTogether) {
  std::vector<float> xyz;
  AddGround(xyz, {0, 0, -2.00f}, 0, 0, kCell, 0.5f);
  AddGround(xyz, {0, 0, -2.06f}, kCell, 0, kCell, 0.5f);
  PlaneFitGroundDetectorParam raw;
  raw.nr_smooth_iter = 0;
  PlaneFitGroundDetector unsmoothed = Fitted(xyz, raw);
  PlaneFitGroundDetector smoothed = Fitted(xyz);
  const float gap_raw = GroundAt(unsmoothed, 4.5f, 4.5f) - GroundAt(unsmoothed, 13.5f, 4.5f);
  const float gap_smooth = GroundAt(smoothed, 4.5f, 4.5f) - GroundAt(smoothed, 13.5f, 4.5f);
  EXPECT_NEAR(gap_raw, 0.06f, 0.01f);
  EXPECT_LT(gap_smooth, gap_raw / 2);
}

TEST(PlaneFitGroundDetectorTest, AcceptsAnyCountStrideAndBadCoordinates) {
  PlaneFitGroundDetectorParam small;
  small.nr_points_max = 10;
  PlaneFitGroundDetector detector = MakeDetector(small);
  EXPECT_TRUE(detector.Detect(nullptr, 0, 3));
  EXPECT_FALSE(detector.Detect(nullptr, 5, 3));
  std::vector<float> xyz;
  AddGround(xyz, {0, 0, -2}, 0, 0, kCell);
  std::vector<float> wide;  // four floats per return, the fourth ignored
  for (std::size_t k = 0; k < xyz.size(); k += 3) {
    wide.insert(wide.end(), {xyz[k], xyz[k + 1], xyz[k + 2], 99.0f});
  }
  const float nan = std::numeric_limits<float>::quiet_NaN();
  wide.insert(wide.end(), {nan, 1.0f, -2.0f, 0.0f, 1.0f, nan, -2.0f, 0.0f, 1e30f, -1e30f, nan, 0});
  ASSERT_TRUE(detector.Detect(wide.data(), static_cast<unsigned>(wide.size() / 4), 4));
  EXPECT_NEAR(GroundAt(detector, 4.5f, 4.5f), -2.0f, 0.01f);
  EXPECT_FALSE(detector.Detect(wide.data(), 3, 2));
  EXPECT_EQ(detector.GetGroundPlane(-1, 0), nullptr);
  EXPECT_EQ(detector.GetGroundPlane(0, 16), nullptr);
}

// Init checks the set: each bad value is refused on the error stream, and so are absurd grids and
// unbounded regions; without a successful Init nothing is detected. Edge values pass silently:
// coarse may equal fine, near equal far; huge iteration counts are clamped, so they neither
// stall nor allocate without bound.
TEST(PlaneFitGroundDetectorTest, InitRefusesWhatCannotWorkAndBoundsTheRest) {
  using P = PlaneFitGroundDetectorParam;
  const std::string refused = "Invalid ground detector parameters... \n";
  const std::vector<std::pair<void (*)(P&), std::string>> breakers = {
      {[](P& p) { p.nr_grids_coarse = 1; }, refused},
      {[](P& p) { p.nr_grids_fine = 15; }, refused},
      {[](P& p) { p.nr_points_max = 0; }, refused},
      {[](P& p) { p.nr_samples_min_threshold = 0; }, refused},
      {[](P& p) { p.nr_samples_max_threshold = 0; }, refused},
      {[](P& p) { p.nr_inliers_min_threshold = 0; }, refused},
      {[](P& p) { p.nr_ransac_iter_threshold = 0; }, refused},
      {[](P& p) { p.roi_region_rad_x = 0.0f; }, refused},
      {[](P& p) { p.roi_region_rad_y = -1.0f; }, refused},
      {[](P& p) { p.roi_region_rad_z = 0.0f; }, refused},
      {[](P& p) { p.planefit_dist_threshold_near = 0.2001f; }, refused},
      {[](P& p) { p.nr_grids_fine = 100000; }, refused},
      {[](P& p) { p.nr_samples_max_threshold = 4000000000u; }, refused},
      {[](P& p) { p.nr_z_comp_candis = 4000000000u; }, refused},
      {[](P& p) { p.roi_region_rad_x_min = -std::numeric_limits<float>::infinity(); }, ""},
  };
  std::vector<float> xyz;
  AddGround(xyz, {0, 0, -2}, 0, 0, kCell, 0.5f);
  for (std::size_t k = 0; k < breakers.size(); ++k) {
    P param;
    breakers[k].first(param);
    PlaneFitGroundDetector detector(param);
    EXPECT_FALSE(Detect(detector, xyz)) << k;  // before Init
    testing::internal::CaptureStderr();
    EXPECT_FALSE(detector.Init()) << k;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), breakers[k].second) << k;
    EXPECT_FALSE(Detect(detector, xyz)) << k;
    EXPECT_EQ(detector.GetGroundPlane(0, 0), nullptr) << k;
  }
  P edges;
  edges.nr_grids_coarse = 2;
  edges.nr_grids_fine = 2;
  edges.planefit_dist_threshold_near = edges.planefit_dist_threshold_far;
  edges.roi_region_rad_x = 1e-6f;
  P endless;
  endless.nr_smooth_iter = 2000000000;
  endless.nr_ransac_iter_threshold = 2000000000;
  for (const P& param : {edges, endless}) {
    testing::internal::CaptureStderr();
    EXPECT_TRUE(param.Validate());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  }
  PlaneFitGroundDetector detector = Fitted(xyz, endless);
  EXPECT_NE(CellAt(detector, 4.5f, 4.5f), nullptr);
}

}  // namespace
}  // namespace velmar
