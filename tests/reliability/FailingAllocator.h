// Allocation control for the tests of this binary, which replaces the global allocation
// functions: count the allocations of a call, measure the bytes it leaves held, and make one
// chosen allocation fail with std::bad_alloc, as if the machine's memory were exhausted there.
#ifndef VELMAR_TESTS_RELIABILITY_FAILING_ALLOCATOR_H
#define VELMAR_TESTS_RELIABILITY_FAILING_ALLOCATOR_H

#include <cstddef>
#include <cstdint>

namespace velmar {
namespace alloctest {

// Restarts the count; allocation number `n` from now on (counting from 1) fails, none when 0.
void FailAllocation(uint64_t n);
// Allocations since the last FailAllocation.
uint64_t Allocations();
// Whether the chosen allocation has been reached (and failed).
bool Failed();
// Bytes held by every allocation not yet released.
std::size_t LiveBytes();

// Arms FailAllocation(n) for its lifetime and disarms on leaving, however it is left.
class FailureScope {
 public:
  explicit FailureScope(uint64_t n) { FailAllocation(n); }
  ~FailureScope() { FailAllocation(0); }
  FailureScope(const FailureScope&) = delete;
  FailureScope& operator=(const FailureScope&) = delete;
};

}  // namespace alloctest
}  // namespace velmar

#endif  // VELMAR_TESTS_RELIABILITY_FAILING_ALLOCATOR_H
