// Deskew to the frame's end with a configured velocity, checked against the platform's poses,
// and the velocity estimated from synthetic spinning scans: recovered in a room, refused in scenes
// that do not show it.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "framework/AlgoCommon.h"
#include "motion/UndistortPointMove.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

constexpr double kFrame = 0.1;  // seconds, every supported model
constexpr double kFace = kFrame / 3.0;
constexpr double kColumn = kFace / 724.0;

struct Drive {
  double speed;    // m/s forward
  double yawRate;  // degrees per second
};

// The platform's pose at time t of a drive that starts at the origin heading along y.
struct Pose {
  double x, y, heading;
};
Pose PoseAt(const Drive& d, double t) {
  const double w = d.yawRate * kDegToRad;
  if (w == 0.0) {
    return {0.0, d.speed * t, 0.0};
  }
  const double heading = w * t;
  return {d.speed / w * (std::cos(heading) - 1.0), d.speed / w * std::sin(heading), heading};
}

// Where a point seen at time t is seen from the pose at time `end`.
_ori_point SeenAt(const Drive& d, _ori_point p, double t, double end) {
  const Pose a = PoseAt(d, t);
  const Pose b = PoseAt(d, end);
  const double wx = a.x + std::cos(a.heading) * p.x - std::sin(a.heading) * p.y;
  const double wy = a.y + std::sin(a.heading) * p.x + std::cos(a.heading) * p.y;
  p.x = std::cos(b.heading) * (wx - b.x) + std::sin(b.heading) * (wy - b.y);
  p.y = -std::sin(b.heading) * (wx - b.x) + std::cos(b.heading) * (wy - b.y);
  return p;
}

std::string KnownMotion(const Drive& d) {
  return R"({"estimate_motion": 0, "forward_speed": )" + std::to_string(d.speed) +
         R"(, "yaw_rate": )" + std::to_string(d.yawRate) + "}";
}

// A Marlo128 return of sweep column `column` (0..723) seen in time slot `slot` by bank A (echo
// 1, face = slot) or bank B (echo 0, one face behind), and the time the sensor saw it.
_ori_point Marlo128Return(uint32_t column, uint32_t slot, bool bankB, double& seconds) {
  _ori_point p = test::Ret(20.0).Channel(bankB ? 70 : 5).Angle(30.0 + (column - 1.5) * 0.167);
  p.x = 12.0;
  p.y = -7.0 + column * 0.01;
  p.z = 1.5;
  p.mirror = bankB ? (slot + 2) % 3 : slot;
  p.echo = bankB ? 0 : 1;
  seconds = slot * kFace + column * kColumn;
  return p;
}

TEST(UndistortPointMove, KnownMotionMovesEachReturnToWhereTheFrameEndSeesIt) {
  for (const Drive& drive : {Drive{10.0, 0.0}, Drive{10.0, 30.0}, Drive{-5.0, -20.0}}) {
    auto algo = test::MakeAlgo(34, LIDAR_MARLO128, KnownMotion(drive));
    std::vector<_ori_point> frame;
    std::vector<double> times;
    for (uint32_t slot = 0; slot < 3; ++slot) {
      for (uint32_t column : {0u, 361u, 723u}) {
        for (bool bankB : {false, true}) {
          double t = 0.0;
          frame.push_back(Marlo128Return(column, slot, bankB, t));
          times.push_back(t);
        }
      }
    }
    const std::vector<_ori_point> input = frame;
    algo->Process(frame);
    for (std::size_t i = 0; i < frame.size(); ++i) {
      const _ori_point expected = SeenAt(drive, input[i], times[i], kFrame);
      EXPECT_NEAR(frame[i].x, expected.x, 1e-9) << drive.speed << " " << i;
      EXPECT_NEAR(frame[i].y, expected.y, 1e-9) << drive.speed << " " << i;
      EXPECT_EQ(frame[i].z, input[i].z);
      // Only the position moves: range, angle and every other field stay as measured.
      _ori_point restored = frame[i];
      restored.x = input[i].x;
      restored.y = input[i].y;
      EXPECT_TRUE(test::SameBytes({restored}, {input[i]}));
    }
  }
}

TEST(UndistortPointMove, TheReferenceIsTheFrameEndOnMirrorAndSpinningModels) {
  const Drive drive{10.0, 0.0};
  double t = 0.0;
  std::vector<_ori_point> mirror{Marlo128Return(0, 0, false, t), Marlo128Return(0, 0, true, t),
                                 Marlo128Return(723, 2, false, t)};
  test::MakeAlgo(34, LIDAR_MARLO128, KnownMotion(drive))->Process(mirror);
  // The first column of the first slot, on both banks, is a whole frame of travel behind.
  EXPECT_NEAR(mirror[0].y, -7.0 - drive.speed * kFrame, 1e-9);
  EXPECT_NEAR(mirror[1].y, -7.0 - drive.speed * kFrame, 1e-9);
  // The last column of the last slot, one column before the end.
  EXPECT_NEAR(mirror[2].y, -7.0 + 7.23 - drive.speed * kColumn, 1e-9);

  _ori_point first = test::Ret(20.0).Angle(0.1);
  _ori_point last = test::Ret(20.0).Angle(359.9);
  std::vector<_ori_point> spin{first, last};
  test::MakeAlgo(34, LIDAR_ORVIK16, KnownMotion(drive))->Process(spin);
  EXPECT_NEAR(spin[0].y, first.y - drive.speed * kFrame, 1e-9);
  EXPECT_NEAR(spin[1].y, last.y - drive.speed * kFrame / 1800.0, 1e-9);
}

TEST(UndistortPointMove, StandingStillBadParametersAndUnknownModelsLeaveFramesAlone) {
  double t = 0.0;
  const std::vector<_ori_point> input{Marlo128Return(5, 1, false, t), test::Ret(0.0).Angle(40)};
  struct Case {
    LidarType type;
    const char* params;
    const char* message;
  };
  const Case cases[] = {
      {LIDAR_MARLO128, R"({"estimate_motion": 0})", ""},
      {LIDAR_MARLO128, R"({"estimate_motion": 0, "forward_speed": 1e9})",
       "[algo]:UndistortPointMove forward_speed is not in the correct range!\n"},
      {LIDAR_MARLO128, R"({"estimate_motion": 0, "yaw_rate": -400, "max_samples": 1e12})",
       "[algo]:UndistortPointMove yaw_rate is not in the correct range!\n"
       "[algo]:UndistortPointMove max_samples is not in the correct range!\n"},
      {LIDAR_MARLO128, R"({"deskew": 0, "estimate_motion": 0, "forward_speed": 10})", ""},
      {LIDAR_KR360, R"({"estimate_motion": 0, "forward_speed": 10})", ""},
  };
  for (const Case& c : cases) {
    std::string output;
    auto algo = test::MakeAlgo(34, c.type, c.params, &output);
    EXPECT_EQ(output, c.message) << c.params;
    std::vector<_ori_point> frame = input;
    algo->Process(frame);
    EXPECT_TRUE(test::SameBytes(frame, input)) << c.params;
  }
  EXPECT_FALSE(test::MakeAlgo(34, LIDAR_KR360)->IsSupported("KR360"));
  EXPECT_TRUE(test::MakeAlgo(34, LIDAR_ZEPHEL_T)->IsSupported("ZephelT"));

  // A value no JSON can hold, set the way a host's tool might.
  auto algo = test::MakeAlgoAs<UndistortPointMove>(34, LIDAR_MARLO128, R"({"estimate_motion": 0})");
  algo->num_params["forward_speed"] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(test::CaptureOutput([&] { algo->ParseParams(); }),
            "[algo]:UndistortPointMove forward_speed is not in the correct range!\n");
  EXPECT_TRUE(algo->Motion().IsZero());
}

TEST(UndistortPointMove, TheFaceShiftOfTheMirrorCompensationIsTakenBackNotCorrectedTwice) {
  const std::string deskew = test::EntryJson(34, "deskew", KnownMotion({10.0, 0.0}));
  const std::string turn = test::EntryJson(31, "turn", R"({"transformRotateZ": 90})");
  const std::string shift = test::EntryJson(6, "shift", R"({"speed": 36})");
  _ori_point p = test::Ret(20.0).Angle(60.0).Face(2, 0);
  std::string output;
  std::vector<_ori_point> alone{p};
  test::CreatePipeline(LIDAR_MARLO192, test::ConfigJson(turn + "," + deskew), &output)
      ->Process(alone);
  std::vector<_ori_point> both{p};
  test::CreatePipeline(LIDAR_MARLO192, test::ConfigJson(turn + "," + deskew + "," + shift), &output)
      ->Process(both);
  EXPECT_NEAR(both[0].x, alone[0].x, 1e-9);
  EXPECT_NEAR(both[0].y, alone[0].y, 1e-9);
  EXPECT_NEAR(both[0].z, alone[0].z, 1e-9);
  // The shift itself is there when nothing deskews.
  std::vector<_ori_point> shifted{p};
  test::CreatePipeline(LIDAR_MARLO192, test::ConfigJson(turn + "," + shift), &output)
      ->Process(shifted);
  EXPECT_NEAR(shifted[0].x, -(p.y + 2.0 * 10.0 * kFace), 1e-5);
}

// Spinning scans of a synthetic scene made of boxes seen from inside (the room) or outside
// (pillars), taken from a platform that moves during each sweep, the way Orvik16 sweeps.
class SpinScanner {
 public:
  struct Box {
    double min[3], max[3];
  };
  SpinScanner(std::vector<Box> room, std::vector<Box> pillars, Drive drive)
      : room_(std::move(room)), pillars_(std::move(pillars)), drive_(drive) {}

  std::vector<_ori_point> Frame(uint32_t index) const {
    constexpr int kColumns = 1800;
    constexpr int kChannels = 32;
    std::vector<_ori_point> frame;
    for (int c = 0; c < kColumns; ++c) {
      const double angle = 0.1 + 0.2 * c;
      const double t = index * kFrame + c * kFrame / kColumns;
      const Pose pose = PoseAt(drive_, t);
      for (int ch = 0; ch < kChannels; ++ch) {
        const double elevation = (-25.0 + ch) * kDegToRad;
        const double d[3] = {std::cos(elevation) * std::cos(angle * kDegToRad),
                             std::cos(elevation) * std::sin(angle * kDegToRad),
                             std::sin(elevation)};
        const double world[3] = {std::cos(pose.heading) * d[0] - std::sin(pose.heading) * d[1],
                                 std::sin(pose.heading) * d[0] + std::cos(pose.heading) * d[1],
                                 d[2]};
        const double range = Cast({pose.x, pose.y, 0.0}, world);
        _ori_point p = test::MakePoint(range);
        if (range > 0.0) {
          p.x = range * d[0];
          p.y = range * d[1];
          p.z = range * d[2];
        }
        p.hor_angle = angle;
        p.channel = static_cast<uint32_t>(ch + 1);
        frame.push_back(p);
      }
    }
    frame.back().mark = 1;
    return frame;
  }

 private:
  double Cast(const std::array<double, 3>& o, const double* d) const {
    double best = std::numeric_limits<double>::infinity();
    for (const Box& b : room_) {  // leaving the inside of a box
      double exit = std::numeric_limits<double>::infinity();
      for (int a = 0; a < 3; ++a) {
        if (d[a] > 1e-12)
          exit = std::min(exit, (b.max[a] - o[a]) / d[a]);
        if (d[a] < -1e-12)
          exit = std::min(exit, (b.min[a] - o[a]) / d[a]);
      }
      best = std::min(best, exit);
    }
    for (const Box& b : pillars_) {  // entering a box from outside
      double near = 0.0;
      double far = std::numeric_limits<double>::infinity();
      for (int a = 0; a < 3; ++a) {
        if (std::fabs(d[a]) < 1e-12) {
          if (o[a] < b.min[a] || o[a] > b.max[a])
            far = -1.0;
          continue;
        }
        double t1 = (b.min[a] - o[a]) / d[a];
        double t2 = (b.max[a] - o[a]) / d[a];
        near = std::max(near, std::min(t1, t2));
        far = std::min(far, std::max(t1, t2));
      }
      if (near <= far && near > 0.0)
        best = std::min(best, near);
    }
    return best < 100.0 ? best : 0.0;
  }

  std::vector<Box> room_;
  std::vector<Box> pillars_;
  Drive drive_;
};

const std::vector<SpinScanner::Box> kRoom = {{{-12.0, -30.0, -1.8}, {12.0, 70.0, 6.0}}};
const std::vector<SpinScanner::Box> kPillars = {{{-6.0, 10.0, -1.8}, {-5.0, 11.0, 6.0}},
                                                {{4.0, 22.0, -1.8}, {6.0, 23.0, 6.0}},
                                                {{-3.0, -12.0, -1.8}, {-2.0, -9.0, 6.0}}};

// Runs `frames` frames of `scanner` through id 34 with estimation, and what it printed.
std::string RunEstimator(UndistortPointMove& algo, const SpinScanner& scanner, uint32_t first,
                         uint32_t frames, bool* unchanged = nullptr) {
  return test::CaptureOutput([&] {
    for (uint32_t k = first; k < first + frames; ++k) {
      const std::vector<_ori_point> input = scanner.Frame(k);
      std::vector<_ori_point> frame = input;
      algo.Process(frame);
      if (unchanged != nullptr) {
        *unchanged = test::SameBytes(frame, input);
      }
    }
  });
}

TEST(UndistortPointMove, EstimatorRecoversTheMotionAndClearCacheForgetsIt) {
  const Drive drive{8.0, 25.0};
  const SpinScanner room(kRoom, kPillars, drive);
  auto algo = test::MakeAlgoAs<UndistortPointMove>(34, LIDAR_ORVIK16);
  bool unchanged = false;
  EXPECT_EQ(RunEstimator(*algo, room, 0, 1, &unchanged), "");
  EXPECT_TRUE(unchanged);  // the first frame has nothing to be registered against
  EXPECT_FALSE(algo->HasMotion());
  EXPECT_EQ(RunEstimator(*algo, room, 1, 2), "");
  ASSERT_TRUE(algo->HasMotion());
  EXPECT_NEAR(algo->Motion().linear.y(), drive.speed, 0.05);
  EXPECT_NEAR(algo->Motion().linear.x(), 0.0, 0.05);
  EXPECT_NEAR(algo->Motion().angular.z() / kDegToRad, drive.yawRate, 0.5);
  RunEstimator(*algo, room, 3, 1, &unchanged);
  EXPECT_FALSE(unchanged);
  algo->ClearCache();
  EXPECT_FALSE(algo->HasMotion());
  RunEstimator(*algo, room, 4, 1, &unchanged);
  EXPECT_TRUE(unchanged);
}

TEST(UndistortPointMove, EstimatorFallsBackOnScenesThatDoNotShowTheMotion) {
  const Drive drive{8.0, 0.0};
  const std::vector<SpinScanner::Box> corridor = {{{-5.0, -1e4, -1.8}, {5.0, 1e4, 3.0}}};
  const std::vector<SpinScanner::Box> plane = {{{-1e4, -1e4, -1.8}, {1e4, 1e4, 1e4}}};
  struct Case {
    const char* scene;
    SpinScanner scanner;
  };
  const Case cases[] = {{"empty", SpinScanner({}, {}, drive)},
                        {"plane", SpinScanner(plane, {}, drive)},
                        {"corridor", SpinScanner(corridor, {}, drive)}};
  for (const Case& c : cases) {
    auto algo = test::MakeAlgoAs<UndistortPointMove>(34, LIDAR_ORVIK16);
    bool unchanged = false;
    const std::string output = RunEstimator(*algo, c.scanner, 0, 4, &unchanged);
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 1) << c.scene << ": " << output;
    EXPECT_EQ(output.rfind("[algo]:UndistortPointMove motion estimate failed (", 0), 0u) << c.scene;
    EXPECT_FALSE(algo->HasMotion()) << c.scene;
    EXPECT_TRUE(unchanged) << c.scene;
  }

  // A known motion, then a corridor: along it the speed is held, not drifted, and that is said
  // once. (The cut from room to corridor itself is no scene a platform meets.)
  auto algo = test::MakeAlgoAs<UndistortPointMove>(34, LIDAR_ORVIK16);
  RunEstimator(*algo, SpinScanner(kRoom, kPillars, drive), 0, 3);
  ASSERT_TRUE(algo->HasMotion());
  std::string output = RunEstimator(*algo, cases[2].scanner, 3, 1);
  const double held = algo->Motion().linear.y();
  output += RunEstimator(*algo, cases[2].scanner, 4, 3);
  EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 1) << output;
  EXPECT_EQ(algo->LastRegistration().status, RegistrationStatus::kDegenerate);
  EXPECT_EQ(algo->LastRegistration().degenerate_axes & kAxisForward, kAxisForward);
  EXPECT_NEAR(algo->Motion().linear.y(), held, 1e-3);
}

// A speed configured with estimation on is the estimate's start: along a corridor, which cannot
// show the speed, it is held; where the scene shows the speed, the registration corrects it.
TEST(UndistortPointMove, AConfiguredSpeedStartsTheEstimation) {
  const Drive drive{8.0, 0.0};
  const SpinScanner corridor({{{-5.0, -1e4, -1.8}, {5.0, 1e4, 3.0}}}, {}, drive);
  auto algo = test::MakeAlgoAs<UndistortPointMove>(34, LIDAR_ORVIK16, R"({"forward_speed": 8})");
  std::string output = RunEstimator(*algo, corridor, 0, 3);
  ASSERT_TRUE(algo->HasMotion()) << output;
  EXPECT_EQ(algo->LastRegistration().degenerate_axes & kAxisForward, kAxisForward);
  EXPECT_NEAR(algo->Motion().linear.y(), drive.speed, 1e-3);
  EXPECT_EQ(output.rfind("[algo]:UndistortPointMove registration is degenerate along forward", 0),
            0u)
      << output;

  // In a room that shows the speed, a start 1 m/s off is corrected by the registration.
  auto near = test::MakeAlgoAs<UndistortPointMove>(34, LIDAR_ORVIK16, R"({"forward_speed": 9})");
  output = RunEstimator(*near, SpinScanner(kRoom, kPillars, drive), 0, 3);
  ASSERT_TRUE(near->HasMotion()) << output;
  EXPECT_NEAR(near->Motion().linear.y(), drive.speed, 0.05);
}

}  // namespace
}  // namespace velmar
