// The C interface with each of its allocations failing, one after another: a code says so, and what
// it promises not to be NULL is not.

#include "tests/support/FailingAllocations.h"
#include "varo/varo.h"

#include <gtest/gtest.h>

#include <array>

namespace varo {
namespace {

using test::Failing;
using test::FailingAllocations;
using test::forEachAllocation;

/// As no text of so many bytes is kept without an allocation.
constexpr const char* kLongName = "a name that is longer than what fits into a string itself";

TEST(CAllocationTest, CreationAndRefusalComeToACode) {
  const std::array headers = {varo_pair{kLongName, kLongName}};
  forEachAllocation(5, [&](std::size_t n) {
    bool haveFailed = false;
    for (const char* url : {"http://a.host.whose.name.is.long.enough.example", "ftp://host"}) {
      varo_options options = {};
      options.size = sizeof options;
      options.url = url;
      options.headers = headers.data();
      options.header_count = headers.size();
      varo_files* files = nullptr;
      varo_failure* failure = nullptr;
      varo_code code = VARO_PENDING;
      bool isFailing = false;
      {
        const FailingAllocations failing(n, Failing::kOne);
        code = varo_files_create(&options, &files, &failure);
        isFailing = n > 0 && FailingAllocations::haveFailed();
      }
      EXPECT_EQ(files != nullptr, code == VARO_OK);
      if (!isFailing) {
        EXPECT_NE(code, VARO_NO_MEMORY);
      }
      EXPECT_EQ(failure == nullptr, code == VARO_OK) << "whoever is refused may read why";
      if (failure != nullptr) {
        EXPECT_EQ(failure->code, code);
        EXPECT_STRNE(failure->message, "");
      }
      haveFailed |= isFailing;
      varo_failure_free(failure);
      varo_files_free(files);
    }
    return haveFailed;
  });
}

class CAllocationOutcomeTest : public testing::TestWithParam<Failing> {};

TEST_P(CAllocationOutcomeTest, OutcomesOfLookUpsAreNeverNull) {
  forEachAllocation(3, [](std::size_t n) {
    varo_outcome* outcome = nullptr;
    bool haveFailed = false;
    {
      const FailingAllocations failing(n, GetParam());
      outcome = varo_blobs_states(nullptr);
      haveFailed = n > 0 && FailingAllocations::haveFailed();
    }
    EXPECT_NE(outcome, nullptr);
    EXPECT_EQ(varo_outcome_code(outcome), haveFailed ? VARO_NO_MEMORY : VARO_INVALID_ARGUMENT);
    EXPECT_NE(varo_outcome_failure(outcome), nullptr);
    varo_outcome_free(outcome);
    return haveFailed;
  });
}

// From then on first: nothing that says so may need memory when it is used first.
INSTANTIATE_TEST_SUITE_P(Memory, CAllocationOutcomeTest,
                         testing::Values(Failing::kFromThen, Failing::kOne));

}  // namespace
}  // namespace varo
