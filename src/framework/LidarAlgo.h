// The pipeline: the algorithms of one configuration, run in order of id over every frame.
#ifndef VELMAR_FRAMEWORK_LIDAR_ALGO_H
#define VELMAR_FRAMEWORK_LIDAR_ALGO_H

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <rapidjson/document.h>

#include "framework/AlgoBase.h"
#include "velmar/lidar_algo.h"

namespace velmar {

// Configuration text and files are read with RapidJSON's iterative parser: it accepts exactly the
// documents of the default parse, but keeps its stack on the heap, so a document nested 100,000
// levels deep costs memory in proportion to its size instead of overflowing the host thread's
// stack. Walks over a parsed document never recurse either: assembly reads fixed paths (root,
// "algo_list" entries, their "param" and "lidar_type" members) and never descends below them,
// so four levels is the deepest any walk of the library goes, whatever the document's nesting.
constexpr unsigned kJsonParseFlags = rapidjson::kParseIterativeFlag;

// Limits of one configuration, checked after parsing, the version and the master switch and
// before anything is built: at most this many enabled "algo_list" entries (an id may repeat),
// and at most this many bytes for the algorithms of the new list and of the running list
// together, since both are alive while the new one is built (AlgoFootprint estimates them).
constexpr std::size_t kMaxConfigEntries = 256;
constexpr std::size_t kMaxConfigBytes = std::size_t{1} << 30;

class LidarAlgo : public ILidarAlgo {
 public:
  LidarAlgo(LidarType type, const std::string& configPath);

  void Process(std::vector<_ori_point>& frame) override;
  bool UpdateAlgoParam(const std::string& json) override;
  void ClearCache() override;

  bool ParseAlgoConfigFromFile(const std::string& path);
  bool ParseAlgoConfigImp(const rapidjson::Document& document);
  // As above; relative data-file paths of the algorithms are taken from `dataFolder` (ending in
  // '/', or empty for the working directory).
  bool ParseAlgoConfigImp(const rapidjson::Document& document, const std::string& dataFolder);

  // The assembled algorithms in processing order; for inspection by tools and tests.
  std::vector<std::shared_ptr<AlgoBase>> Algorithms();

 protected:
  // Builds the algorithm of one "algo_list" entry, or nullptr when the entry is skipped.
  std::shared_ptr<AlgoBase> AssembleEntry(const rapidjson::Value& entry,
                                          const std::string& dataFolder) const;
  bool AcceptsModel(AlgoBase& algo, const rapidjson::Value* lidarTypes) const;

  std::vector<std::shared_ptr<AlgoBase>> algos;
  LidarType lidar_type;
  std::mutex mutex;
  // AlgoFootprint summed over the running list, guarded by `mutex`.
  std::size_t running_footprint_ = 0;
};

}  // namespace velmar

#endif  // VELMAR_FRAMEWORK_LIDAR_ALGO_H
