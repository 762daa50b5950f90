#include "PeerMethods.h"

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <cmath>

namespace velmar {
namespace peers {
namespace {

constexpr double kPi = 3.14159265358979323846;

// splitmix64: a fixed, library-independent sequence, so the sampled triples are the same with
// any standard library.
uint64_t NextRandom(uint64_t& state) {
  uint64_t z = (state += 0x9E3779B97F4A7C15ull);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
  return z ^ (z >> 31);
}

// Plane through three points, oriented upward; false for (nearly) collinear points.
bool PlaneThrough(const Point3& a, const Point3& b, const Point3& c, Plane& plane) {
  const double ux = b.x - a.x, uy = b.y - a.y, uz = b.z - a.z;
  const double vx = c.x - a.x, vy = c.y - a.y, vz = c.z - a.z;
  double nx = uy * vz - uz * vy;
  double ny = uz * vx - ux * vz;
  double nz = ux * vy - uy * vx;
  const double norm = std::sqrt(nx * nx + ny * ny + nz * nz);
  // The cross product's norm is twice the triangle's area; below a square millimetre the
  // normal is mostly rounding.
  if (!(norm > 2e-6)) {
    return false;
  }
  if (nz < 0.0) {
    nx = -nx;
    ny = -ny;
    nz = -nz;
  }
  nx /= norm;
  ny /= norm;
  nz /= norm;
  plane.nx = static_cast<float>(nx);
  plane.ny = static_cast<float>(ny);
  plane.nz = static_cast<float>(nz);
  plane.d = static_cast<float>(-(nx * a.x + ny * a.y + nz * a.z));
  return true;
}

}  // namespace

std::size_t StatisticalOutlierRemoval::Run(const std::vector<Point3>& points, const KdTree& tree,
                                           std::vector<uint8_t>& outlier) {
  const std::size_t n = points.size();
  outlier.assign(n, 0);
  meanDistance_.resize(n);
  neighbours_.resize(params_.k);
  double sum = 0.0;
  double sumSquares = 0.0;
  std::size_t counted = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const std::size_t found =
        tree.Nearest(points[i], params_.k, neighbours_.data(), static_cast<uint32_t>(i));
    if (found == 0) {
      // A lone point has no neighbourhood to be measured against: it is an outlier by any
      // reading, and it stays out of the statistics.
      meanDistance_[i] = -1.0f;
      continue;
    }
    double total = 0.0;
    for (std::size_t j = 0; j < found; ++j) {
      total += std::sqrt(static_cast<double>(neighbours_[j].squaredDistance));
    }
    const double mean = total / static_cast<double>(found);
    meanDistance_[i] = static_cast<float>(mean);
    sum += mean;
    sumSquares += mean * mean;
    ++counted;
  }
  std::size_t removed = 0;
  if (counted == 0) {
    std::fill(outlier.begin(), outlier.end(), 1);
    threshold_ = 0.0;
    return n;
  }
  const double mean = sum / static_cast<double>(counted);
  // Sample standard deviation of the per-point means.
  const double variance =
      counted > 1 ? std::max(0.0, (sumSquares - sum * mean) / static_cast<double>(counted - 1))
                  : 0.0;
  threshold_ = mean + params_.stddevFactor * std::sqrt(variance);
  for (std::size_t i = 0; i < n; ++i) {
    if (meanDistance_[i] < 0.0f || static_cast<double>(meanDistance_[i]) > threshold_) {
      outlier[i] = 1;
      ++removed;
    }
  }
  return removed;
}

std::size_t RadiusOutlierRemoval(const std::vector<Point3>& points, const KdTree& tree,
                                 const RadiusOutlierParams& params, std::vector<uint8_t>& outlier) {
  outlier.assign(points.size(), 0);
  std::size_t removed = 0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const std::size_t count =
        tree.CountWithin(points[i], params.radius, params.minNeighbours, static_cast<uint32_t>(i));
    if (count < params.minNeighbours) {
      outlier[i] = 1;
      ++removed;
    }
  }
  return removed;
}

std::size_t RansacPlaneSegmentation::Select(const std::vector<Point3>& points, const Plane& plane,
                                            std::vector<uint8_t>* inlier) const {
  std::size_t count = 0;
  const float t = params_.threshold;
  if (inlier == nullptr) {
    for (const Point3& p : points) {
      count += std::fabs(plane.Distance(p)) <= t ? 1 : 0;
    }
    return count;
  }
  for (std::size_t i = 0; i < points.size(); ++i) {
    const bool in = std::fabs(plane.Distance(points[i])) <= t;
    (*inlier)[i] = in ? 1 : 0;
    count += in ? 1 : 0;
  }
  return count;
}

bool RansacPlaneSegmentation::Run(const std::vector<Point3>& points, std::vector<uint8_t>& inlier) {
  const std::size_t n = points.size();
  inlier.assign(n, 0);
  inliers_ = 0;
  best_ = Plane{};
  if (n < 3) {
    return false;
  }
  const float minNz =
      params_.maxTiltDegrees > 0.0f
          ? static_cast<float>(std::cos(static_cast<double>(params_.maxTiltDegrees) * kPi / 180.0))
          : -1.0f;
  uint64_t state = params_.seed;
  bool found = false;
  std::size_t bestCount = 0;
  for (uint32_t iteration = 0; iteration < params_.iterations; ++iteration) {
    const std::size_t a = NextRandom(state) % n;
    const std::size_t b = NextRandom(state) % n;
    const std::size_t c = NextRandom(state) % n;
    Plane candidate;
    if (a == b || b == c || a == c || !PlaneThrough(points[a], points[b], points[c], candidate) ||
        candidate.nz < minNz) {
      continue;
    }
    const std::size_t count = Select(points, candidate, nullptr);
    if (!found || count > bestCount) {
      best_ = candidate;
      bestCount = count;
      found = true;
    }
  }
  if (!found) {
    return false;
  }
  inliers_ = Select(points, best_, &inlier);
  if (params_.refit && inliers_ >= 3) {
    // Least squares in the total sense: the normal is the direction of least spread of the
    // inliers, the eigenvector of the smallest eigenvalue of their covariance.
    Eigen::Vector3d centroid = Eigen::Vector3d::Zero();
    for (std::size_t i = 0; i < n; ++i) {
      if (inlier[i] != 0) {
        centroid += Eigen::Vector3d(points[i].x, points[i].y, points[i].z);
      }
    }
    centroid /= static_cast<double>(inliers_);
    Eigen::Matrix3d covariance = Eigen::Matrix3d::Zero();
    for (std::size_t i = 0; i < n; ++i) {
      if (inlier[i] != 0) {
        const Eigen::Vector3d q = Eigen::Vector3d(points[i].x, points[i].y, points[i].z) - centroid;
        covariance += q * q.transpose();
      }
    }
    Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> solver(covariance);
    if (solver.info() == Eigen::Success) {
      Eigen::Vector3d normal = solver.eigenvectors().col(0);  // eigenvalues ascend
      if (normal.z() < 0.0) {
        normal = -normal;
      }
      Plane refined;
      refined.nx = static_cast<float>(normal.x());
      refined.ny = static_cast<float>(normal.y());
      refined.nz = static_cast<float>(normal.z());
      refined.d = static_cast<float>(-normal.dot(centroid));
      best_ = refined;
      inliers_ = Select(points, best_, &inlier);
    }
  }
  return true;
}

}  // namespace peers
}  // namespace velmar
