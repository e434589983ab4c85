// Every operator new of a test program: counted, and failing where a test wants it.
#include <cstdlib>
#include <new>

#include "support/fake_platform.h"

namespace test {

namespace {

int64_t allocation_count = 0;
int64_t outstanding = 0;
size_t last_size = 0;
int64_t nothrow_count = 0;
int64_t throwing_count = 0;
int64_t failing_nothrow_call = -1;
int64_t failing_throwing_call = -1;

}  // namespace

Allocations::~Allocations() {
  Restart();
}

void Allocations::Restart(int64_t failing_nothrow, int64_t failing_throwing) {
  allocation_count = nothrow_count = throwing_count = 0;
  failing_nothrow_call = failing_nothrow;
  failing_throwing_call = failing_throwing;
}

int64_t Allocations::Count() {
  return allocation_count;
}
bool Allocations::HasFailed() {
  return (failing_nothrow_call >= 0 && nothrow_count > failing_nothrow_call) ||
         (failing_throwing_call >= 0 && throwing_count > failing_throwing_call);
}
int64_t Allocations::Outstanding() {
  return outstanding;
}
size_t Allocations::LastSize() {
  return last_size;
}

}  // namespace test

namespace {

void* Allocate(size_t size) noexcept {
  void* const block = malloc(size);
  ++test::allocation_count;
  test::last_size = size;
  if (block != nullptr) ++test::outstanding;
  return block;
}

void Deallocate(void* block) noexcept {
  if (block != nullptr) --test::outstanding;
  free(block);
}

}  // namespace

void* operator new(size_t size) {
  if (test::throwing_count++ == test::failing_throwing_call) throw std::bad_alloc();
  if (void* block = Allocate(size)) return block;
  throw std::bad_alloc();
}

void* operator new(size_t size, const std::nothrow_t&) noexcept {
  if (test::nothrow_count++ == test::failing_nothrow_call) return nullptr;
  return Allocate(size);
}

void* operator new[](size_t size) {
  return operator new(size);
}
void operator delete(void* block) noexcept {
  Deallocate(block);
}
void operator delete(void* block, size_t) noexcept {
  Deallocate(block);
}
void operator delete[](void* block) noexcept {
  Deallocate(block);
}
void operator delete[](void* block, size_t) noexcept {
  Deallocate(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  Deallocate(block);
}
