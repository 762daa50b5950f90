// Reflectance calibration: every channel's intensity goes through its curve of a calibration
// table, so that all channels report the same intensity for the same surface. It runs early (id
// 11), so the intensity-based filters after it see calibrated intensity.
#ifndef VELMAR_GEOMETRY_REFLECT_CALIB_H
#define VELMAR_GEOMETRY_REFLECT_CALIB_H

#include <cstdint>
#include <string>
#include <vector>

#include "framework/Algorithm.h"
#include "geometry/CalibTable.h"

namespace velmar {

class ReflectCalib : public Algorithm {
 public:
  using Algorithm::Algorithm;

  // A table file larger than this is refused unread.
  static constexpr std::size_t kMaxTableBytes = std::size_t{1} << 20;

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& /*lidarTypeName*/) override { return true; }
  // Reads the parameter and loads the table; a table that cannot be loaded leaves frames
  // unchanged.
  void ParseParams() override;

  bool TableLoaded() const { return !table_.Empty(); }

  std::string calib_file;

 private:
  // The table's curves laid out for the frame loop: each channel's segments side by side, a few
  // bytes a channel, so that a frame's sweep over all channels stays in the first-level cache.
  struct Segment {
    double rawEnd;  // the segment serves raw values up to here; +infinity for the last
    double slope;
    double offset;
  };
  void LayOutSegments();

  CalibTable table_;
  std::vector<uint32_t> first_segment_;  // per channel
  std::vector<uint32_t> segment_count_;  // per channel; 0: not calibrated
  std::vector<Segment> segments_;
};

}  // namespace velmar

#endif  // VELMAR_GEOMETRY_REFLECT_CALIB_H
