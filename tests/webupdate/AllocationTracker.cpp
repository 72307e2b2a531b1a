#include "webupdate/AllocationTracker.h"

#include <cstdlib>
#include <mutex>
#include <new>

namespace {

bool g_tracking = false;
std::set<void*>* g_live = nullptr;
std::mutex g_mutex;

// The set's own nodes must not be tracked.
thread_local bool g_inside = false;

void remember(void* block) {
  if (!g_tracking || g_inside || block == nullptr)
    return;
  std::lock_guard<std::mutex> lock(g_mutex);
  g_inside = true;
  g_live->insert(block);
  g_inside = false;
}

void forget(void* block) {
  if (!g_tracking || g_inside || block == nullptr)
    return;
  std::lock_guard<std::mutex> lock(g_mutex);
  g_inside = true;
  g_live->erase(block);
  g_inside = false;
}

}  // namespace

void* operator new(std::size_t size) {
  void* block = std::malloc(size != 0 ? size : 1);
  if (block == nullptr)
    throw std::bad_alloc();
  remember(block);
  return block;
}

void* operator new[](std::size_t size) {
  return operator new(size);
}

void operator delete(void* block) noexcept {
  forget(block);
  std::free(block);
}

void operator delete[](void* block) noexcept {
  operator delete(block);
}

void operator delete(void* block, std::size_t) noexcept {
  operator delete(block);
}

void operator delete[](void* block, std::size_t) noexcept {
  operator delete(block);
}

namespace allocations {

void start() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_inside = true;
  delete g_live;
  g_live = new std::set<void*>();
  g_inside = false;
  g_tracking = true;
}

std::set<void*> stop() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_tracking = false;
  g_inside = true;
  std::set<void*> live = *g_live;
  g_inside = false;
  return live;
}

}  // namespace allocations
