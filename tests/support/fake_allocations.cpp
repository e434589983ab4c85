// Every operator new of a test program: counted, and failing where a test wants it.
#include <cstdlib>
#include <new>

#include "support/fake_platform.h"

using test::Allocations;

static void* Allocate(size_t size, int64_t& before_failure) noexcept {
  if (before_failure-- == 0) {
    Allocations::has_failed = true;
    return nullptr;
  }
  ++Allocations::count;
  ++Allocations::outstanding;
  Allocations::last_size = size;
  return malloc(size);
}

void* operator new(size_t size) {
  if (void* block = Allocate(size, Allocations::before_throwing)) return block;
  throw std::bad_alloc();
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size, Allocations::before_null);
}
void* operator new[](size_t size) {
  return operator new(size);
}
void operator delete(void* block) noexcept {
  if (block != nullptr) --Allocations::outstanding;
  free(block);
}
void operator delete(void* block, size_t) noexcept {
  operator delete(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  operator delete(block);
}
void operator delete[](void* block) noexcept {
  operator delete(block);
}
void operator delete[](void* block, size_t) noexcept {
  operator delete(block);
}
