#include "motion/UndistortPoint.h"

#include <cmath>
#include <limits>

#include "framework/about.h"
#include "motion/MarloCellTables.h"

namespace velmar {
namespace {

constexpr int32_t kGridRows = 192;
constexpr int32_t kGridSubCells = 3;  // one per mirror face
constexpr int32_t kMarloGridRows = 32;
constexpr int32_t kMarlo128SubCells = 6;  // three faces for each half of the channels
constexpr int32_t kMarlo128HSubCells = 4;
constexpr uint32_t kBaseMirror = 0;
// Marlo128 channels 1..64 take sub-cells 3..5 of their grid position, the others 0..2.
constexpr uint32_t kMarlo128SecondHalfStart = 65;
constexpr uint32_t kMarlo128FirstHalfSubOffset = 3;

constexpr float kFarRedundLimit = 500.0f;
constexpr float kMarloRedundLimit = 50.0f;
// The interleaved faces of Marlo256 and Marlo128H see a moving edge with more spread.
constexpr double kMarloRangeThreshold = 0.15;
// Margins below `dis_smallblind_thred`: a reference closer than the first is itself unreliable,
// and a blind-face return closer than the second is left to the blind-zone handling.
constexpr double kReferenceNearMargin = 0.1;
constexpr double kBlindNearMargin = 0.5;

constexpr float kNoReference = -1.0f;
constexpr float kUnknownBackground = -1.0f;
constexpr float kEmptyBackground = 0.0f;
constexpr float kUnseenRange = -1.0f;

int32_t RowsFor(LidarType type) {
  const bool marlo = type == LIDAR_MARLO256 || type == LIDAR_MARLO128H || type == LIDAR_MARLO128;
  return marlo ? kMarloGridRows : kGridRows;
}

int32_t SubCellsFor(LidarType type) {
  if (type == LIDAR_MARLO128) {
    return kMarlo128SubCells;
  }
  if (type == LIDAR_MARLO256 || type == LIDAR_MARLO128H) {
    return kMarlo128HSubCells;
  }
  return kGridSubCells;
}

bool IsMarlo(LidarType type) {
  return type == LIDAR_MARLO256 || type == LIDAR_MARLO128H || type == LIDAR_MARLO128;
}

// References kept per revolution without growing the lists: one per cell on the Marlo models and
// one per grid position (the base face's) on the others.
int32_t ReferencesPerRevolution(LidarType type, int32_t cells) {
  return IsMarlo(type) ? cells : cells / SubCellsFor(type);
}

}  // namespace

std::size_t UndistortPoint::TableBytes(LidarType type, const NumberParams& /*params*/) {
  const std::size_t cells = MotionGrid::CellCountFor(RowsFor(type), SubCellsFor(type));
  const std::size_t references =
      static_cast<std::size_t>(ReferencesPerRevolution(type, static_cast<int32_t>(cells)));
  const Model model = ModelOf(type);
  const bool reemits = model != Model::kZephel && model != Model::kMarlo128;
  const std::size_t per_reference =
      sizeof(double) + sizeof(int32_t) + (reemits ? sizeof(_ori_point) : 0);
  return MotionGrid::TableBytes(RowsFor(type), SubCellsFor(type)) + cells * 2 * sizeof(float) +
         references * per_reference;
}

UndistortPoint::UndistortPoint(const std::string& name, const std::string& desc, LidarType type)
    : HistoryVoteAlgorithm(name, desc, type, RowsFor(type), SubCellsFor(type)),
      model_(ModelOf(type)),
      background_(static_cast<std::size_t>(grid_.CellCount()), kUnknownBackground),
      reference_index_(static_cast<std::size_t>(grid_.CellCount()), kNoReference) {
  dis_redund_thred = IsMarlo(type) ? kMarloRedundLimit : kFarRedundLimit;
  const int32_t per_revolution = ReferencesPerRevolution(type, grid_.CellCount());
  reference_ranges_.reserve(static_cast<std::size_t>(per_revolution));
  if (ReemitsReferences()) {
    references_.reserve(static_cast<std::size_t>(per_revolution));
  }
  referenced_cells_.reserve(static_cast<std::size_t>(per_revolution));
}

UndistortPoint::Model UndistortPoint::ModelOf(LidarType type) {
  switch (type) {
    case LIDAR_QUILL_A4:
    case LIDAR_ZEPHEL_B2_B3_MP:
      return Model::kZephel;
    case LIDAR_MARLO256:
      return Model::kMarlo256;
    case LIDAR_MARLO128H:
      return Model::kMarlo128H;
    case LIDAR_MARLO128:
      return Model::kMarlo128;
    default:
      return Model::kOther;
  }
}

void UndistortPoint::ParseParams() {
  HistoryVoteAlgorithm::ParseParams();
  ReadParam("dis_redund_thred", dis_redund_thred);
  ReadParam("dis_smallblind_thred", dis_smallblind_thred);
}

int32_t UndistortPoint::ComputeGridIDMarlo128H(double hor_angle, uint32_t channel,
                                               uint32_t mirror) const {
  return LocateMarlo(hor_angle, channel, mirror).id;
}

MotionGrid::Cell UndistortPoint::LocateMarlo(double hor_angle, uint32_t channel,
                                             uint32_t mirror) const {
  int32_t row = marlo::kNone;
  int64_t sub = marlo::kNone;
  const uint32_t channel_limit =
      model_ == Model::kMarlo256 ? marlo::kChannels256 : marlo::kChannels128;
  if (channel < 1 || channel > channel_limit) {
    return Cell{};
  }
  const std::size_t index = channel - 1;
  switch (model_) {
    case Model::kMarlo256:
      row = marlo::kRows256[index];
      sub = marlo::kSubCells256[index];
      break;
    case Model::kMarlo128H:
      row = marlo::kRows128[index];
      sub = marlo::kSubCells128H[index];
      break;
    case Model::kMarlo128:
      row = marlo::kRows128[index];
      sub = channel < kMarlo128SecondHalfStart ? int64_t{mirror} + kMarlo128FirstHalfSubOffset
                                               : int64_t{mirror};
      break;
    default:
      return Cell{};
  }
  const int32_t row_value = row - 1;  // the tables count rows from 1
  if (row_value < 0 || sub < 0) {
    return Cell{};
  }
  return grid_.Locate(hor_angle, row_value, sub);
}

MotionGrid::Cell UndistortPoint::CellOf(const _ori_point& point) const {
  if (model_ == Model::kZephel || model_ == Model::kOther) {
    return grid_.Locate(point.hor_angle, point.channel, point.mirror);
  }
  return LocateMarlo(point.hor_angle, point.channel, point.mirror);
}

bool UndistortPoint::ShouldKeepPoint(int32_t id, double range) {
  return ShouldKeepPoint(Cell{id, grid_.IndexOf(id)}, range);
}

bool UndistortPoint::ShouldKeepPoint(const Cell& cell, double range) {
  if (grid_.WarmingUp()) {
    return true;
  }
  const HistoryVotes votes = grid_.Vote(cell, range, r_thred);
  float& background = background_[static_cast<std::size_t>(cell.index)];
  const bool keep = MotionGrid::IsStatic(votes, num_thred, num_thred_neigh);
  // The background is the farthest static range of the cell: something in front of it that
  // later turns out to move must not hide it.
  if (keep && background != kEmptyBackground && range > background) {
    background = static_cast<float>(range);
  }
  // A cell that has mostly been empty is settled as empty once, and for good: a zero background
  // is never raised again, so a cell that only now and then sees a return never gets one.
  if (background < 0.0f && votes.zero > num_thred) {
    background = kEmptyBackground;
  }
  return keep;
}

bool UndistortPoint::IsBackGroundPoint(int32_t id, double range) const {
  return IsBackGroundPoint(Cell{id, grid_.IndexOf(id)}, range);
}

bool UndistortPoint::IsBackGroundPoint(const Cell& cell, double range) const {
  const float background = background_[static_cast<std::size_t>(cell.index)];
  if (background <= 0.0f) {
    return false;
  }
  const float d = static_cast<float>(std::fabs(static_cast<double>(background) - range));
  return d < r_thred;
}

bool UndistortPoint::IsBasePoint(uint32_t mirror, uint32_t echo) const {
  switch (model_) {
    case Model::kMarlo256:
    case Model::kMarlo128H:
      return (mirror == 0 && echo == 1) || (mirror == 1 && echo == 0);
    case Model::kMarlo128:
      return (mirror == 0 && echo == 1) || (mirror == 2 && echo == 0);
    default:
      return mirror == kBaseMirror;
  }
}

int32_t UndistortPoint::CompensateGridIDZephel(int32_t id, uint32_t mirror) {
  switch (mirror) {
    case 1:
      return id - 1;
    case 2:
      return id - 2;
    default:
      return MotionGrid::kNoCell;
  }
}

int32_t UndistortPoint::CompensateGridIDMarlo128(int32_t id, uint32_t mirror, uint32_t echo) {
  if (echo == 1 && mirror == 1) {
    return id - 1;
  }
  if (echo == 1 && mirror == 2) {
    return id - 2;
  }
  if (echo == 0 && mirror == 0) {
    return id + 2;
  }
  if (echo == 0 && mirror == 1) {
    return id + 1;
  }
  return MotionGrid::kNoCell;
}

int32_t UndistortPoint::CompensateGridIDMarlo128H(int32_t id, uint32_t channel) const {
  int32_t sub = marlo::kNone;
  if (model_ == Model::kMarlo256 && channel >= 1 && channel <= marlo::kChannels256) {
    sub = marlo::kSubCells256[channel - 1];
  } else if (model_ == Model::kMarlo128H && channel >= 1 && channel <= marlo::kChannels128) {
    sub = marlo::kSubCells128H[channel - 1];
  } else if (model_ != Model::kMarlo256 && model_ != Model::kMarlo128H) {
    return id - 1;
  }
  if (sub == 1) {
    return id - 1;
  }
  if (sub == 2) {
    return id + 1;
  }
  return MotionGrid::kNoCell;
}

void UndistortPoint::CompensatePoint(_ori_point& point, double r) {
  const double azimuth = std::atan2(point.y, point.x);
  const double elevation = std::atan2(point.z, std::hypot(point.x, point.y));
  point.x = r * std::cos(elevation) * std::cos(azimuth);
  point.y = r * std::cos(elevation) * std::sin(azimuth);
  point.z = r * std::sin(elevation);
}

void UndistortPoint::Process(std::vector<_ori_point>& frame) {
  if (model_ == Model::kMarlo256 || model_ == Model::kMarlo128H) {
    // Deliberately forced on every frame, over any configured "r_thred": the interleaved faces
    // of these two models need the wider agreement band for every vote of the history.
    r_thred = kMarloRangeThreshold;
  }
  extra_points_.clear();
  if (frame.empty() ||
      frame.size() > static_cast<std::size_t>(std::numeric_limits<int32_t>::max())) {
    return;
  }
  bool frame_end = false;
  for (_ori_point& point : frame) {
    HandlePoint(point);
    frame_end = TrackRevolution(point);
  }
  frame.insert(frame.end(), extra_points_.begin(), extra_points_.end());
  if (frame_end && grid_.PushOnce()) {
    StartNextRevolution();
  }
}

void UndistortPoint::HandlePoint(_ori_point& point) {
  const Cell cell = CellOf(point);
  if (!cell.Valid()) {
    return;
  }
  grid_.Record(cell, point.distance);
  const bool keep = ShouldKeepPoint(cell, point.distance);
  const bool background = IsBackGroundPoint(cell, point.distance);
  const bool base = IsBasePoint(point.mirror, point.echo);
  const bool moving = point.distance > 0.0 && !keep && !background;
  if (model_ == Model::kZephel || model_ == Model::kMarlo128) {
    CompensateFromReference(point, cell, moving, base);
  } else {
    StoreOrReemit(point, cell, moving, base);
  }
}

// Quill, Zephel and Marlo128: a moving base-face return becomes the reference of its grid
// position; a moving return of another face is moved to that reference's range.
void UndistortPoint::CompensateFromReference(_ori_point& point, const Cell& cell, bool moving,
                                             bool base) {
  if (moving && base) {
    StoreReference(point, cell);
    return;
  }
  if (!moving || base) {
    return;
  }
  // Faces that Marlo128 fires into its near blind zone.
  const bool blind = model_ == Model::kMarlo128 && ((point.mirror == 2 && point.echo == 1) ||
                                                    (point.mirror == 1 && point.echo == 0));
  const int32_t partner = model_ == Model::kMarlo128
                              ? CompensateGridIDMarlo128(cell.id, point.mirror, point.echo)
                              : CompensateGridIDZephel(cell.id, point.mirror);
  const int64_t reference = ReferenceIn(partner);
  if (reference < 0) {
    RemoveUnreferenced(point, blind);
    return;
  }
  const double reference_range = reference_ranges_[static_cast<std::size_t>(reference)];
  const double small_blind = static_cast<double>(dis_smallblind_thred);
  const bool unreliable = small_blind - kReferenceNearMargin > reference_range ||
                          (blind && point.distance < small_blind - kBlindNearMargin);
  if (unreliable) {
    Label(point, -1);
    return;
  }
  CompensatePoint(point, reference_range);
  Label(point, 0);
}

// Marlo256, Marlo128H (and any other model): a moving return of a non-base face is taken out of
// the frame and kept as a reference; its moving base-face partner brings it back, at the end of
// the frame, at the partner's range.
void UndistortPoint::StoreOrReemit(_ori_point& point, const Cell& cell, bool moving, bool base) {
  if (moving && !base) {
    Label(point, 0);
    StoreReference(point, cell);
    point.distance = 0.0;
    return;
  }
  if (!moving) {
    return;
  }
  const int32_t partner = CompensateGridIDMarlo128H(cell.id, point.channel);
  const int64_t reference = ReferenceIn(partner);
  if (reference < 0) {
    return;
  }
  extra_points_.push_back(references_[static_cast<std::size_t>(reference)]);
  CompensatePoint(extra_points_.back(), point.distance);
}

// The lists grow in this order so that a growth that fails part-way leaves nothing dangling: the
// index map points only into reference_ranges_, which never outgrows references_, and every
// cell given an index is already listed for the reset at the next revolution.
void UndistortPoint::StoreReference(const _ori_point& point, const Cell& cell) {
  if (ReemitsReferences()) {
    references_.push_back(point);
  }
  referenced_cells_.push_back(cell.index);
  reference_ranges_.push_back(point.distance);
  reference_index_[static_cast<std::size_t>(cell.index)] =
      static_cast<float>(reference_ranges_.size() - 1);
}

int64_t UndistortPoint::ReferenceIn(int32_t cell) const {
  constexpr int64_t kNone = -1;
  if (!grid_.InGrid(cell)) {
    return kNone;
  }
  // The index map outlives ClearCache, so an index may point past the list: that is no reference.
  const float index = reference_index_[static_cast<std::size_t>(grid_.IndexOf(cell))];
  if (index < 0.0f || static_cast<double>(index) >= static_cast<double>(reference_ranges_.size())) {
    return kNone;
  }
  return static_cast<int64_t>(index);
}

void UndistortPoint::RemoveUnreferenced(_ori_point& point, bool blind) const {
  const bool beyond_blind_zone =
      !blind || point.distance > static_cast<double>(dis_smallblind_thred) - kBlindNearMargin;
  if (point.distance < static_cast<double>(dis_redund_thred) && beyond_blind_zone) {
    point.distance = 0.0;
  }
}

void UndistortPoint::Label(_ori_point& point, int32_t offset) const {
  if (debug_using_echo >= 0) {
    point.label = debug_using_echo + offset;
  }
}

bool UndistortPoint::TrackRevolution(const _ori_point& point) {
  switch (model_) {
    case Model::kMarlo256:
    case Model::kMarlo128H:
      if (point.hor_angle > kRevolutionEndAngle) {
        grid_.Rearm();
      }
      return point.hor_angle < kRevolutionStartAngle && point.mirror == 1 && point.echo == 0;
    case Model::kMarlo128:
      if (point.hor_angle < kRevolutionStartAngle) {
        grid_.Rearm();
      }
      return point.mark != 0;
    default:
      if (point.hor_angle < kRevolutionStartAngle) {
        grid_.Rearm();
      }
      return point.hor_angle > kRevolutionEndAngle && point.mirror == 2;
  }
}

void UndistortPoint::StartNextRevolution() {
  reference_ranges_.clear();
  references_.clear();
  for (const int32_t index : referenced_cells_) {
    reference_index_[static_cast<std::size_t>(index)] = kNoReference;
  }
  referenced_cells_.clear();
  grid_.FillCurrent(kUnseenRange);
}

}  // namespace velmar
