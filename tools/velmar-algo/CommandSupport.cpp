#include "CommandSupport.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <utility>

#include "framework/about.h"

namespace velmar {
namespace tools {
namespace {

constexpr int kFirstModel = 0;
constexpr int kProgressWidth = 30;

std::string KnownModels() {
  std::string names;
  for (int type = kFirstModel; type < kLidarTypeCount; ++type) {
    names += (names.empty() ? "" : ", ") + LidarTypeToStr(type);
  }
  return names;
}

}  // namespace

void RunGuarded(const std::string& command, const std::function<void()>& body) {
  int status = 0;
  std::string message;
  try {
    body();
    return;
  } catch (const CommandError& error) {
    status = error.Status();
    message = error.what();
  } catch (const sim::RecordingError& error) {
    status = kExitFailure;
    message = error.what();
  } catch (const std::bad_alloc&) {
    status = kExitFailure;
    message = "out of memory";
  } catch (const std::exception& error) {
    status = kExitFailure;
    message = error.what();
  }
  std::cout.flush();
  std::cerr << "velmar-algo " << command << ": " << message << std::endl;
  throw CLI::RuntimeError(status);
}

LidarType ParseModel(const std::string& name) {
  for (int type = kFirstModel; type < kLidarTypeCount; ++type) {
    if (LidarTypeToStr(type) == name) {
      return static_cast<LidarType>(type);
    }
  }
  throw CommandError("unknown model \"" + name + "\" (known: " + KnownModels() + ")",
                     kExitMismatch);
}

std::unique_ptr<sim::RecordingReader> OpenRecording(const std::string& folder) {
  std::error_code error;
  if (!std::filesystem::is_directory(folder, error)) {
    throw CommandError(folder + ": no such recording folder");
  }
  return std::make_unique<sim::RecordingReader>(folder);
}

void CheckRecordingModel(const sim::RecordingReader& reader, const std::string& folder,
                         LidarType model) {
  const std::string& recorded = reader.Info().model;
  if (recorded != LidarTypeToStr(model)) {
    throw CommandError(folder + ": recording is of model \"" + recorded + "\", not \"" +
                           LidarTypeToStr(model) + "\"",
                       kExitMismatch);
  }
}

void FeedRecording(sim::RecordingReader& reader, const UnitProcessor& processor,
                   uint32_t packetPoints, uint32_t frameCount, const FrameFeeder::FrameSink& sink,
                   const std::string& progressLabel) {
  uint32_t total = std::min(frameCount, reader.FrameCount());
  bool progress = ProgressWanted();
  FrameFeeder feeder(processor, packetPoints, sink);
  std::vector<_ori_point> frame;
  reader.Rewind();
  for (uint32_t index = 0; index < total && reader.NextFrame(frame); ++index) {
    feeder.Feed(std::move(frame));
    if (progress) {
      DrawProgress(progressLabel, index + 1, total);
    }
  }
  feeder.Finish();
  if (progress) {
    EndProgress();
  }
}

bool ProgressWanted() {
  return isatty(STDERR_FILENO) != 0;
}

void DrawProgress(const std::string& label, uint32_t done, uint32_t total) {
  int filled = total == 0 ? kProgressWidth
                          : static_cast<int>(static_cast<uint64_t>(done) * kProgressWidth / total);
  std::cerr << '\r' << label << " [" << std::string(filled, '#')
            << std::string(kProgressWidth - filled, ' ') << "] " << done << '/' << total
            << std::flush;
}

void EndProgress() {
  std::cerr << '\r' << std::string(kProgressWidth + 40, ' ') << '\r' << std::flush;
}

}  // namespace tools
}  // namespace velmar
