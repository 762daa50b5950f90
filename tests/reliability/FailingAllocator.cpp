#include "FailingAllocator.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace velmar {
namespace alloctest {
namespace {

std::atomic<uint64_t> g_count{0};
std::atomic<uint64_t> g_fail_at{0};
std::atomic<bool> g_failed{false};
std::atomic<std::size_t> g_live{0};

void* Allocate(std::size_t size, std::size_t alignment) {
  const uint64_t number = ++g_count;
  if (number == g_fail_at.load(std::memory_order_relaxed)) {
    g_failed = true;
    return nullptr;
  }
  const std::size_t bytes = size == 0 ? 1 : size;
  void* block =
      alignment <= alignof(std::max_align_t)
          ? std::malloc(bytes)
          : std::aligned_alloc(alignment, (bytes + alignment - 1) / alignment * alignment);
  if (block != nullptr) {
    g_live += malloc_usable_size(block);
  }
  return block;
}

void Release(void* block) {
  if (block != nullptr) {
    g_live -= malloc_usable_size(block);
    std::free(block);
  }
}

void* AllocateOrThrow(std::size_t size, std::size_t alignment) {
  void* block = Allocate(size, alignment);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}

}  // namespace

void FailAllocation(uint64_t n) {
  g_fail_at = 0;
  g_failed = false;
  g_count = 0;
  g_fail_at = n;
}

uint64_t Allocations() {
  return g_count.load();
}

bool Failed() {
  return g_failed.load();
}

std::size_t LiveBytes() {
  return g_live.load();
}

}  // namespace alloctest
}  // namespace velmar

using velmar::alloctest::Allocate;
using velmar::alloctest::AllocateOrThrow;
using velmar::alloctest::Release;

constexpr std::size_t kPlain = alignof(std::max_align_t);

void* operator new(std::size_t size) {
  return AllocateOrThrow(size, kPlain);
}
void* operator new[](std::size_t size) {
  return AllocateOrThrow(size, kPlain);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size, kPlain);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size, kPlain);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return AllocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return AllocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* block) noexcept {
  Release(block);
}
void operator delete[](void* block) noexcept {
  Release(block);
}
void operator delete(void* block, std::size_t) noexcept {
  Release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  Release(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
  Release(block);
}
void operator delete[](void* block, std::align_val_t) noexcept {
  Release(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
  Release(block);
}
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept {
  Release(block);
}
