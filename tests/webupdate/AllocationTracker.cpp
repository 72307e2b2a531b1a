#include "webupdate/AllocationTracker.h"

#include <cstdlib>
#include <new>
#include <utility>

std::set<void*>* g_liveBlocks = nullptr;

void* operator new(std::size_t size) {
  void* block = std::malloc(size != 0 ? size : 1);
  if (block == nullptr)
    throw std::bad_alloc();
  if (std::set<void*>* live = std::exchange(g_liveBlocks, nullptr)) {  // Not the set's own nodes.
    live->insert(block);
    g_liveBlocks = live;
  }
  return block;
}

void operator delete(void* block) noexcept {
  if (std::set<void*>* live = std::exchange(g_liveBlocks, nullptr)) {
    live->erase(block);
    g_liveBlocks = live;
  }
  std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
  operator delete(block);
}
