// Every operator new of a test program: counted, and failing where a test wants it.
#include <cstdlib>
#include <new>

#include "support/fake_platform.h"

using test::Allocations;

void* Allocations::Allocate(size_t size, bool is_throwing) noexcept {
  if ((is_throwing ? throwing_before_failure : nothrow_before_failure)-- == 0) {
    has_failed = true;
    return nullptr;
  }
  ++count;
  ++outstanding;
  last_size = size;
  return malloc(size);
}

void Allocations::Deallocate(void* block) noexcept {
  if (block != nullptr) --outstanding;
  free(block);
}

void* operator new(size_t size) {
  if (void* block = Allocations::Allocate(size, true)) return block;
  throw std::bad_alloc();
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return Allocations::Allocate(size, false);
}
void* operator new[](size_t size) {
  return operator new(size);
}
void operator delete(void* block) noexcept {
  Allocations::Deallocate(block);
}
void operator delete(void* block, size_t) noexcept {
  Allocations::Deallocate(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  Allocations::Deallocate(block);
}
void operator delete[](void* block) noexcept {
  Allocations::Deallocate(block);
}
void operator delete[](void* block, size_t) noexcept {
  Allocations::Deallocate(block);
}
