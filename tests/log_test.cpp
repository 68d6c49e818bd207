// SPDX-License-Identifier: MIT
#include "vexadm/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vexadm/data_manager.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/child.h"
#include "support/log_capture.h"
#include "support/wall_clock.h"
#include "vexadm/strings.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::StartsWith;
using vexa_test::ChildResult;
using vexa_test::LogCapture;
using vexa_test::run_in_child;
using vexa_test::wall_clock;

using Message = std::array<char, VEXA_LOG_MESSAGE_SIZE>;

std::vector<std::string> g_lines;
void keep(const char* line) { g_lines.emplace_back(line); }

class Logger : public ::testing::Test {
 protected:
  void SetUp() override { set_print_interface(keep); }

  static bool all_zero(const Message& message) { return message == Message{}; }

  Message message_{};
};

struct FreeText {
  void operator()(char* text) const { std::free(text); }
};
using OwnedText = std::unique_ptr<char, FreeText>;

OwnedText rewrite(const char* name) { return OwnedText(rewrite_func_name(name)); }

// Leaves the process without a byte to allocate. Only for children, and not under a sanitizer,
// whose allocator has rules of its own.
void use_up_memory() {
  const rlimit none = {0, 0};
  setrlimit(RLIMIT_AS, &none);
  for (std::size_t size = std::size_t{1} << 20; size > 0; size /= 2) {
    while (void* volatile block = std::malloc(size)) static_cast<void>(block);
  }
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kOwnAllocator = true;
#else
constexpr bool kOwnAllocator = false;
#endif

// ---- Level ------------------------------------------------------------------

TEST(LogLevel, IsInfoInAFreshProcess) { EXPECT_EQ(vexa_get_log_level(), 1); }

TEST(LogLevel, OneToFourAreKept) {
  for (const int level : {1, 2, 3, 4}) {
    vexa_set_log_level(level);
    EXPECT_EQ(vexa_get_log_level(), level);
  }
}

TEST(LogLevel, AnythingElseShowsEverything) {
  for (const int level : {0, 5, 6, -1, -2, 1000, INT32_MIN, INT32_MAX}) {
    vexa_set_log_level(4);
    vexa_set_log_level(level);
    EXPECT_EQ(vexa_get_log_level(), 0) << level;
  }
}

TEST(LogTool, IsOffInAFreshProcessAndKeepsItsFlagAsGiven) {
  EXPECT_EQ(vexa_get_log_tool_enable(), 0);
  vexa_set_log_tool_enable(-7);
  EXPECT_EQ(vexa_get_log_tool_enable(), -7);
  vexa_set_log_tool_enable(0);
  EXPECT_EQ(vexa_get_log_tool_enable(), 0);
}

// ---- Filter -----------------------------------------------------------------

TEST_F(Logger, BelowTheLevelReturnsZeroAndLeavesTheBufferAlone) {
  EXPECT_EQ(vexa_log_printf(0, message_.data(), "f", 1, "hidden\n"), 0);
  EXPECT_TRUE(all_zero(message_));
  EXPECT_THAT(g_lines, IsEmpty());
  EXPECT_STREQ(log_msg, "");
}

TEST_F(Logger, AtTheLevelEmitsALine) {
  EXPECT_EQ(vexa_log_printf(1, message_.data(), "f", 1, "shown %d\n", 7), 0);
  EXPECT_STREQ(message_.data(), "shown 7\n");
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_THAT(g_lines[0], EndsWith("] | f 1 | shown 7\n"));
}

TEST_F(Logger, EachCurrentLevelPassesItselfAndWhatIsAbove) {
  for (int current = 0; current <= 4; ++current) {
    vexa_set_log_level(current);
    for (int level = 0; level <= 5; ++level) {
      g_lines.clear();
      vexa_log_printf(level, message_.data(), "f", 1, "x");
      EXPECT_EQ(g_lines.size(), level >= current ? 1u : 0u) << current << " " << level;
    }
  }
}

TEST_F(Logger, ComparesLevelsWithTheirSign) {
  vexa_set_log_level(0);
  vexa_log_printf(-2, message_.data(), "f", 1, "x");
  EXPECT_THAT(g_lines, IsEmpty());
}

TEST_F(Logger, LevelMinusOnePassesAtTheHighestLevelWithoutATag) {
  vexa_set_log_level(4);
  vexa_log_printf(-1, message_.data(), "f", 1, "x");
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_THAT(g_lines[0], HasSubstr(" : (null) | ["));
}

// ---- Line -------------------------------------------------------------------

struct TagRow {
  int level;
  const char* tag;
};

class LoggerTag : public Logger, public ::testing::WithParamInterface<TagRow> {};

TEST_P(LoggerTag, StandsBetweenTimeAndProcess) {
  vexa_set_log_level(0);
  vexa_log_printf(GetParam().level, message_.data(), "f", 1, "x");
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_EQ(g_lines[0].substr(23, 12), std::string(" : ") + GetParam().tag + " | [");
}

INSTANTIATE_TEST_SUITE_P(OfEachLevel, LoggerTag,
                         ::testing::Values(TagRow{0, " DBUG"}, TagRow{1, " INFO"}, TagRow{2, "-WRN-"},
                                           TagRow{3, "=ERR="}, TagRow{4, "*CRT*"}));

TEST_F(Logger, LevelFiveHasNoTagOfItsOwn) {
  vexa_log_printf(5, message_.data(), "f", 1, "x");
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_THAT(g_lines[0], HasSubstr(" : (null) | ["));
}

TEST_F(Logger, LineHoldsTimeTagProcessThreadFunctionLineAndMessage) {
  pthread_setname_np(pthread_self(), "worker-7");
  vexa_log_printf(3, message_.data(), "vexa_util_send_at", 321, "no %s\n", "answer");

  const std::string expected = std::string(str_t) + " : =ERR= | [" + std::to_string(getpid()) + " | " +
                               std::to_string(get_tid()) + "-worker-7] | oem_util_send_at 321 | no answer\n";
  EXPECT_EQ(g_lines, std::vector<std::string>{expected});
  EXPECT_EQ(log_msg, expected);
}

TEST_F(Logger, TimeIsUtcWithMilliseconds) {
  setenv("TZ", "XYZ-11:30", 1);
  tzset();
  const std::time_t before = std::time(nullptr);
  vexa_log_printf(1, message_.data(), "f", 1, "x");
  const std::time_t after = std::time(nullptr);

  EXPECT_THAT(str_t, MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}"));
  std::tm utc{};
  ASSERT_NE(strptime(str_t, "%Y-%m-%d %H:%M:%S", &utc), nullptr);
  const std::time_t shown = timegm(&utc);
  EXPECT_GE(shown, before);
  EXPECT_LE(shown, after);
}

TEST_F(Logger, MillisecondsAreThoseOfTheClockCutNotRounded) {
  for (const auto& [microseconds, shown] : {std::pair(0, ".000"), std::pair(7999, ".007"),
                                            std::pair(123456, ".123"), std::pair(999999, ".999")}) {
    wall_clock = {1709210096, microseconds};
    vexa_log_printf(1, message_.data(), "f", 1, "x");
    EXPECT_THAT(str_t, EndsWith(shown));
  }
  wall_clock = {-1, 0};
}

TEST_F(Logger, NullFunctionIsShownAsMarker) {
  vexa_log_printf(1, message_.data(), nullptr, 5, "x");
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_THAT(g_lines[0], EndsWith("] | (null) 5 | x"));
}

TEST_F(Logger, EveryLineBeginsWithAClearedText) {
  vexa_log_printf(1, message_.data(), "f", 1, "a long first message");
  vexa_log_printf(1, message_.data(), "f", 1, "b");
  const std::size_t length = std::strlen(log_msg);
  for (std::size_t i = length; i < sizeof log_msg; ++i) ASSERT_EQ(log_msg[i], '\0') << i;
}

TEST_F(Logger, ThreadNameThatCannotBeReadIsNull) {
  const ChildResult child = run_in_child([] {
    // Only the logger's own descriptor is affected: none is left to open the name with.
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_NOFILE, &none);
    set_print_interface(nullptr);
    Message message{};
    vexa_log_printf(1, message.data(), "f", 1, "x\n");
  });
  EXPECT_THAT(child.out, HasSubstr("-NULL] | f 1 | x\n"));
}

TEST_F(Logger, ShowsTheNameAndIdOfTheCallingThread) {
  int tid = 0;
  std::thread([&] {
    pthread_setname_np(pthread_self(), "second");
    tid = get_tid();
    vexa_log_printf(1, message_.data(), "f", 1, "x");
  }).join();
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_NE(tid, getpid());
  EXPECT_THAT(g_lines[0], HasSubstr(" | " + std::to_string(tid) + "-second] | "));
}

TEST(LogThread, IdIsTheKernelsOwn) { EXPECT_EQ(get_tid(), syscall(SYS_gettid)); }

// ---- Limits -----------------------------------------------------------------

TEST_F(Logger, MessageIsCutTo4219Characters) {
  const std::string text(5000, 'm');
  vexa_set_log_tool_enable(1);
  vexa_log_printf(1, message_.data(), "f", 1, "%s", text.c_str());
  EXPECT_EQ(std::strlen(message_.data()), 4219u);
}

TEST_F(Logger, LineIsCutTo4095Characters) {
  const std::string text(4219, 'm');
  vexa_log_printf(1, message_.data(), "f", 1, "%s", text.c_str());
  EXPECT_EQ(std::strlen(message_.data()), 4219u);
  EXPECT_EQ(std::strlen(log_msg), 4095u);
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_EQ(g_lines[0].size(), 4095u);
}

TEST_F(Logger, WithoutABufferTheLineHasAnEmptyMessage) {
  EXPECT_EQ(vexa_log_printf(3, nullptr, "f", 9, "%s", "lost"), 0);
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_THAT(g_lines[0], EndsWith("] | f 9 | "));
}

TEST_F(Logger, WithoutABufferTheToolStillGetsItsTurn) {
  vexa_set_log_tool_enable(1);
  EXPECT_EQ(vexa_log_printf(3, nullptr, "f", 9, "%s", "lost"), 1);
  EXPECT_THAT(g_lines, IsEmpty());
}

// ---- Where lines go ----------------------------------------------------------

TEST_F(Logger, WithTheToolEnabledTheCallerHasTheMessageAndNothingIsEmitted) {
  vexa_log_printf(1, message_.data(), "f", 1, "before");
  const std::string last = log_msg;
  const std::string last_time = str_t;
  g_lines.clear();
  vexa_set_log_tool_enable(2);

  EXPECT_EQ(vexa_log_printf(1, message_.data(), "f", 1, "code %d\n", 5), 1);
  EXPECT_STREQ(message_.data(), "code 5\n");
  EXPECT_EQ(log_msg, last);
  EXPECT_EQ(str_t, last_time);
  EXPECT_THAT(g_lines, IsEmpty());
}

TEST_F(Logger, WithTheToolEnabledFilteredMessagesStayFiltered) {
  vexa_set_log_tool_enable(1);
  EXPECT_EQ(vexa_log_printf(0, message_.data(), "f", 1, "x"), 0);
  EXPECT_TRUE(all_zero(message_));
}

TEST_F(Logger, WithoutACallbackLinesGoToStandardOutputAsTheyAre) {
  const ChildResult child = run_in_child([] {
    set_print_interface(nullptr);
    Message message{};
    vexa_log_printf(2, message.data(), "vexa_x", 4, "100%% %s", "%d%n");
  });
  EXPECT_EQ(child.exit_code, 0);
  EXPECT_THAT(child.out, MatchesRegex("[0-9].*"));
  EXPECT_THAT(child.out, EndsWith("] | oem_x 4 | 100% %d%n"));
  EXPECT_THAT(child.out, HasSubstr(" : -WRN- | ["));
}

TEST_F(Logger, CallbackReceivesTheExportedLine) {
  static const char* received = nullptr;
  set_print_interface([](const char* line) { received = line; });
  vexa_log_printf(1, message_.data(), "f", 1, "x");
  EXPECT_EQ(received, log_msg);
}

TEST_F(Logger, CallbackThatLogsNeverReturns) {
  const ChildResult child = run_in_child(
      [] {
        set_print_interface([](const char*) {
          Message inner{};
          vexa_log_printf(1, inner.data(), "f", 1, "again");
        });
        Message message{};
        vexa_log_printf(1, message.data(), "f", 1, "x");
      },
      1);
  EXPECT_TRUE(child.timed_out);
}

TEST_F(Logger, ThreadsNeverMixTheirLines) {
  constexpr int kLines = 200;
  const auto log_many = [](char letter) {
    const std::string text(100, letter);
    for (int i = 0; i < kLines; ++i) {
      Message message{};
      vexa_log_printf(1, message.data(), "f", 1, "%s", text.c_str());
    }
  };
  std::thread first(log_many, 'a');
  std::thread second(log_many, 'b');
  first.join();
  second.join();

  ASSERT_EQ(g_lines.size(), 2u * kLines);
  for (const std::string& line : g_lines) {
    const std::string text = line.substr(line.size() - 100);
    EXPECT_EQ(text, std::string(100, text[0]));
  }
}

// ---- Call sites of the library -----------------------------------------------

TEST(LogCallSite, EmitsUnderTheFunctionsName) {
  LogCapture log;
  vexa_string_memcpy(nullptr, "x", 1);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].level, 3);
  EXPECT_EQ(log.lines()[0].function, "oem_string_memcpy");
  EXPECT_GT(log.lines()[0].line, 0);
  EXPECT_EQ(log.lines()[0].message, "Invalid string parameter.\n");
}

TEST(LogCallSite, PrintsAConsoleLineWithTheNameAsItIsWhenTheToolIsEnabled) {
  std::string pid;
  const ChildResult child = run_in_child([] {
    vexa_set_log_tool_enable(1);
    vexa_string_memcpy(nullptr, "x", 1);
    std::fprintf(stderr, "%d", getpid());
  });
  EXPECT_EQ(child.out, "oem_fwa[" + child.err + "] vexa_string_memcpy(): Invalid string parameter.\n");
  EXPECT_STREQ(log_msg, "");
}

// The console shows which function it was, also where the message names it otherwise.
TEST(LogCallSite, PrintsReadsUnderTheirOwnNames) {
  const ChildResult child = run_in_child([] {
    vexa_set_log_tool_enable(1);
    vexa_dm_read(nullptr, 1, nullptr, 0);
    vexa_dm_read_from_dbconfigfile(nullptr, 1, nullptr, 0);
    std::fprintf(stderr, "%d", getpid());
  });
  EXPECT_EQ(child.out, "oem_fwa[" + child.err + "] vexa_dm_read(): oem_dm_read param NULL\n" + "oem_fwa[" +
                           child.err + "] vexa_dm_read_from_dbconfigfile(): oem_dm_read param NULL\n");
}

TEST(LogCallSite, PrintsNothingWhenFiltered) {
  const ChildResult child = run_in_child([] {
    vexa_set_log_tool_enable(1);
    vexa_set_log_level(4);
    vexa_string_memcpy(nullptr, "x", 1);
  });
  EXPECT_EQ(child.out, "");
}

TEST(LogCallSite, KeepsErrno) {
  LogCapture log;
  errno = ENOTTY;
  vexa_string_memcpy(nullptr, "x", 1);
  EXPECT_EQ(errno, ENOTTY);
}

TEST(LogCallSite, AssertionSaysWhereAndAborts) {
  const ChildResult child = run_in_child([] { vexa_utf8_Copy(nullptr, "x", 1, nullptr); });
  EXPECT_EQ(child.signal, SIGABRT);
  EXPECT_THAT(child.out, MatchesRegex("vexa_app_os_al, line: [0-9]+\n"));
}

TEST(LogCallSite, WithoutMemoryEmitsTheLineWithoutMessageThreadNameAndRewriting) {
  if (kOwnAllocator) GTEST_SKIP() << "the sanitizer's allocator does not run out like this";
  const ChildResult child = run_in_child([] {
    use_up_memory();
    vexa_string_memcpy(nullptr, "x", 1);
  });
  EXPECT_EQ(child.exit_code, 0);
  EXPECT_THAT(child.out,
              MatchesRegex(".* : =ERR= \\| \\[[0-9]+ \\| [0-9]+-NULL\\] \\| vexa_string_memcpy [0-9]+ \\| "));
}

TEST(LogCallSite, WithoutMemoryPrintsAnEmptyConsoleLineWhenTheToolIsEnabled) {
  if (kOwnAllocator) GTEST_SKIP() << "the sanitizer's allocator does not run out like this";
  const ChildResult child = run_in_child([] {
    vexa_set_log_tool_enable(1);
    use_up_memory();
    vexa_string_memcpy(nullptr, "x", 1);
  });
  EXPECT_THAT(child.out, MatchesRegex("oem_fwa\\[[0-9]+\\] vexa_string_memcpy\\(\\): "));
}

// ---- Function names ----------------------------------------------------------

TEST(FunctionName, BothOccurrencesAreReplacedAndTheNameIsTwoShorter) {
  const OwnedText name = rewrite("vexa_dm_vexa_read");
  EXPECT_STREQ(name.get(), "oem_dm_oem_read");
}

TEST(FunctionName, WithoutTheWordIsCopied) {
  const char* const given = "sqlite_reg";
  const OwnedText name = rewrite(given);
  EXPECT_STREQ(name.get(), "sqlite_reg");
  EXPECT_NE(name.get(), given);
}

TEST(FunctionName, NullGivesNullAndEmptyGivesEmpty) {
  EXPECT_EQ(rewrite_func_name(nullptr), nullptr);
  EXPECT_STREQ(rewrite("").get(), "");
}

TEST(FunctionName, WithoutMemoryGivesNull) {
  if (kOwnAllocator) GTEST_SKIP() << "the sanitizer's allocator does not run out like this";
  const ChildResult child = run_in_child([] {
    use_up_memory();
    _exit(rewrite_func_name("vexa_dm_read") == nullptr ? 7 : 1);
  });
  EXPECT_EQ(child.exit_code, 7);
}

TEST(FunctionName, FindsTheWordAnywhere) {
  EXPECT_STREQ(rewrite("vexa").get(), "oem");
  EXPECT_STREQ(rewrite("my_vexa").get(), "my_oem");
  EXPECT_STREQ(rewrite("vexavexa").get(), "oemoem");
  EXPECT_STREQ(rewrite("vvexa").get(), "voem");
  EXPECT_STREQ(rewrite("vevexa").get(), "veoem");
  EXPECT_STREQ(rewrite("vexvexaa").get(), "vexoema");
}

TEST(FunctionName, PartsAndOtherCasesStay) {
  EXPECT_STREQ(rewrite("vex").get(), "vex");
  EXPECT_STREQ(rewrite("vex_a").get(), "vex_a");
  EXPECT_STREQ(rewrite("VEXA_Vexa").get(), "VEXA_Vexa");
}

}  // namespace
