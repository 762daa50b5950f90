#include "framework/RangeImageAlgorithm.h"

namespace velmar {

void RangeImageAlgorithm::ParseImageParams(const char* className) {
  ReadInRange(className, "column_step", column_step, 0.0, RangeImage::kMaxColumnStepDeg);
  if (column_step > 0.0 && column_step < RangeImage::kMinColumnStepDeg) {
    PrintParamOutOfRange(className, "column_step");
    column_step = 0.0;
  }
  ReadParam("debug_using_echo", debug_using_echo);
  image_ = RangeImage(column_step);
}

}  // namespace velmar
