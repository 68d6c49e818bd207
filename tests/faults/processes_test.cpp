// SPDX-License-Identifier: MIT
// Takes several seconds. Up to eight processes at a time read, write, start and build defaults
// over one store, and are killed at any moment; every read is judged by the item's history, and
// each round ends with a quiet store that must be whole.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "faults/fault_table.h"
#include "faults/quick_child.h"
#include "faults/store_user.h"
#include "support/storage_fixture.h"

namespace vexa_test {
namespace {

using Clock = std::chrono::steady_clock;

// A process that takes longer hangs: its calls wait for locks at most three seconds each.
constexpr unsigned kMostSeconds = 40;

#if defined(__SANITIZE_ADDRESS__)
constexpr std::uint64_t kEveryday = 10;  // a start takes several times as long
#else
constexpr std::uint64_t kEveryday = 50;
#endif

enum class Role : std::uint8_t { kWriter, kReader, kStarter, kBuilder };

// ---- What a process does ----

// The end of the library's log, for a process that complains.
std::string log_tail;

void keep_line(const char* line) {
  log_tail += line;
  if (log_tail.size() > 12000) log_tail.erase(0, 6000);
}

void write_some(StoreUser& user, unsigned item) {
  if (user.below(4) == 0) user.write_same(item);
  for (unsigned left = 1 + user.below(5); left > 0; --left) {
    user.write_next(item, user.below(5) == 0 ? StoreUser::By::kWriteDb : StoreUser::By::kWrite);
    if (user.below(3) == 0) user.expect_stored(item);
    if (user.below(6) == 0) user.write_same(item);
  }
}

void read_some(StoreUser& user) {
  for (unsigned item = 1; item <= kItems; ++item) user.read(item, From::kFile);
  for (unsigned left = user.below(10); left > 0; --left) {
    const unsigned item = 1 + user.below(kItems);
    switch (user.below(3)) {
      case 0:
        user.read_again(item);
        break;
      case 1:
        user.read_file(item);
        break;
      default:
        user.refresh(item);
        break;
    }
  }
}

// True when nothing was to be complained of.
bool act(Board& board, Role role, unsigned item, unsigned seed) {
  set_print_interface(keep_line);
  vexa_set_log_level(3);
  vexa_dm_reg_def_items(shared_item_table());
  vexa_dm_reg_event_callback(StoreUser::count_event);
  vexa_dm_handle* const handle = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
  board.add(kStarts);
  StoreUser user(board, handle, seed);
  switch (role) {
    case Role::kWriter:
      write_some(user, item);
      break;
    case Role::kReader:
      read_some(user);
      break;
    case Role::kBuilder:
      user.build_defaults();
      break;
    case Role::kStarter:
      break;
  }
  if (user.complaints().empty()) return true;
  std::printf("%s%s\n", user.complaints().c_str(), log_tail.c_str());
  std::fflush(stdout);
  return false;
}

// ---- A round ----

struct Process {
  pid_t pid = -1;
  unsigned item = 0;  // the one it writes
  bool killed = false;
};

class Round {
 public:
  Round(Board& board, unsigned seed) : board_(board), random_(seed) {}

  // Nobody is left when it returns.
  void run() {
    const unsigned width = 1 + below(8);
    const unsigned patience = 200 + below(4000);  // microseconds between two looks
    unsigned left = width + below(3 * width);
    const auto deadline = Clock::now() + std::chrono::seconds(kMostSeconds);
    while (left > 0 || !running_.empty()) {
      for (; left > 0 && running_.size() < width; --left) start();
      usleep(below(patience));
      if (below(3) == 0) kill_one();
      reap();
      if (Clock::now() > deadline) return give_up();
    }
  }

  unsigned started() const { return started_; }
  unsigned killed() const { return killed_; }

 private:
  unsigned below(unsigned end) { return static_cast<unsigned>(random_() % end); }

  Role choose_role() {
    constexpr std::array<Role, 10> kRoles = {Role::kWriter,  Role::kWriter, Role::kWriter, Role::kWriter,
                                             Role::kWriter,  Role::kReader, Role::kReader, Role::kReader,
                                             Role::kStarter, Role::kBuilder};
    return kRoles[below(kRoles.size())];
  }

  void start() {
    Role role = choose_role();
    const unsigned item = 1 + below(kItems);
    if (role == Role::kWriter && std::exchange(written_[item], true)) role = Role::kReader;
    const auto seed = static_cast<unsigned>(random_());
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      const rlimit none = {0, 0};
      setrlimit(RLIMIT_CORE, &none);
      _exit(act(board_, role, item, seed) ? 0 : 1);
    }
    ASSERT_GT(pid, 0);
    ++started_;
    running_.push_back({pid, role == Role::kWriter ? item : 0});
  }

  void kill_one() {
    if (running_.empty()) return;
    Process& process = running_[below(static_cast<unsigned>(running_.size()))];
    kill(process.pid, SIGKILL);
    process.killed = true;
  }

  void reap() {
    std::erase_if(running_, [this](const Process& process) {
      int status = 0;
      if (waitpid(process.pid, &status, WNOHANG) != process.pid) return false;
      ended(process, status);
      return true;
    });
  }

  void ended(const Process& process, int status) {
    if (process.item != 0) {
      board_.items[process.item].writer_ended();
      written_[process.item] = false;
    }
    if (WIFSIGNALED(status) && process.killed) {
      ++killed_;
    } else {
      EXPECT_EQ(status, 0) << "process " << process.pid;
    }
  }

  void give_up() {
    ADD_FAILURE() << running_.size() << " processes hang";
    for (const Process& process : running_) {
      kill(process.pid, SIGKILL);
      waitpid(process.pid, nullptr, 0);
    }
    running_.clear();
  }

  Board& board_;
  std::mt19937 random_;
  std::vector<Process> running_;
  std::array<bool, kItems + 1> written_ = {};
  unsigned started_ = 0;
  unsigned killed_ = 0;
};

// ---- The test ----

class Processes : public StorageTest {
 protected:
  // Every item as its history has it, before and after the next write; then both files healthy and
  // the same, and nothing left lying about.
  void expect_whole_store(unsigned seed) {
    for (const bool with_write : {false, true}) {
      const QuickResult result = run_quickly([&] { look_at_all(seed, with_write); }, kMostSeconds);
      EXPECT_EQ(result.exit_code, 0) << "signal " << result.signal << "\n" << result.out;
    }
    EXPECT_TRUE(read_file(kBackup) == read_file(kPrimary)) << "the backup is not the primary";
    for (const std::string& name : names_in("/data")) {
      EXPECT_TRUE(name == "config.db" || name == "configbak.db" || name == "state.db" ||
                  name == "DefItems.db")
          << name << " is left over";
    }
  }

  SharedBoard board_;

 private:
  void look_at_all(unsigned seed, bool with_write) {
    vexa_dm_reg_def_items(shared_item_table());
    vexa_dm_handle* const handle = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
    vexa_set_log_level(4);
    if (with_write) {
      const std::string value = value_of(kProbe, seed);
      EXPECT_EQ(vexa_dm_write(handle, kProbe, value.data(), static_cast<std::int32_t>(value.size())), 0);
      EXPECT_EQ(journal_row(kJournal).substr(0, 11), "cfg,7,probe");
    }
    StoreUser user(*board_, handle, seed);
    for (unsigned item = 1; item <= kItems; ++item) user.read(item, From::kFile);
    // Clears the journal of one that was killed before it had written anything: no reader does.
    if (with_write && exists(kDefaults)) user.build_defaults();
    EXPECT_EQ(user.complaints(), "");
    if (!with_write) return;
    EXPECT_EQ(check_database_health(kPrimary.c_str()), 0u);
    EXPECT_EQ(check_database_health(kBackup.c_str()), 0u);
    EXPECT_EQ(query(kJournal, "pragma quick_check"), "ok");
    if (!exists(kDefaults)) return;
    EXPECT_EQ(query(kDefaults, "pragma quick_check"), "ok");
  }
};

// Counts the rounds in which something happened that the caveats name.
class NamedRounds {
 public:
  explicit NamedRounds(FaultCount& count) : count_(count) {}

  void look(const SharedBoard& board) {
    const std::array<std::uint64_t, 4> now = {board.sum(kLateWrites), board.sum(kLateReads),
                                              board.sum(kDefaultsCut), board.came_back()};
    for (std::size_t i = 0; i < now.size(); ++i) {
      if (now[i] != before_[i]) ++count_.named[kNames[i]];
    }
    if (now != before_) ++count_.with_a_name;
    before_ = now;
  }

 private:
  static constexpr std::array<const char*, 4> kNames = {
      "write waited 3 s for a lock", "read waited 3 s for a lock",
      "a cut while the defaults are first stored", "a write that was not acknowledged may come back later"};

  FaultCount& count_;
  std::array<std::uint64_t, 4> before_ = {};
};

void print_sums(const SharedBoard& board, unsigned started, unsigned killed) {
  std::printf(
      "processes: %u, killed %u; acknowledged: %ju values, %ju emptyings, %ju pairs, %ju defaults built\n",
      started, killed, board.sum(kWrites), board.sum(kEmptied), board.sum(kPairWrites),
      board.sum(kDefaultsBuilt));
  std::printf(
      "skipped as the same: %ju; read: %ju from files, %ju cached; late: %ju writes, %ju reads; came back: "
      "%ju\n",
      board.sum(kSkipped), board.sum(kReads), board.sum(kCachedReads), board.sum(kLateWrites),
      board.sum(kLateReads), board.came_back());
}

TEST_F(Processes, KilledAtAnyMomentLoseNothingThatWasAcknowledged) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "one thread each: nothing for this sanitizer, and thousands of its processes";
#endif
  const auto seed = static_cast<unsigned>(how_many("VEXA_PROCESSES_SEED", 20, 20));
  const std::uint64_t rounds = how_many_cases("VEXA_PROCESSES_ROUNDS", kEveryday, 3000);
  std::printf("seed %u\n", seed);
  std::mt19937 random(seed);
  FaultCount count;
  count.kind = "several processes";
  NamedRounds named(count);
  unsigned started = 0;
  unsigned killed = 0;

  for (std::uint64_t i = 0; i < rounds && !HasFailure(); ++i) {
    SCOPED_TRACE("seed " + std::to_string(seed) + " round " + std::to_string(i));
    // Now and then from the first start on, which is killed too.
    if (random() % 6 == 0) board_.begin_with_empty_device();
    Round round(*board_, static_cast<unsigned>(random()));
    round.run();
    started += round.started();
    killed += round.killed();
    expect_whole_store(static_cast<unsigned>(random()));
    named.look(board_);
    ++count.tried;
    if (HasFailure()) ++count.failed;
  }

  print_sums(board_, started, killed);
  report(count);
}

}  // namespace
}  // namespace vexa_test
