// The library reports on std::cout. To keep what it printed while a pipeline was assembled,
// std::cout is given, once and for the life of the process, a buffer that sends each write either
// to the capture of the writing thread or, when that thread captures nothing, on to the buffer
// it had before. Nothing is swapped while other threads may write, and one thread's capture never
// takes another thread's lines.
#ifndef VELMAR_PYTHON_OUTPUT_CAPTURE_H
#define VELMAR_PYTHON_OUTPUT_CAPTURE_H

#include <pybind11/pybind11.h>

#include <mutex>
#include <string>
#include <vector>

namespace velmar {
namespace python {

// Installs the routing buffer on std::cout; later calls do nothing.
void RouteStandardOutput();

// Collects what the current thread writes to std::cout while the object lives.
class CapturedOutput {
 public:
  CapturedOutput();
  ~CapturedOutput();
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  // The captured text split into lines, without their ends.
  std::vector<std::string> Lines() const;

 private:
  std::string text_;
  std::string* outer_;
};

// velmar-algo's functions silence std::cout for a moment by swapping its buffer; whoever calls
// them or captures output holds this lock, so that the swaps never meet.
std::mutex& StandardOutputLock();

// Runs `body` without the interpreter lock and under StandardOutputLock(); returns the lines it
// wrote to std::cout.
template <typename Body>
std::vector<std::string> CaptureOutputOf(Body&& body) {
  pybind11::gil_scoped_release unlocked;
  std::lock_guard<std::mutex> lock(StandardOutputLock());
  CapturedOutput output;
  body();
  return output.Lines();
}

}  // namespace python
}  // namespace velmar

#endif  // VELMAR_PYTHON_OUTPUT_CAPTURE_H
