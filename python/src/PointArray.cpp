#include "PointArray.h"

#include <cstring>
#include <memory>
#include <string>

namespace py = pybind11;

namespace velmar {
namespace python {
namespace {

std::string TypeName(py::handle object) {
  return py::str(py::type::handle_of(object).attr("__name__"));
}

// What a result array's capsule holds.
struct OwnedPoints {
  Points points;
  std::shared_ptr<PointsPool> home;

  OwnedPoints() = default;
  OwnedPoints(const OwnedPoints&) = delete;
  OwnedPoints& operator=(const OwnedPoints&) = delete;
  ~OwnedPoints() {
    if (home) {
      home->Give(std::move(points));
    }
  }
};

}  // namespace

py::dtype PointDtype() {
  // Built from the record's own offsets once, and kept for the life of the process (a reference
  // released at exit would outlive the interpreter).
  static PyObject* const dtype = [] {
    PYBIND11_NUMPY_DTYPE(_ori_point, x, y, z, intensity, distance, channel, reserved_a, hor_angle,
                         pulse_width, label, mirror, echo, drag_level, reserved_b, motion_flag,
                         reserved_c, mark, aux_flag, reserved_d, aux_index, aux_value, timestamp);
    return py::dtype::of<_ori_point>().release().ptr();
  }();
  return py::reinterpret_borrow<py::dtype>(dtype);
}

Points PointsPool::Take() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (kept_.empty()) {
    return Points();
  }
  Points points = std::move(kept_.back());
  kept_.pop_back();
  return points;
}

void PointsPool::Give(Points&& points) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (kept_.size() < kKept) {
    kept_.push_back(std::move(points));
  }
}

py::array ToArray(Points&& points, std::shared_ptr<PointsPool> home) {
  if (points.empty()) {
    if (home) {
      home->Give(std::move(points));
    }
    return py::array(PointDtype(), 0);
  }
  auto owned = std::make_unique<OwnedPoints>();
  owned->points.swap(points);
  owned->home = std::move(home);
  py::capsule owner(owned.get(), [](void* held) { delete static_cast<OwnedPoints*>(held); });
  OwnedPoints* held = owned.release();
  return py::array(PointDtype(), {held->points.size()}, {sizeof(_ori_point)}, held->points.data(),
                   owner);
}

void CopyFromArray(py::handle frame, Points& points) {
  if (!py::isinstance<py::array>(frame)) {
    throw py::type_error("frame must be a numpy array of velmar.POINT_DTYPE, not " +
                         TypeName(frame));
  }
  auto array = py::reinterpret_borrow<py::array>(frame);
  py::dtype dtype = array.dtype();
  // The dtype object is shared by every array made with POINT_DTYPE, so the identity test
  // settles nearly every call before the field-by-field comparison.
  if (!dtype.is(PointDtype()) && !dtype.equal(PointDtype())) {
    throw py::type_error("frame must have dtype velmar.POINT_DTYPE, not " +
                         std::string(py::str(dtype)));
  }
  if (array.ndim() != 1) {
    throw py::value_error("frame must be one-dimensional, not of " + std::to_string(array.ndim()) +
                          " dimensions");
  }
  if ((array.flags() & py::array::c_style) == 0) {
    throw py::value_error("frame must be contiguous (numpy.ascontiguousarray makes it so)");
  }
  const auto count = static_cast<std::size_t>(array.shape(0));
  if ((array.flags() & py::detail::npy_api::NPY_ARRAY_ALIGNED_) != 0) {
    const auto* first = static_cast<const _ori_point*>(array.data());
    points.assign(first, first + count);
  } else {
    points.resize(count);
    std::memcpy(points.data(), array.data(), count * sizeof(_ori_point));
  }
}

}  // namespace python
}  // namespace velmar
