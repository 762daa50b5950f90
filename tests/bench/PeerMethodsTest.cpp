// The comparison methods of peers_bench: the k-d tree against brute force, the outlier rules on
// layouts whose answer is known, and RANSAC on planes it must recover.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "KdTree.h"
#include "PeerMethods.h"

namespace velmar {
namespace peers {
namespace {

std::vector<Point3> RandomPoints(std::size_t count, float extent, uint32_t seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> coordinate(-extent, extent);
  std::vector<Point3> points(count);
  for (Point3& p : points) {
    p = Point3{coordinate(random), coordinate(random), coordinate(random)};
  }
  return points;
}

TEST(KdTreeTest, NearestMatchesBruteForce) {
  std::vector<Point3> points = RandomPoints(400, 5.0f, 11);
  // Exact duplicates and points on shared coordinates exercise ties at the splitting planes.
  for (std::size_t i = 0; i < 20; ++i) {
    points.push_back(points[i * 7]);
    points.push_back(Point3{points[i].x, points[i + 1].y, points[i + 2].z});
  }
  KdTree tree;
  tree.Build(points);
  ASSERT_EQ(tree.Size(), points.size());

  std::vector<Point3> queries = RandomPoints(30, 6.0f, 12);
  std::vector<Neighbour> found(40);
  for (const std::size_t k : {std::size_t{1}, std::size_t{7}, std::size_t{40}}) {
    for (std::size_t q = 0; q < queries.size() + points.size(); q += 3) {
      // Outside queries keep every point; queries at a point of the set leave it out.
      const bool inSet = q >= queries.size();
      const Point3 query = inSet ? points[q - queries.size()] : queries[q];
      const uint32_t skip = inSet ? static_cast<uint32_t>(q - queries.size()) : KdTree::kNoSkip;

      std::vector<float> expected;
      for (std::size_t i = 0; i < points.size(); ++i) {
        if (i != skip) {
          expected.push_back(SquaredDistance(points[i], query));
        }
      }
      std::sort(expected.begin(), expected.end());
      expected.resize(k);

      const std::size_t n = tree.Nearest(query, k, found.data(), skip);
      ASSERT_EQ(n, k);
      for (std::size_t j = 0; j < n; ++j) {
        ASSERT_NE(found[j].index, skip);
        ASSERT_EQ(found[j].squaredDistance, expected[j]) << "k " << k << " query " << q;
        ASSERT_EQ(found[j].squaredDistance, SquaredDistance(points[found[j].index], query));
      }
    }
  }
}

TEST(KdTreeTest, NearestReturnsWhatThereIsWhenFewerThanK) {
  const std::vector<Point3> points = {{0, 0, 0}, {1, 0, 0}, {0, 2, 0}, {0, 0, 3}};
  KdTree tree;
  tree.Build(points);
  std::vector<Neighbour> found(10);
  ASSERT_EQ(tree.Nearest(points[0], 10, found.data(), 0), 3u);
  EXPECT_EQ(found[0].index, 1u);
  EXPECT_EQ(found[1].index, 2u);
  EXPECT_EQ(found[2].index, 3u);

  tree.Build({});
  EXPECT_EQ(tree.Nearest(points[0], 10, found.data()), 0u);
  EXPECT_EQ(tree.CountWithin(points[0], 5.0f, 10), 0u);
}

TEST(KdTreeTest, CountWithinMatchesBruteForce) {
  const std::vector<Point3> points = RandomPoints(500, 4.0f, 21);
  KdTree tree;
  tree.Build(points);
  for (const float radius : {0.3f, 1.0f, 2.5f}) {
    for (std::size_t q = 0; q < points.size(); q += 5) {
      std::size_t expected = 0;
      for (std::size_t i = 0; i < points.size(); ++i) {
        expected += (i != q && SquaredDistance(points[i], points[q]) <= radius * radius) ? 1 : 0;
      }
      const uint32_t skip = static_cast<uint32_t>(q);
      ASSERT_EQ(tree.CountWithin(points[q], radius, points.size(), skip), expected);
      ASSERT_EQ(tree.CountWithin(points[q], radius, 3, skip), std::min<std::size_t>(expected, 3));
    }
  }
}

TEST(StatisticalOutlierRemovalTest, ThresholdIsMeanPlusSampleDeviations) {
  // Nearest-neighbour distances 1, 1, 1, 1, 7: mean 2.2, sample deviation sqrt(7.2).
  const std::vector<Point3> points = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}, {10, 0, 0}};
  KdTree tree;
  tree.Build(points);
  StatisticalOutlierRemoval sor(StatisticalOutlierParams{1, 1.0});
  std::vector<uint8_t> outlier;
  EXPECT_EQ(sor.Run(points, tree, outlier), 1u);
  EXPECT_NEAR(sor.Threshold(), 2.2 + std::sqrt(7.2), 1e-6);
  EXPECT_EQ(outlier, (std::vector<uint8_t>{0, 0, 0, 0, 1}));
}

TEST(StatisticalOutlierRemovalTest, RemovesIsolatedPointsAndKeepsTheCluster) {
  std::vector<Point3> points = RandomPoints(600, 2.0f, 31);
  const std::size_t cluster = points.size();
  for (int i = 0; i < 6; ++i) {
    points.push_back(Point3{40.0f + 30.0f * static_cast<float>(i), -25.0f, 8.0f});
  }
  KdTree tree;
  tree.Build(points);
  StatisticalOutlierRemoval sor(StatisticalOutlierParams{10, 1.0});
  std::vector<uint8_t> outlier;
  EXPECT_EQ(sor.Run(points, tree, outlier), 6u);
  for (std::size_t i = 0; i < points.size(); ++i) {
    EXPECT_EQ(outlier[i], i >= cluster ? 1 : 0) << i;
  }
}

TEST(RadiusOutlierRemovalTest, NeedsAtLeastNOtherPointsWithinTheRadius) {
  // A triangle whose points each have the two others within 0.5 m (points 0 and 1 exactly 0.5 m
  // apart, which counts), a pair 0.4 m apart and a lone point.
  const std::vector<Point3> points = {{0, 0, 0},  {0.5f, 0, 0},  {0.25f, 0.25f, 0},
                                      {10, 0, 0}, {10, 0.4f, 0}, {20, 0, 0}};
  KdTree tree;
  tree.Build(points);
  std::vector<uint8_t> outlier;
  EXPECT_EQ(RadiusOutlierRemoval(points, tree, RadiusOutlierParams{0.5f, 2}, outlier), 3u);
  EXPECT_EQ(outlier, (std::vector<uint8_t>{0, 0, 0, 1, 1, 1}));
  EXPECT_EQ(RadiusOutlierRemoval(points, tree, RadiusOutlierParams{0.5f, 1}, outlier), 1u);
  EXPECT_EQ(outlier, (std::vector<uint8_t>{0, 0, 0, 0, 0, 1}));
  EXPECT_EQ(RadiusOutlierRemoval(points, tree, RadiusOutlierParams{0.3f, 2}, outlier), 6u);
}

// Points on z = sx x + sy y + z0 with +-2 cm of noise, over a square of `size` metres.
void AddPlane(std::vector<Point3>& points, float sx, float sy, float z0, float size,
              std::size_t count, uint32_t seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> coordinate(-size / 2, size / 2);
  std::uniform_real_distribution<float> noise(-0.02f, 0.02f);
  for (std::size_t i = 0; i < count; ++i) {
    const float x = coordinate(random);
    const float y = coordinate(random);
    points.push_back(Point3{x, y, sx * x + sy * y + z0 + noise(random)});
  }
}

TEST(RansacPlaneSegmentationTest, RecoversAKnownPlaneAmongClutter) {
  std::vector<Point3> points;
  AddPlane(points, 0.05f, -0.02f, -1.8f, 40.0f, 2000, 41);
  const std::size_t onPlane = points.size();
  for (Point3 p : RandomPoints(1500, 20.0f, 42)) {
    p.z = std::fabs(p.z) * 0.4f;  // clutter from the ground up to 8 m, all above the plane
    points.push_back(p);
  }
  RansacPlaneParams params;
  params.iterations = 200;
  RansacPlaneSegmentation ransac(params);
  std::vector<uint8_t> inlier;
  ASSERT_TRUE(ransac.Run(points, inlier));

  // Expected unit normal of z - 0.05 x + 0.02 y + 1.8 = 0, pointing up.
  const double norm = std::sqrt(1.0 + 0.05 * 0.05 + 0.02 * 0.02);
  const Plane& plane = ransac.Best();
  const double cosine = (-0.05 * plane.nx + 0.02 * plane.ny + plane.nz) / norm;
  EXPECT_GT(cosine, std::cos(0.5 * 3.14159265358979 / 180.0));
  EXPECT_NEAR(plane.d, 1.8 / norm, 0.02);

  std::size_t expectedInliers = 0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (i < onPlane) {
      ASSERT_EQ(inlier[i], 1) << i;
    }
    expectedInliers += std::fabs(plane.Distance(points[i])) <= params.threshold ? 1 : 0;
  }
  EXPECT_EQ(ransac.InlierCount(), expectedInliers);
  EXPECT_EQ(static_cast<std::size_t>(std::count(inlier.begin(), inlier.end(), 1)), expectedInliers);
}

TEST(RansacPlaneSegmentationTest, TiltLimitKeepsALargerWallFromWinning) {
  std::vector<Point3> points;
  std::mt19937 random(51);
  std::uniform_real_distribution<float> along(-20.0f, 20.0f);
  std::uniform_real_distribution<float> up(-1.8f, 6.0f);
  for (int i = 0; i < 3000; ++i) {
    points.push_back(Point3{6.0f, along(random), up(random)});  // a wall at x = 6 m
  }
  AddPlane(points, 0.0f, 0.0f, -1.8f, 10.0f, 1200, 52);  // the road, smaller

  RansacPlaneParams params;
  params.iterations = 100;
  params.seed = 3;
  std::vector<uint8_t> inlier;
  RansacPlaneSegmentation free(params);
  ASSERT_TRUE(free.Run(points, inlier));
  EXPECT_LT(free.Best().nz, 0.1f);

  params.maxTiltDegrees = 10.0f;
  RansacPlaneSegmentation level(params);
  ASSERT_TRUE(level.Run(points, inlier));
  EXPECT_GT(level.Best().nz, 0.999f);
  EXPECT_NEAR(level.Best().d, 1.8f, 0.02f);
}

TEST(RansacPlaneSegmentationTest, SameSeedSamePlaneAndTooFewPointsGiveNone) {
  std::vector<Point3> points;
  AddPlane(points, 0.1f, 0.0f, -1.0f, 20.0f, 300, 61);
  for (const Point3& p : RandomPoints(300, 10.0f, 62)) {
    points.push_back(p);
  }
  RansacPlaneParams params;
  params.iterations = 20;
  params.refit = false;
  RansacPlaneSegmentation first(params);
  RansacPlaneSegmentation second(params);
  std::vector<uint8_t> a;
  std::vector<uint8_t> b;
  ASSERT_TRUE(first.Run(points, a));
  ASSERT_TRUE(second.Run(points, b));
  EXPECT_EQ(a, b);
  EXPECT_EQ(first.Best().d, second.Best().d);

  std::vector<uint8_t> inlier;
  EXPECT_FALSE(first.Run({{0, 0, 0}, {1, 0, 0}}, inlier));
  EXPECT_FALSE(first.Run({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}}, inlier));
  EXPECT_TRUE(std::all_of(inlier.begin(), inlier.end(), [](uint8_t v) { return v == 0; }));
}

}  // namespace
}  // namespace peers
}  // namespace velmar
