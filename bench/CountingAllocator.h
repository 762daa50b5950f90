// Counts the heap allocations of the benchmark process, so that a benchmark can report how many
// allocations one frame costs in steady state.
#ifndef VELMAR_BENCH_COUNTING_ALLOCATOR_H
#define VELMAR_BENCH_COUNTING_ALLOCATOR_H

#include <cstdint>

namespace velmar {
namespace bench {

// Allocations made by this process so far (every operator new).
uint64_t AllocationCount();

}  // namespace bench
}  // namespace velmar

#endif  // VELMAR_BENCH_COUNTING_ALLOCATOR_H
