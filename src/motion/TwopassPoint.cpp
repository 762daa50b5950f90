#include "motion/TwopassPoint.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "framework/AlgoCommon.h"

namespace velmar {
namespace {

constexpr const char* kClassName = "TwopassPoint";
constexpr double kMaxAngle = 89.0;
constexpr double kMaxGap = 10.0;
constexpr double kMaxDepth = 100.0;
constexpr int32_t kMaxMinPoints = 100000;
constexpr int32_t kMaxHeldPoints = 4000000;
constexpr double kMaxSweepGap = 10.0;
constexpr double kMaxRange = 1000.0;
// Range noise of a return: ground steps within it count as flat whatever their length.
constexpr float kGroundHeightTolerance = 0.005f;
// Ground resumes past a step up to this height (a curb), metres.
constexpr float kCurbHeight = 0.3f;
// Separation passed for returns of the same direction (another echo or mirror face).
constexpr float kSameDirection = -1.0f;

float Squared(float v) {
  return v * v;
}

}  // namespace

void TwopassPoint::ParseParams() {
  ReadInRange(kClassName, "join_angle", join_angle, 0.0, kMaxAngle);
  ReadInRange(kClassName, "same_direction_gap", same_direction_gap, 0.0, kMaxGap);
  ReadInRange(kClassName, "min_points", min_points, 1, kMaxMinPoints);
  ReadInRange(kClassName, "noise_range", noise_range, 0.0, kMaxRange);
  ReadInRange(kClassName, "ground_angle", ground_angle, 0.0, kMaxAngle);
  ReadInRange(kClassName, "ground_seed_depth", ground_seed_depth, 0.0, kMaxDepth);
  ReadInRange(kClassName, "sweep_gap", sweep_gap, 0.0, kMaxSweepGap);
  ReadInRange(kClassName, "write_cluster", write_cluster, 0, 1);
  ReadInRange(kClassName, "max_frame_points", max_frame_points, 1, kMaxHeldPoints);
  ParseImageParams(kClassName);
}

void TwopassPoint::ClearCache() {
  RangeImageAlgorithm::ClearCache();
  held_.clear();
}

bool TwopassPoint::Joins(const ImageReturn& a, const ImageReturn& b, float separation) const {
  if (separation == kSameDirection) {
    return std::fabs(a.range - b.range) < static_cast<float>(same_direction_gap);
  }
  // The angle between the farther beam and the step to the nearer return: near 90 degrees on a
  // surface facing the sensor, near 0 across a depth step, at every range alike.
  const float far = std::max(a.range, b.range);
  const float near = std::min(a.range, b.range);
  const float across = near * separation;  // small angles: sin ~ angle, cos ~ 1 - angle^2 / 2
  const float along = far - near * (1.0f - 0.5f * separation * separation);
  return along <= 0.0f || across > static_cast<float>(tan_join_) * along;
}

// Each column from the bottom up, cell by cell: the first return well below the sensor starts
// the ground. A return continues it when the step from a return of the same sweep in the cell
// below is flat, and that return is ground, or the ground level reached so far lies within a
// curb's height (so the pavement past a curb face is ground again, while a wall or a car roof
// never is).
void TwopassPoint::MarkGround() {
  const std::vector<ImageReturn>& returns = image_.Returns();
  const std::vector<uint16_t>& order = image_.ChannelsTopDown();
  const float seed = static_cast<float>(-ground_seed_depth);
  const float slope = static_cast<float>(tan_ground_);
  const float sweep = static_cast<float>(sweep_gap);
  for (uint32_t c = 0; c < image_.Columns(); ++c) {
    bool started = false;
    float level = 0.0f;
    int32_t below = -1;
    for (std::size_t r = order.size(); r-- > 0;) {
      const int32_t head = image_.CellHead(order[r], static_cast<uint16_t>(c));
      if (head < 0) {
        continue;
      }
      float reached = level;
      const bool seeding = !started;
      for (int32_t n = head; n >= 0; n = returns[static_cast<std::size_t>(n)].next) {
        const ImageReturn& e = returns[static_cast<std::size_t>(n)];
        bool onGround = seeding && e.z < seed;
        for (int32_t m = below; m >= 0 && !onGround;
             m = returns[static_cast<std::size_t>(m)].next) {
          const ImageReturn& b = returns[static_cast<std::size_t>(m)];
          const float run = std::sqrt(Squared(e.x - b.x) + Squared(e.y - b.y));
          const bool flat = std::fabs(e.z - b.z) <= slope * run + kGroundHeightTolerance &&
                            std::fabs(e.time - b.time) <= sweep;
          const bool fromGround = label_[static_cast<std::size_t>(m)] == kGround;
          onGround = flat && (fromGround || std::fabs(e.z - level) <= kCurbHeight);
          if (onGround && fromGround) {
            reached = e.z;
          }
        }
        if (onGround) {
          label_[static_cast<std::size_t>(n)] = kGround;
          reached = started ? reached : e.z;
          started = true;
        }
      }
      level = reached;
      below = head;
    }
  }
}

int32_t TwopassPoint::Find(int32_t label) {
  while (parent_[static_cast<std::size_t>(label)] != label) {
    int32_t& up = parent_[static_cast<std::size_t>(label)];
    up = parent_[static_cast<std::size_t>(up)];
    label = up;
  }
  return label;
}

void TwopassPoint::Union(int32_t a, int32_t b) {
  a = Find(a);
  b = Find(b);
  if (a != b) {
    parent_[static_cast<std::size_t>(std::max(a, b))] = std::min(a, b);
  }
}

// Joins return `self` with the labelled returns of the list starting at `cell` (up to `self`
// itself when the list is its own cell).
void TwopassPoint::Visit(int32_t self, int32_t cell, float separation) {
  const std::vector<ImageReturn>& returns = image_.Returns();
  int32_t& mine = label_[static_cast<std::size_t>(self)];
  for (int32_t n = cell; n >= 0 && n != self; n = returns[static_cast<std::size_t>(n)].next) {
    const int32_t theirs = label_[static_cast<std::size_t>(n)];
    if (theirs < 0 || !Joins(returns[static_cast<std::size_t>(self)],
                             returns[static_cast<std::size_t>(n)], separation)) {
      continue;
    }
    if (mine < 0) {
      mine = theirs;
    } else {
      Union(mine, theirs);
    }
  }
}

// First pass: columns in order, channels from the top; each return looks at the neighbours
// already labelled (its own cell, the cell above, three cells of the previous column).
void TwopassPoint::LabelProvisionally() {
  const std::vector<ImageReturn>& returns = image_.Returns();
  const std::vector<uint16_t>& order = image_.ChannelsTopDown();
  for (uint32_t c = 0; c < image_.Columns(); ++c) {
    const uint16_t column = static_cast<uint16_t>(c);
    for (uint16_t channel : order) {
      const int32_t head = image_.CellHead(channel, column);
      for (int32_t n = head; n >= 0; n = returns[static_cast<std::size_t>(n)].next) {
        if (label_[static_cast<std::size_t>(n)] == kGround) {
          continue;
        }
        Visit(n, head, kSameDirection);
        float separationSq = 0.0f;
        int32_t above = image_.Neighbour(channel, column, -1, 0, separationSq);
        Visit(n, above, std::sqrt(separationSq));
        if (c > 0) {
          for (int rows = -1; rows <= 1; ++rows) {
            const int32_t left = image_.Neighbour(channel, column, rows, -1, separationSq);
            Visit(n, left, std::sqrt(separationSq));
          }
        }
        int32_t& mine = label_[static_cast<std::size_t>(n)];
        if (mine < 0) {
          mine = static_cast<int32_t>(parent_.size());
          parent_.push_back(mine);
        }
      }
    }
  }
}

// The last column meets the first one across the angle wrap of a full turn.
void TwopassPoint::JoinAcrossTurn() {
  const std::vector<ImageReturn>& returns = image_.Returns();
  if (image_.Columns() < 2) {
    return;
  }
  const uint16_t last = static_cast<uint16_t>(image_.Columns() - 1);
  for (uint16_t channel : image_.ChannelsTopDown()) {
    for (int32_t n = image_.CellHead(channel, last); n >= 0;
         n = returns[static_cast<std::size_t>(n)].next) {
      const int32_t mine = label_[static_cast<std::size_t>(n)];
      if (mine < 0) {
        continue;
      }
      for (int rows = -1; rows <= 1; ++rows) {
        float separationSq = 0.0f;
        const int32_t first = image_.Neighbour(channel, last, rows, 1, separationSq);
        const float separation = std::sqrt(separationSq);
        for (int32_t m = first; m >= 0; m = returns[static_cast<std::size_t>(m)].next) {
          const int32_t theirs = label_[static_cast<std::size_t>(m)];
          if (theirs >= 0 && Joins(returns[static_cast<std::size_t>(n)],
                                   returns[static_cast<std::size_t>(m)], separation)) {
            Union(mine, theirs);
          }
        }
      }
    }
  }
}

// Second pass: every provisional label resolves to its cluster; clusters are numbered in the
// order of their first return, and the small ones are removed.
void TwopassPoint::Resolve(std::vector<_ori_point>& points) {
  const std::vector<ImageReturn>& returns = image_.Returns();
  size_.assign(parent_.size(), 0);
  number_.assign(parent_.size(), 0);
  nearest_.assign(parent_.size(), std::numeric_limits<float>::infinity());
  for (std::size_t i = 0; i < label_.size(); ++i) {
    int32_t& label = label_[i];
    if (label >= 0) {
      label = Find(label);
      ++size_[static_cast<std::size_t>(label)];
      float& nearest = nearest_[static_cast<std::size_t>(label)];
      nearest = std::min(nearest, returns[i].range);
    }
  }
  const float noiseRange = static_cast<float>(noise_range);
  uint32_t next = 1;
  for (std::size_t i = 0; i < returns.size(); ++i) {
    _ori_point& p = points[returns[i].index];
    const int32_t label = label_[i];
    uint32_t cluster = 0;
    if (label >= 0 && size_[static_cast<std::size_t>(label)] < static_cast<uint32_t>(min_points) &&
        nearest_[static_cast<std::size_t>(label)] <= noiseRange) {
      Remove(p);
    } else if (label >= 0) {
      uint32_t& number = number_[static_cast<std::size_t>(label)];
      number = number == 0 ? next++ : number;
      cluster = number;
    }
    if (write_cluster != 0) {
      p.aux_value = cluster;
    }
  }
}

void TwopassPoint::Cluster(std::vector<_ori_point>& points, std::size_t begin, std::size_t end) {
  tan_join_ = std::tan(join_angle * kDegToRad);
  tan_ground_ = std::tan(ground_angle * kDegToRad);
  try {
    image_.Add(points, begin, end, true);
    label_.assign(image_.Returns().size(), kUnlabelled);
    parent_.clear();
    if (ground_angle > 0.0) {
      MarkGround();
    }
    LabelProvisionally();
    JoinAcrossTurn();
    Resolve(points);
  } catch (...) {
    image_.Abandon();
    throw;
  }
  image_.EndFrame();
}

// Packets of a frame leave the host's vector until the frame closes: their returns wait here.
void TwopassPoint::Withhold(std::vector<_ori_point>& frame, std::size_t begin, std::size_t end) {
  for (std::size_t i = begin; i < end; ++i) {
    if (frame[i].distance != 0.0) {
      held_.push_back(frame[i]);
      frame[i].distance = 0.0;
    }
  }
}

// The held returns, clustered, go back into the call's points at `at`, the end of the packet
// that closed their frame; the last of them takes over the frame's end mark, so that the frame
// still ends on its last point. Returns how many went back.
std::size_t TwopassPoint::HandBack(std::vector<_ori_point>& frame, std::size_t at) {
  Cluster(held_, 0, held_.size());
  held_.erase(std::remove_if(held_.begin(), held_.end(),
                             [](const _ori_point& p) { return p.distance == 0.0; }),
              held_.end());
  const std::size_t count = held_.size();
  if (count > 0) {
    for (_ori_point& p : held_) {
      p.mark = 0;
    }
    std::swap(held_.back().mark, frame[at - 1].mark);
    frame.insert(frame.begin() + static_cast<std::ptrdiff_t>(at), held_.begin(), held_.end());
  }
  held_.clear();
  return count;
}

void TwopassPoint::Process(std::vector<_ori_point>& frame) {
  if (frame.size() > UINT32_MAX) {
    return;  // positions in the image are 32-bit; no sensor frame comes near
  }
  std::size_t begin = 0;
  while (begin < frame.size()) {
    std::size_t end = begin;
    while (end < frame.size() && frame[end].mark == 0) {
      ++end;
    }
    const bool closes = end < frame.size();
    end += closes ? 1 : 0;
    if (held_.empty() && (closes || end - begin > RangeImage::kLargestPacket)) {
      Cluster(frame, begin, end);
    } else {
      Withhold(frame, begin, end);
      if (closes || held_.size() >= static_cast<std::size_t>(max_frame_points)) {
        end += HandBack(frame, end);
      }
    }
    begin = end;
  }
}

}  // namespace velmar
