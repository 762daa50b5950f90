// What the crosstalk and high-reflectivity filters share. A strong return (a wide pulse) leaks
// light into nearby cells of its sweep: other channels of its column, its channel in the columns
// beside it, or a halo all around a retro-reflector. A leak reads at about the strong return's
// range, with a small share of its echo strength and intensity. Each filter names the cells a
// strong return can reach (its window); this class finds the strong returns, visits their
// windows and removes the leaks (distance 0), in whole frames or in packets.
//
// Packets (96, 128 or 192 points) are judged as the sensor sends them. When a window reaches
// columns that later packets bring, the filter hands packets back late: each call answers with
// the packet given DelayPackets() calls earlier, judged, and the first calls after a start or a
// clear answer with their own packet unchanged (it comes back judged later). The held packets
// keep every field, the frame's mark included. Any other size is a whole frame, judged at once.
#ifndef VELMAR_FILTERS_STRONG_RETURN_FILTER_H
#define VELMAR_FILTERS_STRONG_RETURN_FILTER_H

#include <cstdint>
#include <string>
#include <vector>

#include "filters/ColumnLayout.h"
#include "framework/Algorithm.h"

namespace velmar {

class StrongReturnFilter : public Algorithm {
 public:
  // Which cells a strong return reaches.
  enum class Window {
    kColumn,           // channelReach channels above and below it, in its column
    kSweep,            // its channel, columnReach columns before and after it
    kPartnerChannels,  // the channels two above and two below it, in its column
    kHalo,             // every cell within channelReach channels and columnReach columns
  };
  struct Defaults {
    double strongPulseWidth;
    double echoRatio;
    double intensityRatio;
    double rangeTolerance;
    int32_t channelReach;
    int32_t columnReach;
  };

  static constexpr int32_t kMaxChannelReach = 16;
  static constexpr int32_t kMaxColumnReach = 4;

  void Process(std::vector<_ori_point>& points) override;
  void ParseParams() override;
  void ClearCache() override;

  // Packets a call hands back late; 0 when every window lies within the packet.
  uint32_t DelayPackets() const { return delay_packets_; }

  double strongPulseWidth;  // a return with a wider pulse is strong
  double echoRatio;         // a leak's echo strength is at most this share of its source's...
  double intensityRatio;    // ...and its intensity at most this share
  double rangeTolerance;    // metres a leak may lie before or behind its source
  int32_t channelReach;     // channels above and below, in elevation, that a window covers
  int32_t columnReach;      // columns before and after
  int32_t debug_using_echo = -1;

 protected:
  StrongReturnFilter(const std::string& name, const std::string& desc, LidarType type,
                     const char* className, Window window, const Defaults& defaults);

  // What an instance of this window and these defaults holds for `type` and `params` (see
  // Algorithm::TableBytes): the window, the held packets and the strong returns kept.
  static std::size_t BufferBytes(LidarType type, const NumberParams& params, Window window,
                                 const Defaults& defaults);

  // The mirror models whose 64-channel columns come two to a packet.
  static bool IsTwoColumnMirrorModel(const std::string& lidarTypeName);
  // Whether a leak may be removed; a filter may protect some.
  virtual bool MayRemove(const _ori_point& /*leak*/) const { return true; }
  // Reads `key` when present; a value outside [low, high] (or NaN) gives the library's message
  // and `fallback`.
  void ReadBounded(const char* key, double& field, double low, double high, double fallback);
  void ReadBounded(const char* key, int32_t& field, int32_t low, int32_t high, int32_t fallback);

 private:
  struct StrongReturn {
    int64_t columnStart;  // stream position of the first point of its column
    uint32_t rank;        // place of its channel in elevation
    double angle;
    double range;
    double echo;
    double intensity;
  };
  struct Offset {
    int32_t columns;
    int32_t ranks;
  };

  struct Capacities {
    uint32_t delayPackets;
    std::size_t strongReturns;
  };
  // How late packets go back and how many strong returns stay held, for windows that reach
  // `columns` columns either way.
  static Capacities CapacitiesFor(const ColumnLayout& layout, int64_t columns);
  void BuildWindow();
  void SizeBuffers();
  // Whether `point`, at stream position `position`, is a strong return; if so fills `strong`.
  bool ReadStrong(const _ori_point& point, int64_t position, StrongReturn& strong) const;
  void JudgeInPlace(std::vector<_ori_point>& frame);
  void ProcessDelayed(std::vector<_ori_point>& packet);
  // Hands `released` back in `packet` and keeps the packet given in its place.
  void Exchange(std::vector<_ori_point>& packet, std::vector<_ori_point>& released);
  void JudgeReleased(std::vector<_ori_point>& packet, int64_t start);
  // Removes the leaks of `strong` that lie in `unit` (first point at stream position `start`).
  void RemoveLeaks(const StrongReturn& strong, std::vector<_ori_point>& unit, int64_t start) const;
  bool InCell(const StrongReturn& strong, const _ori_point& point, int32_t columns,
              uint32_t index) const;
  bool IsLeak(const StrongReturn& strong, const _ori_point& point) const;

  const char* class_name_;
  Window window_kind_;
  Defaults defaults_;
  const ColumnLayout* layout_;
  std::vector<Offset> window_;
  int32_t window_columns_ = 0;  // the most columns a window reaches either way
  uint32_t delay_packets_ = 0;

  // Packets held back, oldest first from `oldest_`, with their stream positions, and the strong
  // returns of every packet whose windows may still reach a packet not yet handed back, in
  // stream order.
  std::vector<std::vector<_ori_point>> held_;
  std::vector<int64_t> held_start_;
  uint32_t held_count_ = 0;
  uint32_t oldest_ = 0;
  int64_t next_position_ = 0;
  std::vector<StrongReturn> strong_;
  std::vector<_ori_point> handover_;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_STRONG_RETURN_FILTER_H
