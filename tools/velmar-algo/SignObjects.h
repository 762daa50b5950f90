// Which scene objects of a simulated recording are retro-reflective signs. The truth of a return
// names its object; whether that object is a sign is a property of the scene, which the
// recording's settings rebuild exactly (same model, scene, seed and number of frames).
#ifndef VELMAR_TOOLS_VELMAR_ALGO_SIGN_OBJECTS_H
#define VELMAR_TOOLS_VELMAR_ALGO_SIGN_OBJECTS_H

#include "Outcome.h"
#include "sim/Recording.h"

namespace velmar {
namespace tools {

// The signs of the recording's scene; empty when the scene cannot be rebuilt (a recording that
// was not simulated).
SignObjects SignObjectsOf(const sim::RecordingInfo& info);

}  // namespace tools
}  // namespace velmar

#endif  // VELMAR_TOOLS_VELMAR_ALGO_SIGN_OBJECTS_H
