#pragma once

#include <set>

// While set, the blocks of the global operator new that are alive (defined with the replaced
// operators in AllocationTracker.cpp), so that a test can tell whether an operation freed what
// it allocated. One thread at a time.
extern std::set<void*>* g_liveBlocks;
