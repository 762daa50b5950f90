// Frames as numpy arrays: the record's dtype, and the two crossings between numpy memory and the
// library's vectors. Into the library a frame is copied once (numpy memory cannot become a
// std::vector); out of it nothing is copied: the array takes over the vector's storage.
#ifndef VELMAR_PYTHON_POINT_ARRAY_H
#define VELMAR_PYTHON_POINT_ARRAY_H

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <memory>
#include <mutex>
#include <vector>

#include "velmar/lidar_algo.h"

namespace velmar {
namespace python {

using Points = std::vector<_ori_point>;

// The numpy dtype of _ori_point: every field by name at its offset, reserved byte arrays as
// sub-arrays, 152 bytes.
pybind11::dtype PointDtype();

// Vectors whose arrays have died, kept for the next calls of one pipeline: their storage is
// already mapped and large enough for what the algorithms append, so a steady stream of frames
// neither allocates nor touches fresh memory (a whole Marlo128 frame is 42 MB).
class PointsPool {
 public:
  // A kept vector (contents unspecified), or a new one.
  Points Take();
  // Keeps `points` when fewer than kKept are kept, frees it otherwise.
  void Give(Points&& points);

 private:
  // Enough for `out = pipeline.process(frame)`: one array alive, one coming back.
  static constexpr std::size_t kKept = 2;
  std::mutex mutex_;
  std::vector<Points> kept_;
};

// An array over `points`' storage, which it owns from now on; when the array dies the vector goes
// to `home`, if there is one.
pybind11::array ToArray(Points&& points, std::shared_ptr<PointsPool> home = nullptr);

// Copies a one-dimensional, contiguous array of PointDtype() into `points`. TypeError for
// anything that is not such an array's type, ValueError for its shape or memory layout.
void CopyFromArray(pybind11::handle frame, Points& points);

}  // namespace python
}  // namespace velmar

#endif  // VELMAR_PYTHON_POINT_ARRAY_H
