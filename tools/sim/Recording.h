// Recordings on disk. A recording is a folder holding `recording.json` (model, frame count,
// packet size, scene and noise settings, seed, frame file names) and one binary PCD (v0.7) file
// per frame. Each PCD point carries every byte of the point record, reserved bytes included, so
// a frame read back is identical to the frame written. PCL reads them as generic clouds and
// Open3D's tensor reader with every scalar field; docs/simulator.md says which readers fall short.
//
// Reading and writing go frame by frame. Every problem (missing or malformed file, truncated
// data, a header that does not describe the point record) throws RecordingError with a message
// that starts with the path of the file concerned.
#ifndef VELMAR_TOOLS_SIM_RECORDING_H
#define VELMAR_TOOLS_SIM_RECORDING_H

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/Settings.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace sim {

class RecordingError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct RecordingInfo {
  std::string model;          // text name of the sensor model
  uint32_t lidarType = 0;     // its LidarType value
  uint32_t packetPoints = 0;  // points per packet when frames are fed packet by packet
  uint32_t frames = 0;        // number of frame files (kept up to date by the writer)
  SceneSettings scene;
  NoiseSettings noise;
  uint64_t seed = 0;
  // Free-form text values (for instance the configuration a processed recording went through).
  std::map<std::string, std::string> attributes;
};

// Writes a recording folder. The folder is created if needed; recording.json is written when the
// writer is closed (or destroyed other than by an exception), listing the frames written, so a
// folder whose writing stopped part-way has no index and is never taken for a recording.
class RecordingWriter {
 public:
  RecordingWriter(const std::string& folder, const RecordingInfo& info);
  ~RecordingWriter();
  RecordingWriter(const RecordingWriter&) = delete;
  RecordingWriter& operator=(const RecordingWriter&) = delete;

  void WriteFrame(const std::vector<_ori_point>& frame);
  // Writes recording.json. Further WriteFrame calls are errors.
  void Close();
  const std::string& Folder() const { return folder_; }

 private:
  std::string folder_;
  RecordingInfo info_;
  bool closed_ = false;
};

// A folder written under a temporary name beside its destination ("<destination>.partial-XXXXXX")
// and renamed into place once complete, so that the destination is only ever absent, the previous
// folder, or the new one whole. What writes a recording from the command line (run, simulate,
// import) writes into Path() and calls Commit() at the end. A staged folder that is not committed
// is removed with its contents when the object goes (an error, an exception); one left behind by
// a killed process keeps its ".partial-" name and has no index. The destination may be absent,
// an empty folder or a recording folder, which Commit replaces; anything else there is refused
// before any writing starts.
class StagedFolder {
 public:
  explicit StagedFolder(const std::string& destination);
  ~StagedFolder();
  StagedFolder(const StagedFolder&) = delete;
  StagedFolder& operator=(const StagedFolder&) = delete;

  const std::string& Path() const { return staging_; }
  // Moves the staged folder to the destination, replacing what a previous run left there.
  void Commit();

 private:
  std::string destination_;
  std::string staging_;
  bool committed_ = false;
};

// Reads a recording folder; recording.json is parsed and checked when the reader is created.
class RecordingReader {
 public:
  explicit RecordingReader(const std::string& folder);

  const RecordingInfo& Info() const { return info_; }
  uint32_t FrameCount() const { return info_.frames; }
  // Path of the PCD file of frame `index`.
  std::string FramePath(uint32_t index) const;
  // Reads frame `index` into `frame` (resized to the file's point count).
  void ReadFrame(uint32_t index, std::vector<_ori_point>& frame) const;
  // Reads the next frame; false once every frame has been read.
  bool NextFrame(std::vector<_ori_point>& frame);
  void Rewind() { next_ = 0; }

 private:
  std::string folder_;
  RecordingInfo info_;
  uint32_t next_ = 0;
};

// `what` with the system's reason for the failed write (errno, cleared before writing), e.g.
// "write failed (No space left on device)".
std::string WriteProblem(const char* what);

// Name of the PCD file of frame `index` inside a recording folder ("frame_000042.pcd").
std::string FrameFileName(uint32_t index);

// One frame as a binary PCD v0.7 file.
void WritePcd(const std::string& path, const std::vector<_ori_point>& frame);
void ReadPcd(const std::string& path, std::vector<_ori_point>& frame);

}  // namespace sim
}  // namespace velmar

#endif  // VELMAR_TOOLS_SIM_RECORDING_H
