// The id table: the configuration's numeric ids to algorithm classes. The id also fixes the order
// in which a pipeline runs its algorithms. And configuring one algorithm from its "param" object,
// which the pipeline's assembly, the tests and the benchmarks all do the same way.
#ifndef VELMAR_FRAMEWORK_ALGO_FACTORY_H
#define VELMAR_FRAMEWORK_ALGO_FACTORY_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <rapidjson/document.h>

#include "framework/AlgoBase.h"

namespace velmar {

constexpr int64_t kFirstAlgoId = 1;
constexpr int64_t kLastAlgoId = 35;

// Creates the algorithm of `id` with its parameter defaults and its id set; nullptr for an id
// outside the table.
std::shared_ptr<AlgoBase> CreateAlgo(int64_t id, const std::string& name, const std::string& desc,
                                     LidarType type);

// Copies the members of a "param" object into the algorithm's two parameter maps: numbers as
// doubles, strings as text; a later duplicate key replaces an earlier one.
void CopyParams(const rapidjson::Value& param, AlgoBase& algo);

// The bytes an instance of `id` configured with `param` holds for `type`: the object and the
// tables it allocates from its model and parameters (Algorithm::TableBytes), not the copies of
// frames it keeps. Nothing is built to find out. 0 for an id outside the table.
std::size_t AlgoFootprint(int64_t id, LidarType type, const rapidjson::Value* param);

// Creates the algorithm of `id`, fills its parameter maps from `param` (no parameters when null)
// and lets it read them, printing its own messages; nullptr for an id outside the table.
// Relative paths of data files in `param` are taken from `dataFolder` (Algorithm::SetDataFolder).
std::shared_ptr<AlgoBase> ConfigureAlgo(int64_t id, const std::string& name,
                                        const std::string& desc, LidarType type,
                                        const rapidjson::Value* param,
                                        const std::string& dataFolder = std::string());

}  // namespace velmar

#endif  // VELMAR_FRAMEWORK_ALGO_FACTORY_H
