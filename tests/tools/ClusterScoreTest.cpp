// Clusters written into aux_value scored against the objects of the truth.
#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "CliTestSupport.h"
#include "ClusterScore.h"

namespace velmar {
namespace clitest {
namespace {

using sim::TruthKind;

struct Scored {
  std::vector<_ori_point> input;
  std::vector<_ori_point> output;
  // `count` returns of `object` at `range`; `removed` of them gone in the output, the others in
  // `cluster` (the first `split` of those in `cluster` + 1).
  void Add(uint32_t object, double range, int count, uint32_t cluster, int removed = 0,
           int split = 0, TruthKind kind = TruthKind::kReal) {
    for (int i = 0; i < count; ++i) {
      _ori_point p = TruthPoint(kind, range, 20.0);
      p.reserved_a = sim::EncodeTruth(kind, object);
      input.push_back(p);
      p.aux_value = i < split ? cluster + 1 : cluster;
      if (i >= count - removed) {
        p.distance = 0.0;
      }
      output.push_back(p);
    }
  }
  tools::ClusterScore Score() const {
    std::vector<int64_t> same(input.size());
    std::iota(same.begin(), same.end(), 0);
    tools::ClusterScore score;
    tools::ScoreClusters(input, output, same, score);
    return score;
  }
};

TEST(ClusterScoreTest, AnObjectIsFoundOnlyWhenOneClusterCoversItAlone) {
  Scored frame;
  frame.Add(1, 10.0, 20, 5);                            // one cluster: found
  frame.Add(2, 12.0, 20, 6, 0, 10);                     // split in halves
  frame.Add(3, 14.0, 20, 8);                            // shares its cluster with ground
  frame.Add(0, 14.0, 10, 8, 0, 0, TruthKind::kGround);  //   (IoU 2/3)
  frame.Add(4, 60.0, 20, 9);                            // beyond the scored range
  frame.Add(5, 16.0, 10, 10, 2);                        // lost 2 of 10 (IoU 0.8)
  frame.Add(6, 18.0, 10, 11, 10);                       // lost all
  const tools::ClusterScore score = frame.Score();
  EXPECT_EQ(score.frames, 1u);
  EXPECT_EQ(score.objects, 5u);
  EXPECT_EQ(score.matched, 1u);
  EXPECT_EQ(score.objectsSeen, 6u);
  EXPECT_EQ(score.objectsDamaged, 2u);
  EXPECT_EQ(score.objectsRemoved, 1u);
  EXPECT_EQ(score.clusters, 6u);  // 5, 6, 7, 8, 9, 10

  Scored unclustered;  // no cluster numbers: the frame is not scored
  unclustered.Add(1, 10.0, 20, 0);
  EXPECT_EQ(unclustered.Score().frames, 0u);
}

}  // namespace
}  // namespace clitest
}  // namespace velmar
