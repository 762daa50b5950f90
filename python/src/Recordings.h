// Recordings from Python: reading and writing recording folders, simulating drives, and the two
// velmar-algo commands that work on whole recordings (run and eval).
#ifndef VELMAR_PYTHON_RECORDINGS_H
#define VELMAR_PYTHON_RECORDINGS_H

#include <pybind11/pybind11.h>

namespace velmar {
namespace python {

void BindRecordings(pybind11::module_& module);

}  // namespace python
}  // namespace velmar

#endif  // VELMAR_PYTHON_RECORDINGS_H
