// Allocation-failure injection for tests. The test program that links
// alloc_injection.cpp replaces malloc, calloc, realloc, free, the aligned
// allocators and operator new/delete for the whole process (the library,
// the C++ runtime and every other shared library included) and forwards
// them to the allocator that would otherwise serve them (the C library's,
// or the address sanitizer's). While armed it counts allocations, and it
// keeps the blocks allocated meanwhile, so that a test can tell what a call
// left behind.
//
// Armed for a sweep, it makes every allocation fail once: at each
// allocation the process forks, the child carries on with that allocation
// failing and the parent waits for it and carries on with the allocation
// made. A run thus costs one run plus, per allocation, what the child does
// after the failure (usually little: the failure ends the call).
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kelo::test::alloc {

// Counts allocations from now on, failing none.
void arm();

// Counts allocations from now on and fails each of them once, in a child
// process (see above).
void arm_sweep();

// Stops counting; returns the number of allocations since arm().
long disarm();

// In a child of a sweep: the number of the allocation that failed, else 0.
long failed_allocation();

// Called in every child of a sweep right after it starts (allocations
// paused), for example to give it a working folder of its own.
void on_fork(void (*child)());

// In a child: hands the child's verdict to the parent and ends the child.
[[noreturn]] void report(const std::string& verdict);

// In the parent, after a sweep: one entry per child.
struct Child {
  long allocation;      // the allocation that failed in it
  int status;           // as waitpid() gives it
  std::string verdict;  // as report() gave it ("" if the child died)
};
std::vector<Child> children();

// Blocks allocated while armed that have not been freed since (also after
// disarm()), and the number (counted from arm()) of the earliest of them;
// forget() empties the list.
std::size_t outstanding();
long first_outstanding();
void forget();

// Allocations made on a thread between pause() and resume() (or while a
// Pause exists) are neither counted nor failed nor kept: test scaffolding
// that runs inside an armed call.
void pause();
void resume();
class Pause {
 public:
  Pause() { pause(); }
  ~Pause() { resume(); }
  Pause(const Pause&) = delete;
  Pause& operator=(const Pause&) = delete;
};

}  // namespace kelo::test::alloc
