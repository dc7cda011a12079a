// Exact count of the heap a piece of code uses: this program replaces
// malloc and its family with thin forwarders to the C library's allocator
// that, while counting is on, add up the usable size of every block handed
// out and taken back. The library's allocations (through malloc and calloc)
// and the C++ runtime's (operator new) all pass through them.
#ifndef TEV_BENCH_HEAP_COUNTER_H
#define TEV_BENCH_HEAP_COUNTER_H

#include <cstdint>

namespace tevbench {

// Starts counting from zero.
void startHeapCount();
// Stops counting; the highest number of live bytes seen since the start
// (blocks freed that were allocated before the start count negative).
int64_t stopHeapCount();

}  // namespace tevbench

#endif  // TEV_BENCH_HEAP_COUNTER_H
