// What the analysis subcommands share: their error type, the guard that turns an error into one
// line and an exit status, and the checks on models and recordings that every one of them makes.
#ifndef VELMAR_TOOLS_VELMAR_ALGO_COMMAND_SUPPORT_H
#define VELMAR_TOOLS_VELMAR_ALGO_COMMAND_SUPPORT_H

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "FrameFeeder.h"
#include "sim/Recording.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace tools {

// Exit statuses of the subcommands. CLI11 keeps its own codes for malformed command lines.
constexpr int kExitFailure = 1;   // a missing or unreadable input, a refused configuration
constexpr int kExitMismatch = 2;  // an unknown model, or a recording of another model

// A problem the user can fix; its message is printed as it stands, on one line.
class CommandError : public std::runtime_error {
 public:
  explicit CommandError(const std::string& message, int status = kExitFailure)
      : std::runtime_error(message), status_(status) {}
  int Status() const { return status_; }

 private:
  int status_;
};

// Runs a subcommand's body. Any error becomes one line "velmar-algo <command>: <message>" on
// standard error and a CLI::RuntimeError carrying the exit status, which CLI11 turns into the
// process's status without printing anything more.
void RunGuarded(const std::string& command, const std::function<void()>& body);

// The model of a text name ("Marlo128"); CommandError naming the known models otherwise.
LidarType ParseModel(const std::string& name);

// Opens a recording; a missing folder or a malformed recording.json becomes a CommandError.
std::unique_ptr<sim::RecordingReader> OpenRecording(const std::string& folder);

// CommandError when the recording was made by another model than the one asked for.
void CheckRecordingModel(const sim::RecordingReader& reader, const std::string& folder,
                         LidarType model);

// Feeds the first `frameCount` frames of a recording (all when it is larger than the recording)
// through `processor`, `packetPoints` at a time (0 for whole frames), drawing progress on a
// terminal, and hands every frame to `sink`.
void FeedRecording(sim::RecordingReader& reader, const UnitProcessor& processor,
                   uint32_t packetPoints, uint32_t frameCount, const FrameFeeder::FrameSink& sink,
                   const std::string& progressLabel);

// True when standard error is a terminal, so that progress is worth drawing.
bool ProgressWanted();
// Draws "label [#####     ] done/total" on standard error, in place.
void DrawProgress(const std::string& label, uint32_t done, uint32_t total);
void EndProgress();

}  // namespace tools
}  // namespace velmar

#endif  // VELMAR_TOOLS_VELMAR_ALGO_COMMAND_SUPPORT_H
