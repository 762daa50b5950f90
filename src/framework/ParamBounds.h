// Upper bounds of the parameters that size memory or a loop: grid sizes, window lengths,
// capacities, iteration and sample counts. Every such parameter of every algorithm has one, so
// that no configuration can make the library allocate absurd memory, throw std::bad_alloc for a
// request no sensor needs, or stall the host's thread for seconds.
//
// How an algorithm uses this:
//   1. Declare each bound once, next to the code that reads the key, as a ParamBound holding the
//      key and the largest accepted value:
//          constexpr ParamBound kWindowBound{"filterWindowV", 128};
//   2. Read the key as usual, then apply the algorithm's own rule for bad values beyond it:
//      - its default or fallback, with the range message:
//          window = WithinBoundOr(kClassName, kWindowBound, window, kDefaultWindow);
//      - a clamp to the bound, with the range message: the same call with kWindowBound.max as
//        the fallback;
//      - a failed parameter check, where the algorithm has one: WithinBound(value, bound).
//   3. Add the bound to the table of docs/algorithms.md, and count the memory it drives in the
//      algorithm's TableBytes (framework/Algorithm.h) at the bound, never above it.
// Values inside a bound behave exactly as if there were none; only what lies beyond it changes.
#ifndef VELMAR_FRAMEWORK_PARAM_BOUNDS_H
#define VELMAR_FRAMEWORK_PARAM_BOUNDS_H

#include <cstdint>
#include <type_traits>

namespace velmar {

struct ParamBound {
  const char* key;
  uint32_t max;  // the largest accepted value
};

// Whether an integer parameter, as read (already truncated), stays within `bound`. Values below
// zero are not this check's concern: each algorithm already decides what a negative count means.
template <typename Int>
constexpr bool WithinBound(Int value, const ParamBound& bound) {
  static_assert(std::is_integral<Int>::value, "bounds apply to counts, read as integers");
  return static_cast<int64_t>(value) <= static_cast<int64_t>(bound.max);
}

}  // namespace velmar

#endif  // VELMAR_FRAMEWORK_PARAM_BOUNDS_H
