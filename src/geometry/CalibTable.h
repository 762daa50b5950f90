// The reflectance calibration table: for each channel, a curve from the intensity the channel
// reports to the calibrated intensity, given by knots joined by straight lines. Channels the table
// does not list keep their intensity.
#ifndef VELMAR_GEOMETRY_CALIB_TABLE_H
#define VELMAR_GEOMETRY_CALIB_TABLE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velmar {

struct CalibCurve {
  static constexpr std::size_t kMaxKnots = 16;
  uint32_t knots = 0;  // 0: the channel is not calibrated
  std::array<double, kMaxKnots> raw{};
  std::array<double, kMaxKnots> calibrated{};
  // Per segment k (between knots k and k+1): calibrated = offset[k] + slope[k] x raw, found once
  // when the table is read so that a return costs no division.
  std::array<double, kMaxKnots> slope{};
  std::array<double, kMaxKnots> offset{};

  // Fills slope and offset from the knots.
  void Prepare();

  // Beyond the first and last knot the end segments go on; the result is clamped to the scale.
  double Apply(double intensity) const;
};

class CalibTable {
 public:
  static constexpr const char* kFormat = "velmar-calib";
  static constexpr const char* kVersion = "1";
  static constexpr uint32_t kMaxChannel = 4095;
  static constexpr double kFullScale = 255.0;
  // Raw and calibrated knot values lie within [0, kMaxKnotValue].
  static constexpr double kMaxKnotValue = 1000.0;

  // Parses table text; on failure the table is empty and `problem` says why ("line 7: ...").
  bool Parse(std::string_view text, std::string& problem);
  // The text of a table: the header, `comment` lines, and one line per calibrated channel.
  static std::string Write(const std::vector<CalibCurve>& curves, const std::string& comment);

  bool Empty() const { return curves_.empty(); }
  // Indexed by channel; a channel beyond the end is not calibrated.
  const std::vector<CalibCurve>& Curves() const { return curves_; }

 private:
  std::vector<CalibCurve> curves_;
};

}  // namespace velmar

#endif  // VELMAR_GEOMETRY_CALIB_TABLE_H
