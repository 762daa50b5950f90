// peers_interop: do PCL and Open3D read the recordings our simulator writes, and read them right?
// Writes a simulated Marlo128 frame (reserved bytes filled with a pattern, so that byte arrays
// are checked too) as a recording, reads it back with our reader, then with PCL's
// pcl::io::loadPCDFile and Open3D's readers, and compares every point and field. Prints one line
// per check and what each reader cannot do; exits 1 when a reader that should match does not.
#include <pcl/PCLPointCloud2.h>
#include <pcl/io/pcd_io.h>
#include <pcl/point_types.h>
#include <pcl/register_point_struct.h>

#include <open3d/geometry/PointCloud.h>
#include <open3d/io/PointCloudIO.h>
#include <open3d/t/geometry/PointCloud.h>
#include <open3d/t/io/PointCloudIO.h>

#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "sim/Recording.h"
#include "sim/Simulator.h"
#include "velmar/lidar_algo.h"

// The point record as a PCL point type, field for field; PCL derives names, offsets, types and
// counts from this, independently of our writer.
POINT_CLOUD_REGISTER_POINT_STRUCT(
    velmar::_ori_point,
    (double, x, x)(double, y, y)(double, z, z)(double, intensity, intensity)(
        double, distance, distance)(uint32_t, channel, channel)(uint32_t, reserved_a, reserved_a)(
        double, hor_angle, hor_angle)(double, pulse_width, pulse_width)(int32_t, label, label)(
        uint32_t, mirror, mirror)(uint32_t, echo, echo)(uint32_t, drag_level, drag_level)(
        uint8_t[32], reserved_b, reserved_b)(double, motion_flag,
                                             motion_flag)(uint8_t[8], reserved_c, reserved_c)(
        uint8_t, mark, mark)(uint8_t, aux_flag, aux_flag)(uint8_t[6], reserved_d, reserved_d)(
        int32_t, aux_index, aux_index)(uint32_t, aux_value, aux_value)(uint64_t, timestamp,
                                                                       timestamp))

namespace velmar {
namespace peers {
namespace {

using Records = std::vector<_ori_point>;

class Checks {
 public:
  void Expect(bool ok, const std::string& what) {
    std::cout << (ok ? "ok      " : "FAILED  ") << what << std::endl;
    failures_ += ok ? 0 : 1;
  }
  static void Note(const std::string& what) { std::cout << "note    " << what << std::endl; }
  int Failures() const { return failures_; }

 private:
  int failures_ = 0;
};

const std::vector<pcl::PCLPointField>& RecordFields() {
  static const std::vector<pcl::PCLPointField> fields = pcl::getFields<_ori_point>();
  return fields;
}

bool SameBytes(const void* a, const void* b, std::size_t size) {
  return std::memcmp(a, b, size) == 0;
}

// One frame of a rainy drive, with every reserved byte set to a pattern a reader cannot guess.
Records TestFrame() {
  sim::SimulationSettings settings;
  settings.model = "Marlo128";
  settings.scene.name = "city";
  settings.frames = 1;
  settings.seed = 3;
  settings.noise[sim::NoiseKind::kRain] = 0.1;
  Records frame;
  sim::Simulator(settings).GenerateFrame(0, frame);
  for (std::size_t i = 0; i < frame.size(); ++i) {
    uint8_t* bytes = reinterpret_cast<uint8_t*>(&frame[i]);
    for (const pcl::PCLPointField& field : RecordFields()) {
      if (field.count > 1) {
        for (std::size_t b = 0; b < field.count; ++b) {
          bytes[field.offset + b] = static_cast<uint8_t>(i * 7 + b * 13 + 1);
        }
      }
    }
  }
  return frame;
}

void CheckPclBlob(const std::string& path, const Records& ours, Checks& checks) {
  pcl::PCLPointCloud2 blob;
  checks.Expect(pcl::io::loadPCDFile(path, blob) == 0, "PCL loadPCDFile into pcl::PCLPointCloud2");
  checks.Expect(blob.width * blob.height == ours.size() && blob.point_step == sizeof(_ori_point),
                "PCL: " + std::to_string(blob.width * blob.height) + " points of " +
                    std::to_string(blob.point_step) + " bytes");
  bool sameFields = blob.fields.size() == RecordFields().size();
  for (std::size_t i = 0; sameFields && i < blob.fields.size(); ++i) {
    const pcl::PCLPointField& got = blob.fields[i];
    const pcl::PCLPointField& want = RecordFields()[i];
    sameFields = got.name == want.name && got.offset == want.offset &&
                 got.datatype == want.datatype && got.count == want.count;
  }
  checks.Expect(sameFields, "PCL: " + std::to_string(blob.fields.size()) +
                                " fields with the record's names, offsets, types and counts");
  checks.Expect(blob.data.size() == ours.size() * sizeof(_ori_point) &&
                    SameBytes(blob.data.data(), ours.data(), blob.data.size()),
                "PCL: the data equals our reader's frame byte for byte");
}

void CheckPclTyped(const std::string& path, const Records& ours, Checks& checks) {
  pcl::PointCloud<_ori_point> cloud;
  checks.Expect(pcl::io::loadPCDFile(path, cloud) == 0 && cloud.size() == ours.size() &&
                    SameBytes(cloud.points.data(), ours.data(), ours.size() * sizeof(_ori_point)),
                "PCL loadPCDFile into pcl::PointCloud of the record registered as a point type: "
                "every point equal");

  // PCL's own point types hold 4-byte floats; the file's coordinates are 8-byte doubles.
  pcl::PointCloud<pcl::PointXYZI> xyzi;
  pcl::io::loadPCDFile(path, xyzi);
  std::size_t read = 0;
  std::size_t returns = 0;
  for (std::size_t i = 0; i < ours.size() && i < xyzi.size(); ++i) {
    if (ours[i].distance > 0.0) {
      ++returns;
      read += xyzi[i].x == static_cast<float>(ours[i].x) ? 1 : 0;
    }
  }
  Checks::Note("PCL loadPCDFile into pcl::PointXYZI: " + std::to_string(read) + " of " +
               std::to_string(returns) +
               " returns get their coordinates (PCL matches fields by type too, and x, y, z, "
               "intensity are 8-byte floats in the file)");
}

// Whether the attribute holds, for every point, the bytes of the field's first element.
bool AttributeMatches(const open3d::core::Tensor& values, const Records& ours,
                      const pcl::PCLPointField& field) {
  const std::size_t size = pcl::getFieldSize(field.datatype);
  if (ours.empty() || static_cast<std::size_t>(values.GetDtype().ByteSize()) != size) {
    return false;
  }
  const open3d::core::Tensor column = values.Contiguous();
  const auto* got = static_cast<const uint8_t*>(column.GetDataPtr());
  const std::size_t stride = size * static_cast<std::size_t>(column.NumElements()) / ours.size();
  for (std::size_t i = 0; i < ours.size(); ++i) {
    if (!SameBytes(got + i * stride, reinterpret_cast<const uint8_t*>(&ours[i]) + field.offset,
                   size)) {
      return false;
    }
  }
  return true;
}

void CheckOpen3dTensor(const std::string& path, const Records& ours, Checks& checks) {
  open3d::t::geometry::PointCloud cloud;
  checks.Expect(open3d::t::io::ReadPointCloud(path, cloud), "Open3D t::io::ReadPointCloud");
  const open3d::core::Tensor& positions = cloud.GetPointPositions();
  bool samePositions = positions.GetLength() == static_cast<int64_t>(ours.size()) &&
                       positions.GetDtype() == open3d::core::Float64;
  if (samePositions) {
    const open3d::core::Tensor xyz = positions.Contiguous();
    const double* p = xyz.GetDataPtr<double>();
    for (std::size_t i = 0; samePositions && i < ours.size(); ++i) {
      samePositions =
          p[3 * i] == ours[i].x && p[3 * i + 1] == ours[i].y && p[3 * i + 2] == ours[i].z;
    }
  }
  checks.Expect(samePositions, "Open3D: positions equal x, y, z of every point (Float64)");

  std::string scalars;
  std::string partial;
  for (const pcl::PCLPointField& field : RecordFields()) {
    if (field.name == "x" || field.name == "y" || field.name == "z") {
      continue;
    }
    const bool present = cloud.HasPointAttr(field.name);
    const open3d::core::Tensor values =
        present ? cloud.GetPointAttr(field.name) : open3d::core::Tensor();
    const bool sameSize =
        present && values.NumElements() == static_cast<int64_t>(ours.size() * field.count);
    if (field.count == 1) {
      checks.Expect(sameSize && AttributeMatches(values, ours, field),
                    "Open3D: attribute " + field.name + " equal on every point");
    } else {
      const int64_t kept = present ? values.NumElements() / static_cast<int64_t>(ours.size()) : 0;
      checks.Expect(present && AttributeMatches(values, ours, field),
                    "Open3D: attribute " + field.name + " present, first byte equal");
      if (kept != static_cast<int64_t>(field.count)) {
        partial += (partial.empty() ? "" : ", ") + field.name + " (" + std::to_string(kept) +
                   " of " + std::to_string(field.count) + " bytes)";
      }
    }
  }
  if (!partial.empty()) {
    Checks::Note("Open3D keeps only part of the byte arrays: " + partial);
  }

  open3d::geometry::PointCloud legacy;
  open3d::io::ReadPointCloud(path, legacy);
  std::size_t same = 0;
  for (std::size_t i = 0; i < ours.size() && i < legacy.points_.size(); ++i) {
    same += ours[i].distance > 0.0 && legacy.points_[i].x() == ours[i].x ? 1 : 0;
  }
  Checks::Note("Open3D io::ReadPointCloud (the legacy reader): " +
               std::to_string(legacy.points_.size()) + " points, " + std::to_string(same) +
               " returns with their coordinates (it does not read 8-byte float coordinates)");
}

int Main() {
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("velmar-peers-interop-" + std::to_string(getpid()));
  const Records written = TestFrame();
  {
    sim::RecordingInfo info;
    info.model = "Marlo128";
    info.lidarType = LIDAR_MARLO128;
    info.packetPoints = 128;
    sim::RecordingWriter writer(folder.string(), info);
    writer.WriteFrame(written);
  }
  const sim::RecordingReader reader(folder.string());
  Records ours;
  reader.ReadFrame(0, ours);
  const std::string path = reader.FramePath(0);

  Checks checks;
  checks.Expect(ours.size() == written.size() &&
                    SameBytes(ours.data(), written.data(), ours.size() * sizeof(_ori_point)),
                "our reader: the frame as written, " + std::to_string(ours.size()) + " points");
  CheckPclBlob(path, ours, checks);
  CheckPclTyped(path, ours, checks);
  CheckOpen3dTensor(path, ours, checks);
  std::filesystem::remove_all(folder);
  std::cout << (checks.Failures() == 0
                    ? "interop: every check passed\n"
                    : "interop: " + std::to_string(checks.Failures()) + " check(s) failed\n");
  return checks.Failures() == 0 ? 0 : 1;
}

}  // namespace
}  // namespace peers
}  // namespace velmar

int main() {
  return velmar::peers::Main();
}
