#include "OurPipeline.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <sstream>

#include "FrameFeeder.h"
#include "Outcome.h"

namespace velmar {
namespace peers {
namespace {

constexpr int kGroundDetId = 35;

bool HasAlgoList(const rapidjson::Document& document) {
  return document.IsObject() && document.HasMember("algo_list") && document["algo_list"].IsArray();
}

bool HasIntId(const rapidjson::Value& entry) {
  return entry.IsObject() && entry.HasMember("id") && entry["id"].IsInt();
}

// The label GroundDet gives ground returns: its "debug_using_echo" parameter, -1 when unset.
int GroundLabel(const std::string& text) {
  rapidjson::Document document;
  document.Parse(text.c_str());
  if (!HasAlgoList(document)) {
    return -1;
  }
  for (const rapidjson::Value& entry : document["algo_list"].GetArray()) {
    if (HasIntId(entry) && entry["id"].GetInt() == kGroundDetId && entry.HasMember("param") &&
        entry["param"].IsObject() && entry["param"].HasMember("debug_using_echo") &&
        entry["param"]["debug_using_echo"].IsInt()) {
      return entry["param"]["debug_using_echo"].GetInt();
    }
  }
  return -1;
}

std::unique_ptr<ILidarAlgo> OpenPipeline(LidarType model, const std::string& configText) {
  std::ostringstream sink;
  std::streambuf* previous = std::cout.rdbuf(sink.rdbuf());
  std::unique_ptr<ILidarAlgo> pipeline = ILidarAlgo::Create(model, "");
  const bool accepted = pipeline->UpdateAlgoParam(configText);
  std::cout.rdbuf(previous);
  if (!accepted) {
    std::cerr << "configuration refused:\n" << sink.str();
    std::exit(1);
  }
  return pipeline;
}

// Feeds the frames through a pipeline and hands each measured frame, with the output point that
// stands for each input point (or kNoOrigin), to `measure`.
void Feed(const std::vector<Records>& frames, const std::string& configText,
          const FeedSettings& feed,
          const std::function<void(const tools::FedFrame&, const std::vector<int64_t>&)>& measure) {
  std::unique_ptr<ILidarAlgo> pipeline = OpenPipeline(feed.model, configText);
  // CPU time per frame, counted as the feeder counts its wall time: every packet processed while
  // a frame is fed belongs to that frame. A frame is handed on only after its last packet.
  std::vector<double> cpuSeconds(frames.size(), 0.0);
  std::size_t feeding = 0;
  tools::FrameFeeder feeder(
      [&](Records& unit) {
        const double start = ProcessCpuSeconds();
        pipeline->Process(unit);
        if (feeding < cpuSeconds.size()) {
          cpuSeconds[feeding] += ProcessCpuSeconds() - start;
        }
      },
      feed.packetPoints,
      [&](tools::FedFrame& fed) {
        if (fed.index < feed.warmupFrames) {
          return;
        }
        fed.seconds = cpuSeconds[fed.index];
        measure(fed, tools::Representatives(fed.input.size(), fed.output,
                                            [&](std::size_t j) { return fed.origin[j]; }));
      });
  for (feeding = 0; feeding < frames.size(); ++feeding) {
    feeder.Feed(frames[feeding]);
  }
  feeder.Finish();
}

// The output record standing for input point `i`, or null when none came out.
const _ori_point* OutputOf(const tools::FedFrame& fed, const std::vector<int64_t>& representative,
                           std::size_t i) {
  const int64_t chosen = representative[i];
  return chosen == tools::kNoOrigin ? nullptr : &fed.output[static_cast<std::size_t>(chosen)];
}

// Feeds the frames and hands `sink` each measured frame, after `judge` has added the flags of
// each of its returns from the output record standing for it (null when none came out).
void FeedAndJudge(const std::vector<Records>& frames, const std::string& configText,
                  const FeedSettings& feed,
                  const std::function<void(const _ori_point*, OurFrame&)>& judge,
                  const OurFrameSink& sink) {
  Feed(frames, configText, feed,
       [&](const tools::FedFrame& fed, const std::vector<int64_t>& representative) {
         OurFrame ours;
         ours.frame = FrameFromRecords(fed.input);
         ours.seconds = fed.seconds;
         for (std::size_t i = 0; i < fed.input.size(); ++i) {
           if (fed.input[i].distance > 0.0) {
             judge(OutputOf(fed, representative, i), ours);
           }
         }
         sink(ours);
       });
}

}  // namespace

void RunOurNoise(const std::vector<Records>& frames, const std::string& configText,
                 const FeedSettings& feed, const OurFrameSink& sink) {
  FeedAndJudge(
      frames, configText, feed,
      [](const _ori_point* out, OurFrame& ours) {
        ours.flags.push_back(out == nullptr || !tools::IsReturn(*out) ? 1 : 0);
      },
      sink);
}

void RunOurGround(const std::vector<Records>& frames, const std::string& configText,
                  const FeedSettings& feed, const OurFrameSink& sink) {
  const int label = GroundLabel(configText);
  // GroundDet labels what it classifies: `label` for ground, `label` - 1 above it. Every other
  // value marks a return it never classified.
  const int32_t untouched = label + 1000;
  std::vector<Records> unlabelled = frames;
  for (Records& frame : unlabelled) {
    for (_ori_point& p : frame) {
      p.label = untouched;
    }
  }
  const std::string onlyGround =
      ConfigSubset(configText, [](int id) { return id == kGroundDetId; });
  FeedAndJudge(
      unlabelled, onlyGround, feed,
      [&](const _ori_point* out, OurFrame& ours) {
        const int32_t given = out == nullptr ? untouched : out->label;
        ours.flags.push_back(given == label ? 1 : 0);
        ours.unclassified.push_back(given != label && given != label - 1 ? 1 : 0);
      },
      sink);
}

std::string ConfigSubset(const std::string& text, const std::function<bool(int)>& keep) {
  rapidjson::Document document;
  document.Parse(text.c_str());
  if (!HasAlgoList(document)) {
    return text;
  }
  rapidjson::Value& list = document["algo_list"];
  for (rapidjson::SizeType i = list.Size(); i-- > 0;) {
    if (!HasIntId(list[i]) || !keep(list[i]["id"].GetInt())) {
      list.Erase(list.Begin() + i);
    }
  }
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  document.Accept(writer);
  return buffer.GetString();
}

std::string IdsOf(const std::string& text) {
  rapidjson::Document document;
  document.Parse(text.c_str());
  std::ostringstream ids;
  const char* separator = "";
  if (HasAlgoList(document)) {
    for (const rapidjson::Value& entry : document["algo_list"].GetArray()) {
      if (HasIntId(entry)) {
        ids << separator << entry["id"].GetInt();
        separator = ", ";
      }
    }
  }
  return ids.str();
}

}  // namespace peers
}  // namespace velmar
