#include "framework/AlgoFactory.h"

#include "filters/CloseRangeNoise128.h"
#include "filters/CloseRangeNoiseFilter.h"
#include "filters/DeletePoint.h"
#include "filters/DragPoint.h"
#include "filters/FixedNoise128.h"
#include "filters/HighRef128.h"
#include "filters/HighrefFilterZepT.h"
#include "filters/LidarInterfere128.h"
#include "filters/OutlierPoint.h"
#include "filters/RainfogFilter.h"
#include "filters/SunlightNoise.h"
#include "filters/SunlightNoise2.h"
#include "filters/SunlightNoise3.h"
#include "framework/PassThroughAlgo.h"
#include "geometry/CalculateRotateAllPointCloud.h"
#include "geometry/FilterPointsOfInterest.h"
#include "geometry/JointabcProcess.h"
#include "geometry/MirrorMotionCompensation.h"
#include "geometry/RainPoint.h"
#include "geometry/ReflectCalib.h"
#include "geometry/SmallBlind.h"
#include "geometry/SmallBlindMarlo128.h"
#include "geometry/UnderGroundPoint.h"
#include "ground/GroundDet.h"
#include "motion/MotionPoint.h"
#include "motion/UndistortPoint.h"
#include "motion/UndistortPoint2.h"

namespace velmar {
namespace {

std::shared_ptr<AlgoBase> Construct(int64_t id, const std::string& name, const std::string& desc,
                                    LidarType type) {
  switch (id) {
    case 1:
      return std::make_shared<UndistortPoint>(name, desc, type);
    case 2:
      return std::make_shared<SunlightNoise>(name, desc, type);
    case 3:
      return std::make_shared<SunlightNoise2>(name, desc, type);
    case 4:
      return std::make_shared<RainPoint>(name, desc, type);
    case 5:
      return std::make_shared<UnderGroundPoint>(name, desc, type);
    case 6:
      return std::make_shared<MirrorMotionCompensation>(name, desc, type);
    case 7:
      return std::make_shared<OutlierPoint>(name, desc, type);
    case 10:
      return std::make_shared<JointabcProcess>(name, desc, type);
    case 12:
      return std::make_shared<DragPoint>(name, desc, type);
    case 13:
      return std::make_shared<RainfogFilter>(name, desc, type);
    case 15:
      return std::make_shared<SunlightNoise3>(name, desc, type);
    case 16:
      return std::make_shared<DeletePoint>(name, desc, type);
    case 18:
      return std::make_shared<SmallBlind>(name, desc, type);
    case 20:
      return std::make_shared<CloseRangeNoiseFilter>(name, desc, type);
    case 21:
      return std::make_shared<MotionPoint>(name, desc, type);
    case 23:
      return std::make_shared<CloseRangeNoise128>(name, desc, type);
    case 24:
      return std::make_shared<HighRef128>(name, desc, type);
    case 25:
      return std::make_shared<FixedNoise128>(name, desc, type);
    case 26:
      return std::make_shared<LidarInterfere128>(name, desc, type);
    case 27:
      return std::make_shared<UndistortPoint2>(name, desc, type);
    case 28:
      return std::make_shared<SmallBlindMarlo128>(name, desc, type);
    case 31:
      return std::make_shared<CalculateRotateAllPointCloud>(name, desc, type);
    case 33:
      return std::make_shared<HighrefFilterZepT>(name, desc, type);
    case 35:
      return std::make_shared<GroundDet>(name, desc, type);
    case 11:
      return std::make_shared<ReflectCalib>(name, desc, type);
    case 32:
      return std::make_shared<FilterPointsOfInterest>(name, desc, type);
    // Crosstalk (8, 17), disturbed points (9), high-reflectivity ghosts (14, 29, 30), discrete
    // points (19), two-pass clustering (22) and moving-platform undistortion (34) are not
    // provided by this library; their ids still load so that a host's configuration keeps working.
    case 8:
    case 9:
    case 14:
    case 17:
    case 19:
    case 22:
    case 29:
    case 30:
    case 34:
      return std::make_shared<PassThroughAlgo>(name, desc, type);
    default:
      return nullptr;
  }
}

}  // namespace

void CopyParams(const rapidjson::Value& param, AlgoBase& algo) {
  for (auto it = param.MemberBegin(); it != param.MemberEnd(); ++it) {
    const std::string key(it->name.GetString(), it->name.GetStringLength());
    if (it->value.IsNumber()) {
      algo.num_params[key] = it->value.GetDouble();
      algo.str_params.erase(key);
    } else if (it->value.IsString()) {
      algo.str_params[key].assign(it->value.GetString(), it->value.GetStringLength());
      algo.num_params.erase(key);
    }
  }
}

std::shared_ptr<AlgoBase> ConfigureAlgo(int64_t id, const std::string& name,
                                        const std::string& desc, LidarType type,
                                        const rapidjson::Value* param,
                                        const std::string& dataFolder) {
  std::shared_ptr<AlgoBase> algo = CreateAlgo(id, name, desc, type);
  if (!algo) {
    return nullptr;
  }
  if (auto* algorithm = dynamic_cast<Algorithm*>(algo.get())) {
    algorithm->SetDataFolder(dataFolder);
  }
  if (param != nullptr && param->IsObject()) {
    CopyParams(*param, *algo);
  }
  algo->ParseParams();
  return algo;
}

std::shared_ptr<AlgoBase> CreateAlgo(int64_t id, const std::string& name, const std::string& desc,
                                     LidarType type) {
  std::shared_ptr<AlgoBase> algo = Construct(id, name, desc, type);
  if (algo) {
    algo->id = static_cast<uint32_t>(id);
  }
  return algo;
}

}  // namespace velmar
