// The C++ host loop that the Python benchmark measures its calls against.
#ifndef VELMAR_PYTHON_HOST_LOOP_H
#define VELMAR_PYTHON_HOST_LOOP_H

#include <pybind11/pybind11.h>

namespace velmar {
namespace python {

void BindHostLoop(pybind11::module_& module);

}  // namespace python
}  // namespace velmar

#endif  // VELMAR_PYTHON_HOST_LOOP_H
