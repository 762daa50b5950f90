// The id table: the configuration's numeric ids to algorithm classes. The id also fixes the order
// in which a pipeline runs its algorithms.
#ifndef VELMAR_FRAMEWORK_ALGO_FACTORY_H
#define VELMAR_FRAMEWORK_ALGO_FACTORY_H

#include <cstdint>
#include <memory>
#include <string>

#include "framework/AlgoBase.h"

namespace velmar {

constexpr int64_t kFirstAlgoId = 1;
constexpr int64_t kLastAlgoId = 35;

// Creates the algorithm of `id` with its parameter defaults and its id set; nullptr for an id
// outside the table.
std::shared_ptr<AlgoBase> CreateAlgo(int64_t id, const std::string& name, const std::string& desc,
                                     LidarType type);

}  // namespace velmar

#endif  // VELMAR_FRAMEWORK_ALGO_FACTORY_H
