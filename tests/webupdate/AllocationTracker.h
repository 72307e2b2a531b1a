#pragma once

#include <cstddef>
#include <set>

// Counts the blocks of the global operator new that are still alive, between start() and
// stop(), so that a test can tell whether an operation freed what it allocated.
namespace allocations {

void start();
// The blocks allocated since start() and not freed yet.
std::set<void*> stop();

}  // namespace allocations
