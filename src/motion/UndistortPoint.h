// Undistortion by grid speed: a return whose range disagrees with its cell's history belongs to
// a moving target, which the other mirror faces (or echoes) saw a moment earlier or later. Such a
// return is moved onto the range seen on the reference face, or removed, or (Marlo256, Marlo128H)
// re-emitted at the end of the frame at the range of its partner.
#ifndef VELMAR_MOTION_UNDISTORT_POINT_H
#define VELMAR_MOTION_UNDISTORT_POINT_H

#include <vector>

#include "motion/HistoryVoteAlgorithm.h"

namespace velmar {

class UndistortPoint : public HistoryVoteAlgorithm {
 public:
  UndistortPoint(const std::string& name, const std::string& desc, LidarType type);

  void Process(std::vector<_ori_point>& frame) override;
  void ParseParams() override;
  static std::size_t TableBytes(LidarType type, const NumberParams& params);
  // Forgets the reference returns of the frame under way; the history and the background
  // learned so far stay, since they describe the scene rather than one frame.
  void ClearCache() override {
    reference_ranges_.clear();
    references_.clear();
  }

  // The named operations of the filter by cell id, kept on purpose for hosts and tests that
  // probe single cells; frames go through the private Cell forms, which need no id lookup.
  // The cell of a Marlo return (kNoCell outside the grid or the model's channel range).
  int32_t ComputeGridIDMarlo128H(double hor_angle, uint32_t channel, uint32_t mirror) const;

  // Whether the return agrees with its cell's history; also learns the cell's background.
  bool ShouldKeepPoint(int32_t id, double range);
  bool IsBackGroundPoint(int32_t id, double range) const;
  // Whether the return comes from the face (and echo) that the others are corrected towards.
  bool IsBasePoint(uint32_t mirror, uint32_t echo) const;

  // The cell holding the reference return for a moving return in cell `id` (kNoCell if none).
  static int32_t CompensateGridIDZephel(int32_t id, uint32_t mirror);
  static int32_t CompensateGridIDMarlo128(int32_t id, uint32_t mirror, uint32_t echo);
  int32_t CompensateGridIDMarlo128H(int32_t id, uint32_t channel) const;

  // Moves the point along its own direction to range `r`; `distance` is left as measured.
  static void CompensatePoint(_ori_point& point, double r);

  float Background(int32_t id) const {
    return background_[static_cast<std::size_t>(grid_.IndexOf(id))];
  }

  float dis_redund_thred;
  float dis_smallblind_thred = 2.5f;

 private:
  enum class Model { kZephel, kMarlo256, kMarlo128H, kMarlo128, kOther };

  using Cell = MotionGrid::Cell;

  static Model ModelOf(LidarType type);
  Cell LocateMarlo(double hor_angle, uint32_t channel, uint32_t mirror) const;
  Cell CellOf(const _ori_point& point) const;
  bool ShouldKeepPoint(const Cell& cell, double range);
  bool IsBackGroundPoint(const Cell& cell, double range) const;
  void HandlePoint(_ori_point& point);
  void CompensateFromReference(_ori_point& point, const Cell& cell, bool moving, bool base);
  void StoreOrReemit(_ori_point& point, const Cell& cell, bool moving, bool base);
  void StoreReference(const _ori_point& point, const Cell& cell);
  // Position in the reference list of the reference held by `cell`, or -1 for none.
  int64_t ReferenceIn(int32_t cell) const;
  bool ReemitsReferences() const { return model_ != Model::kZephel && model_ != Model::kMarlo128; }
  void RemoveUnreferenced(_ori_point& point, bool blind) const;
  void Label(_ori_point& point, int32_t offset) const;
  // Whether `point` closes the revolution; re-arms the history push when it opens the next one.
  bool TrackRevolution(const _ori_point& point);
  void StartNextRevolution();

  Model model_;
  // Per cell, by storage index.
  std::vector<float> background_;       // -1 unknown, 0 known empty, else the static range
  std::vector<float> reference_index_;  // index into reference_ranges_, -1 for none
  // The reference returns of the revolution under way. Moving a return onto its reference needs
  // only the reference's range, kept densely so that the lookup a third of a frame later stays in
  // cache; whole records are kept only by the models that re-emit references as new points.
  std::vector<double> reference_ranges_;
  std::vector<_ori_point> references_;
  // The cells given a reference index since the map was last reset. Resetting only these at the
  // start of a revolution spares a pass over the whole map.
  std::vector<int32_t> referenced_cells_;
  std::vector<_ori_point> extra_points_;
};

}  // namespace velmar

#endif  // VELMAR_MOTION_UNDISTORT_POINT_H
