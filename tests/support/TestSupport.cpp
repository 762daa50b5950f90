#include "support/TestSupport.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "framework/AlgoFactory.h"
#include "framework/LidarAlgo.h"

namespace velmar {
namespace test {

_ori_point MakePoint(double distance) {
  _ori_point p;
  std::memset(&p, 0, sizeof(p));
  p.distance = distance;
  return p;
}

_ori_point MakePointXYZ(double x, double y, double z) {
  _ori_point p = MakePoint(0.0);
  p.x = x;
  p.y = y;
  p.z = z;
  return p;
}

std::vector<_ori_point> MakeFrame(std::size_t count, double distance) {
  return std::vector<_ori_point>(count, MakePoint(distance));
}

Ret::Ret(double distance) : p(MakePointXYZ(1.0, 2.0, 3.0)) {
  p.distance = distance;
  p.intensity = 40.0;
}

void ExpectRemovals(const std::vector<RuleCase>& cases, bool clears_measures) {
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const RuleCase& c = cases[i];
    std::vector<_ori_point> frame{c.point};
    MakeAlgo(c.id, c.type, c.params)->Process(frame);
    std::vector<_ori_point> expected{c.point};
    if (c.removed) {
      _ori_point& p = expected[0];
      p.distance = 0.0;
      if (clears_measures) {
        p.x = p.y = p.z = p.intensity = p.pulse_width = 0.0;
      }
    }
    EXPECT_TRUE(SameBytes(frame, expected))
        << "case " << i << ": id " << c.id << " " << c.params << ", range " << c.point.distance
        << (c.removed ? " removed" : " kept");
  }
}

std::vector<double> Ranges(const std::vector<_ori_point>& frame) {
  std::vector<double> ranges;
  for (const _ori_point& p : frame) {
    ranges.push_back(p.distance);
  }
  return ranges;
}

bool SameBytes(const std::vector<_ori_point>& a, const std::vector<_ori_point>& b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(_ori_point)) == 0);
}

std::shared_ptr<AlgoBase> MakeAlgo(int id, LidarType type, const std::string& params,
                                   std::string* output) {
  rapidjson::Document document;
  document.Parse(params.c_str());
  if (document.HasParseError() || !document.IsObject()) {
    ADD_FAILURE() << "test parameters are not a JSON object: " << params;
    return nullptr;
  }
  std::shared_ptr<AlgoBase> algo;
  const std::string printed =
      CaptureOutput([&] { algo = ConfigureAlgo(id, "test", "", type, &document); });
  if (!algo) {
    ADD_FAILURE() << "no algorithm for id " << id;
  }
  if (output != nullptr) {
    *output = printed;
  }
  return algo;
}

std::string CaptureOutput(const std::function<void()>& action) {
  std::cout.flush();
  testing::internal::CaptureStdout();
  action();
  std::cout.flush();
  return testing::internal::GetCapturedStdout();
}

std::string WriteTempFile(const std::string& text) {
  char path[] = "/tmp/velmar_test_XXXXXX";
  const int fd = mkstemp(path);
  if (fd < 0) {
    ADD_FAILURE() << "cannot create a temporary file";
    return std::string();
  }
  close(fd);
  std::ofstream(path, std::ios::binary) << text;
  static std::vector<std::string>* files = [] {
    auto* list = new std::vector<std::string>();
    std::atexit([] {
      for (const std::string& f : *files)
        std::remove(f.c_str());
    });
    return list;
  }();
  files->push_back(path);
  return path;
}

std::string ConfigJson(const std::string& entries, const std::string& root_extra) {
  return "{\"version\": \"" + ILidarAlgo::VersionNumber() + "\"" + root_extra +
         ", \"algo_list\": [" + entries + "]}";
}

std::string EntryJson(int id, const std::string& name, const std::string& params,
                      const std::string& models) {
  return "{\"id\": " + std::to_string(id) + ", \"enabled\": true, \"name\": \"" + name +
         "\", \"desc\": \"\", \"lidar_type\": [" + models + "], \"param\": " + params + "}";
}

std::unique_ptr<ILidarAlgo> CreatePipeline(LidarType type, const std::string& json,
                                           std::string* output) {
  const std::string path = WriteTempFile(json);
  std::unique_ptr<ILidarAlgo> pipeline;
  const std::string printed = CaptureOutput([&] { pipeline = ILidarAlgo::Create(type, path); });
  if (output != nullptr) {
    *output = printed;
  }
  return pipeline;
}

}  // namespace test
}  // namespace velmar
