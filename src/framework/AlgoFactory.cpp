#include "framework/AlgoFactory.h"

#include "filters/CloseRangeNoise128.h"
#include "filters/CloseRangeNoiseFilter.h"
#include "filters/CrosstalkFilter.h"
#include "filters/CrosstalkFilter2.h"
#include "filters/DeletePoint.h"
#include "filters/DiscretePoint.h"
#include "filters/DisturbPointFilter.h"
#include "filters/DragPoint.h"
#include "filters/FixedNoise128.h"
#include "filters/HighRef128.h"
#include "filters/HighrefFilter.h"
#include "filters/HighrefFilter128.h"
#include "filters/HighrefFilterOVP48.h"
#include "filters/HighrefFilterZepT.h"
#include "filters/LidarInterfere128.h"
#include "filters/OutlierPoint.h"
#include "filters/RainfogFilter.h"
#include "filters/SunlightNoise.h"
#include "filters/SunlightNoise2.h"
#include "filters/SunlightNoise3.h"
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
#include "motion/TwopassPoint.h"
#include "motion/UndistortPoint.h"
#include "motion/UndistortPoint2.h"
#include "motion/UndistortPointMove.h"

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
    case 8:
      return std::make_shared<CrosstalkFilter>(name, desc, type);
    case 9:
      return std::make_shared<DisturbPointFilter>(name, desc, type);
    case 10:
      return std::make_shared<JointabcProcess>(name, desc, type);
    case 11:
      return std::make_shared<ReflectCalib>(name, desc, type);
    case 12:
      return std::make_shared<DragPoint>(name, desc, type);
    case 13:
      return std::make_shared<RainfogFilter>(name, desc, type);
    case 14:
      return std::make_shared<HighrefFilter>(name, desc, type);
    case 15:
      return std::make_shared<SunlightNoise3>(name, desc, type);
    case 16:
      return std::make_shared<DeletePoint>(name, desc, type);
    case 17:
      return std::make_shared<CrosstalkFilter2>(name, desc, type);
    case 18:
      return std::make_shared<SmallBlind>(name, desc, type);
    case 19:
      return std::make_shared<DiscretePoint>(name, desc, type);
    case 20:
      return std::make_shared<CloseRangeNoiseFilter>(name, desc, type);
    case 21:
      return std::make_shared<MotionPoint>(name, desc, type);
    case 22:
      return std::make_shared<TwopassPoint>(name, desc, type);
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
    case 29:
      return std::make_shared<HighrefFilter128>(name, desc, type);
    case 30:
      return std::make_shared<HighrefFilterOVP48>(name, desc, type);
    case 31:
      return std::make_shared<CalculateRotateAllPointCloud>(name, desc, type);
    case 32:
      return std::make_shared<FilterPointsOfInterest>(name, desc, type);
    case 33:
      return std::make_shared<HighrefFilterZepT>(name, desc, type);
    case 34:
      return std::make_shared<UndistortPointMove>(name, desc, type);
    case 35:
      return std::make_shared<GroundDet>(name, desc, type);
    default:
      return nullptr;
  }
}

template <typename Algo>
std::size_t FootprintOf(LidarType type, const Algorithm::NumberParams& params) {
  return sizeof(Algo) + Algo::TableBytes(type, params);
}

using FootprintFunction = std::size_t (*)(LidarType, const Algorithm::NumberParams&);

struct FootprintEntry {
  int64_t id;
  FootprintFunction footprint;
};

// Every class of the id table states its footprint here; a new algorithm adds its line.
// clang-format off
constexpr FootprintEntry kFootprints[] = {
    {1, FootprintOf<UndistortPoint>},
    {2, FootprintOf<SunlightNoise>},
    {3, FootprintOf<SunlightNoise2>},
    {4, FootprintOf<RainPoint>},
    {5, FootprintOf<UnderGroundPoint>},
    {6, FootprintOf<MirrorMotionCompensation>},
    {7, FootprintOf<OutlierPoint>},
    {8, FootprintOf<CrosstalkFilter>},
    {9, FootprintOf<DisturbPointFilter>},
    {10, FootprintOf<JointabcProcess>},
    {11, FootprintOf<ReflectCalib>},
    {12, FootprintOf<DragPoint>},
    {13, FootprintOf<RainfogFilter>},
    {14, FootprintOf<HighrefFilter>},
    {15, FootprintOf<SunlightNoise3>},
    {16, FootprintOf<DeletePoint>},
    {17, FootprintOf<CrosstalkFilter2>},
    {18, FootprintOf<SmallBlind>},
    {19, FootprintOf<DiscretePoint>},
    {20, FootprintOf<CloseRangeNoiseFilter>},
    {21, FootprintOf<MotionPoint>},
    {22, FootprintOf<TwopassPoint>},
    {23, FootprintOf<CloseRangeNoise128>},
    {24, FootprintOf<HighRef128>},
    {25, FootprintOf<FixedNoise128>},
    {26, FootprintOf<LidarInterfere128>},
    {27, FootprintOf<UndistortPoint2>},
    {28, FootprintOf<SmallBlindMarlo128>},
    {29, FootprintOf<HighrefFilter128>},
    {30, FootprintOf<HighrefFilterOVP48>},
    {31, FootprintOf<CalculateRotateAllPointCloud>},
    {32, FootprintOf<FilterPointsOfInterest>},
    {33, FootprintOf<HighrefFilterZepT>},
    {34, FootprintOf<UndistortPointMove>},
    {35, FootprintOf<GroundDet>},
};
// clang-format on

void CopyMembers(const rapidjson::Value& param, Algorithm::NumberParams& numbers,
                 std::map<std::string, std::string>& texts) {
  for (auto it = param.MemberBegin(); it != param.MemberEnd(); ++it) {
    const std::string key(it->name.GetString(), it->name.GetStringLength());
    if (it->value.IsNumber()) {
      numbers[key] = it->value.GetDouble();
      texts.erase(key);
    } else if (it->value.IsString()) {
      texts[key].assign(it->value.GetString(), it->value.GetStringLength());
      numbers.erase(key);
    }
  }
}

// The numeric members of a "param" object as the algorithm's map will hold them.
Algorithm::NumberParams NumericParams(const rapidjson::Value* param) {
  Algorithm::NumberParams numbers;
  std::map<std::string, std::string> texts;
  if (param != nullptr && param->IsObject()) {
    CopyMembers(*param, numbers, texts);
  }
  return numbers;
}

}  // namespace

std::size_t AlgoFootprint(int64_t id, LidarType type, const rapidjson::Value* param) {
  if (id < kFirstAlgoId || id > kLastAlgoId) {
    return 0;
  }
  for (const FootprintEntry& entry : kFootprints) {
    if (entry.id == id) {
      return entry.footprint(type, NumericParams(param));
    }
  }
  return 0;
}

void CopyParams(const rapidjson::Value& param, AlgoBase& algo) {
  CopyMembers(param, algo.num_params, algo.str_params);
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
