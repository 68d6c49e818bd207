// SPDX-License-Identifier: MIT
// A signal handler of the host does not cut what a command prints.
#include "faults/signal_storm.h"
#include "support/storage_fixture.h"

namespace vexa_test {
namespace {

#ifdef __SANITIZE_THREAD__
constexpr unsigned kFewest = 1;  // it puts signals off, and hands on one where many came
#else
constexpr unsigned kFewest = 5;
#endif

class FailingOutput : public StorageTest {};

// The command is still silent when the first of them arrive.
TEST_F(FailingOutput, OfACommandIsReadOnAfterASignal) {
  expect_in_child([] {
    const SignalStorm storm(2000);
    char output[16] = {};
    EXPECT_EQ(dm_sqlite_system_cmd("sleep 0.1; printf 12; sleep 0.1; printf 345", output, 15), 0u);
    EXPECT_GE(SignalStorm::seen(), kFewest);
    EXPECT_STREQ(output, "12345");
  });
}

}  // namespace
}  // namespace vexa_test
