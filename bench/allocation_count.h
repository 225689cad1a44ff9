#ifndef BENCH_ALLOCATION_COUNT_H_
#define BENCH_ALLOCATION_COUNT_H_

#include <cstddef>

namespace bench {

// Allocations through operator new since the program's start. A file of its own, so that the
// compiler does not inline the operators into each other.
std::size_t AllocationCount();

}  // namespace bench

#endif  // BENCH_ALLOCATION_COUNT_H_
