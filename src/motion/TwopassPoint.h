// Two-pass clustering of the range image: neighbouring returns of one surface are joined into
// clusters (connected-component labelling with provisional labels and an equivalence table,
// then resolution); clusters smaller than a configured size are noise and are removed. Returns
// lying on the ground are left out, so that objects standing on it stay apart.
#ifndef VELMAR_MOTION_TWOPASS_POINT_H
#define VELMAR_MOTION_TWOPASS_POINT_H

#include <vector>

#include "framework/RangeImageAlgorithm.h"

namespace velmar {

class TwopassPoint : public RangeImageAlgorithm {
 public:
  using RangeImageAlgorithm::RangeImageAlgorithm;

  void Process(std::vector<_ori_point>& frame) override;
  void ParseParams() override;
  void ClearCache() override;

  double join_angle = 10.0;           // degrees between a beam and the step to its neighbour
  double same_direction_gap = 1.0;    // metres between returns of one direction that join
  int32_t min_points = 3;             // smaller clusters are noise
  double noise_range = 30.0;          // metres; clusters wholly beyond are kept whatever their size
  double ground_angle = 10.0;         // degrees; steps flatter than this continue the ground
  double ground_seed_depth = 1.0;     // metres below the sensor where a column's ground may start
  double sweep_gap = 0.005;           // seconds: returns further apart belong to other sweeps
  int32_t write_cluster = 0;          // 1: the cluster number goes into aux_value
  int32_t max_frame_points = 600000;  // capacity for a frame held back from packets

 private:
  static constexpr int32_t kGround = -2;
  static constexpr int32_t kUnlabelled = -1;

  void Cluster(std::vector<_ori_point>& points, std::size_t begin, std::size_t end);
  void MarkGround();
  void LabelProvisionally();
  void JoinAcrossTurn();
  void Resolve(std::vector<_ori_point>& points);
  bool Joins(const ImageReturn& a, const ImageReturn& b, float separation) const;
  void Visit(int32_t self, int32_t cell, float separation);
  int32_t Find(int32_t label);
  void Union(int32_t a, int32_t b);
  void Withhold(std::vector<_ori_point>& frame, std::size_t begin, std::size_t end);
  std::size_t HandBack(std::vector<_ori_point>& frame, std::size_t at);

  double tan_join_ = 0.0;
  double tan_ground_ = 0.0;
  std::vector<int32_t> label_;    // per return: provisional label, kGround or kUnlabelled
  std::vector<int32_t> parent_;   // equivalence table of provisional labels
  std::vector<uint32_t> size_;    // returns per resolved label
  std::vector<float> nearest_;    // range of the nearest return per resolved label
  std::vector<uint32_t> number_;  // cluster number per resolved label, 0 before numbering
  std::vector<_ori_point> held_;  // returns of a frame arriving in packets
};

}  // namespace velmar

#endif  // VELMAR_MOTION_TWOPASS_POINT_H
