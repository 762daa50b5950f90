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

py::array ToArray(Points&& points) {
  if (points.empty()) {
    return py::array(PointDtype(), 0);
  }
  auto owned = std::make_unique<Points>(std::move(points));
  py::capsule owner(owned.get(), [](void* storage) { delete static_cast<Points*>(storage); });
  Points* storage = owned.release();
  return py::array(PointDtype(), {storage->size()}, {sizeof(_ori_point)}, storage->data(), owner);
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
