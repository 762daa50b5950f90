#include "geometry/CalibTable.h"

#include <algorithm>
#include <cstdio>

#include "framework/DataText.h"

namespace velmar {
namespace {

bool ParseChannel(std::string_view field, uint32_t& channel) {
  double value = 0.0;
  if (!ParseFiniteNumber(field, value) || value < 0.0 || value > CalibTable::kMaxChannel ||
      value != static_cast<double>(static_cast<uint32_t>(value))) {
    return false;
  }
  channel = static_cast<uint32_t>(value);
  return true;
}

bool ParseKnot(std::string_view field, double& raw, double& calibrated) {
  const std::size_t colon = field.find(':');
  if (colon == std::string_view::npos || !ParseFiniteNumber(field.substr(0, colon), raw) ||
      !ParseFiniteNumber(field.substr(colon + 1), calibrated)) {
    return false;
  }
  const auto inScale = [](double v) { return v >= 0.0 && v <= CalibTable::kMaxKnotValue; };
  return inScale(raw) && inScale(calibrated);
}

}  // namespace

void CalibCurve::Prepare() {
  for (std::size_t k = 0; k + 1 < knots; ++k) {
    slope[k] = (calibrated[k + 1] - calibrated[k]) / (raw[k + 1] - raw[k]);
    offset[k] = calibrated[k] - slope[k] * raw[k];
  }
}

double CalibCurve::Apply(double intensity) const {
  std::size_t segment = 0;
  while (segment + 2 < knots && intensity > raw[segment + 1]) {
    ++segment;
  }
  const double value = offset[segment] + slope[segment] * intensity;
  return std::clamp(value, 0.0, CalibTable::kFullScale);
}

bool CalibTable::Parse(std::string_view text, std::string& problem) {
  curves_.clear();
  DataTextReader reader(text);
  if (!reader.ReadHeader(kFormat, kVersion, problem)) {
    return false;
  }
  std::vector<CalibCurve> curves;
  std::vector<std::string_view> fields;
  const auto refuse = [&](const std::string& what) {
    problem = reader.Problem(what);
    return false;
  };
  while (reader.Next(fields)) {
    uint32_t channel = 0;
    if (!ParseChannel(fields[0], channel)) {
      return refuse("expected a channel number from 0 to " + std::to_string(kMaxChannel));
    }
    const std::size_t knots = fields.size() - 1;
    if (knots < 2 || knots > CalibCurve::kMaxKnots) {
      return refuse("a channel needs 2 to " + std::to_string(CalibCurve::kMaxKnots) +
                    " knots \"raw:calibrated\"");
    }
    if (channel >= curves.size()) {
      curves.resize(channel + 1);
    }
    CalibCurve& curve = curves[channel];
    if (curve.knots != 0) {
      return refuse("channel " + std::to_string(channel) + " is listed twice");
    }
    for (std::size_t k = 0; k < knots; ++k) {
      if (!ParseKnot(fields[k + 1], curve.raw[k], curve.calibrated[k])) {
        return refuse("expected a knot \"raw:calibrated\" with values from 0 to 1000");
      }
      if (k > 0 && !(curve.raw[k] > curve.raw[k - 1])) {
        return refuse("raw values of the knots must increase");
      }
    }
    curve.knots = static_cast<uint32_t>(knots);
    curve.Prepare();
  }
  if (curves.empty()) {
    problem = "lists no channel";
    return false;
  }
  curves_.swap(curves);
  return true;
}

std::string CalibTable::Write(const std::vector<CalibCurve>& curves, const std::string& comment) {
  std::string text = DataTextHeader(kFormat, kVersion, comment);
  text += "# channel raw:calibrated ...\n";
  char knot[64];
  for (std::size_t channel = 0; channel < curves.size(); ++channel) {
    const CalibCurve& curve = curves[channel];
    if (curve.knots < 2) {
      continue;
    }
    text += std::to_string(channel);
    for (uint32_t k = 0; k < curve.knots; ++k) {
      std::snprintf(knot, sizeof(knot), " %.4f:%.4f", curve.raw[k], curve.calibrated[k]);
      text += knot;
    }
    text += "\n";
  }
  return text;
}

}  // namespace velmar
