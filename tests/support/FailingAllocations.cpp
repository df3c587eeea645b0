#include "tests/support/FailingAllocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace varo::test {
namespace {

std::atomic<std::size_t> firstFailing{0};  // 0: none
std::atomic<std::size_t> lastFailing{0};
std::atomic<std::size_t> seen{0};

bool failsNow() noexcept {
  const std::size_t first = firstFailing.load();
  if (first == 0) return false;
  const std::size_t number = seen.fetch_add(1) + 1;
  return number >= first && number <= lastFailing.load();
}

}  // namespace

FailingAllocations::FailingAllocations(std::size_t first, Failing failing) noexcept {
  seen = 0;
  lastFailing = failing == Failing::kOne ? first : static_cast<std::size_t>(-1);
  firstFailing = first;
}

FailingAllocations::~FailingAllocations() { firstFailing = 0; }

bool FailingAllocations::haveFailed() noexcept { return seen >= firstFailing; }

}  // namespace varo::test

void* operator new(std::size_t size) {
  if (varo::test::failsNow()) throw std::bad_alloc();
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
