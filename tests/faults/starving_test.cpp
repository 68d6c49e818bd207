// SPDX-License-Identifier: MIT
// Every exported function with each of its allocations failing, one alone and all from there on:
// the documented code and line, or the assertion with its line.
//
// VEXA_FAULT_CASES=all tries every allocation, as the long form does; a number tries about so many
// cases for each operation.
#include "faults/fault_case.h"

namespace vexa_test {
namespace {

class StarvingOf : public StorageTest, public ::testing::WithParamInterface<Operation> {};

TEST_P(StarvingOf, IsAnsweredWithTheCodeAndLosesNothing) {
  if (IsSkipped()) return;
#if !VEXA_TEST_OWN_ALLOC
  GTEST_SKIP() << "the sanitizer has its own allocator";
#endif
  const Operation& operation = GetParam();
  FaultRun<FailingAlloc> run(operation, "starved allocation");
  const std::uint64_t places = run.places();
  EXPECT_EQ(places > 0, operation.reach == Reach::kFiles || operation.reach == Reach::kMemory);
  const std::uint64_t wanted = cases_wanted(operation.thorough ? 60 : 30);
  const std::uint64_t step = wanted == UINT64_MAX ? 1 : std::max<std::uint64_t>(1, 2 * places / wanted);
  for (std::uint64_t place = 1; place <= places && run.goes_on(); ++place) {
    if (!run.is_chosen(place, step)) continue;
    run.attempt({place, 1, ENOMEM});
    run.attempt({place, kFromThereOn, ENOMEM});
  }
  // A thinned run may pass over the one allocation that has it.
  const bool tried_all_of_its_own = operation.thorough && !is_emulated();
  EXPECT_TRUE(run.aborted() > 0 || *operation.assertion == '\0' || !tried_all_of_its_own) << "the assertion";
  std::printf("%s: %llu allocations\n", operation.name, static_cast<unsigned long long>(places));
}

INSTANTIATE_TEST_SUITE_P(Functions, StarvingOf, ::testing::ValuesIn(all_operations()), operation_name);

}  // namespace
}  // namespace vexa_test
