// The class every algorithm of the library derives from. AlgoBase keeps every operation pure, as
// the host-side layout fixes it, so without this class each algorithm would restate the answer
// to Id() and empty ParseParams and ClearCache bodies. Here an algorithm states only what it
// does: it overrides ParseParams when it has parameters and ClearCache when it keeps state
// between frames, and it reads its parameters with the helpers below, which all algorithms share.
#ifndef VELMAR_FRAMEWORK_ALGORITHM_H
#define VELMAR_FRAMEWORK_ALGORITHM_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "framework/AlgoBase.h"
#include "framework/ParamBounds.h"

namespace velmar {

class Algorithm : public AlgoBase {
 public:
  using AlgoBase::AlgoBase;

  // The id the id table gave this instance; no algorithm answers with a number of its own.
  uint32_t Id() const final { return id; }
  void ParseParams() override {}
  void ClearCache() override {}
  // Called once the pipeline is assembled, with all its algorithms in processing order: an
  // algorithm whose work depends on what runs before it looks here, once, instead of per frame.
  virtual void JoinPipeline(const std::vector<std::shared_ptr<AlgoBase>>& /*pipeline*/) {}

  // The folder that relative paths of data files (maps, tables) are taken from: the folder of the
  // configuration file when the configuration came from a file, empty (the working directory) for
  // configuration text. Set before ParseParams, which is where data files are read.
  void SetDataFolder(const std::string& folder) { data_folder_ = folder; }

  using NumberParams = std::map<std::string, double>;
  // What an instance holds for `type` and these numeric parameters beyond the object itself: the
  // tables its constructor and its first frame allocate. Copies of the host's frames and packets
  // are not counted; they grow with the frames the host feeds. The pipeline sums this over a
  // configuration before it builds anything (AlgoFootprint in framework/AlgoFactory.h), so an
  // algorithm that allocates tables hides this with its own, counting every size-driving
  // parameter at most at its bound.
  static std::size_t TableBytes(LidarType /*type*/, const NumberParams& /*params*/) { return 0; }

 protected:
  // Each ReadParam leaves `field` as it is when `key` is absent and reports whether it was there.
  bool ReadParam(const std::string& key, double& field) const;
  bool ReadParam(const std::string& key, float& field) const;    // narrowed to single precision
  bool ReadParam(const std::string& key, int32_t& field) const;  // truncated toward zero
  bool ReadParam(const std::string& key, uint32_t& field) const;
  bool ReadParam(const std::string& key, std::string& field) const;

  // The value of `key`, or 0 after inserting `key` with value 0 when it is absent.
  double ParamOrInsertZero(const std::string& key);

  bool HasAllParams(std::initializer_list<const char*> keys) const;

  // Reads `key` into `field` when present. A value outside [low, high], or not a number, is
  // reported as out of range and leaves `field` as it was (its default); integers are truncated
  // toward zero after the check.
  void ReadInRange(const char* className, const std::string& key, double& field, double low,
                   double high) const;
  void ReadInRange(const char* className, const std::string& key, int32_t& field, double low,
                   double high) const;

  // "[algo]:<Class> param is invalid!" and "[algo]:<Class> <key> is not in the correct range!".
  static void PrintParamInvalid(const char* className);
  static void PrintParamOutOfRange(const char* className, const std::string& key);

  // `path` as given when absolute, otherwise taken from the data folder.
  std::string DataPath(const std::string& path) const;
  // Reads the data file that parameter `key` names at `path` (taken from the data folder when
  // relative; framework/DataFile.h: regular files only, at most `maxBytes`) and hands its text
  // to `parse`, which says what is wrong in `problem` when it refuses it. On any failure prints
  // one line "[algo]:<Class> <key> <path> <reason>!" and returns false.
  bool LoadDataFile(
      const char* className, const std::string& key, const std::string& path, std::size_t maxBytes,
      const std::function<bool(const std::string& text, std::string& problem)>& parse) const;

  // A size-driving parameter (framework/ParamBounds.h): `value` when it lies within `bound`,
  // otherwise `fallback`, after the range message naming the bound's key.
  template <typename Int>
  static Int WithinBoundOr(const char* className, const ParamBound& bound, Int value,
                           Int fallback) {
    if (WithinBound(value, bound)) {
      return value;
    }
    PrintParamOutOfRange(className, bound.key);
    return fallback;
  }

 private:
  std::string data_folder_;

  template <typename Field, typename Convert>
  bool ReadConverted(const std::string& key, Field& field, Convert convert) const;
};

}  // namespace velmar

#endif  // VELMAR_FRAMEWORK_ALGORITHM_H
