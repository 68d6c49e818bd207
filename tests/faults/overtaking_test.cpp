// SPDX-License-Identifier: MIT
// What a fault must not do to a store that others write to as well: bring an older value back over
// a newer one.
//
// VEXA_OVERTAKING=n tries every n-th place only.
#include <sys/wait.h>
#include <vexadm/vexadm.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <string>
#include <utility>

#include "faults/failing_calls.h"
#include "faults/fault_table.h"
#include "faults/quick_child.h"
#include "faults/saved_files.h"
#include "support/storage_fixture.h"

namespace vexa_test {
namespace {

std::int32_t put(const std::string& value) {
  return dm_pal_write("cfg", 7, "item", 6, value.data(), static_cast<std::int32_t>(value.size()));
}

// Another process, started before any fault is armed. On request it writes a newer value, unless
// a database is locked at that moment; "written" says that the write was acknowledged.
class Rival {
 public:
  Rival() {
    if (pipe(to_.data()) != 0 || pipe(from_.data()) != 0) std::abort();
    pid_ = fork();
    if (pid_ == 0) serve();
    close(to_[0]);
    close(from_[1]);
  }
  Rival(const Rival&) = delete;
  Rival& operator=(const Rival&) = delete;
  ~Rival() {
    close(to_[1]);
    close(from_[0]);
    waitpid(pid_, nullptr, 0);
  }

  bool write_now() const {
    char answer = '?';
    if (write(to_[1], "w", 1) != 1 || read(from_[0], &answer, 1) != 1) std::abort();
    return answer == 'y';
  }

 private:
  [[noreturn]] void serve() const {
    close(to_[1]);
    close(from_[0]);
    vexa_set_log_level(4);
    char request = 0;
    while (read(to_[0], &request, 1) == 1) {
      const char answer = are_free() && put("newer of the rival") == 0 ? 'y' : 'n';
      if (write(from_[1], &answer, 1) != 1) break;
    }
    _exit(0);
  }

  // Without waiting: the writer stands still until it has its answer.
  static bool are_free() {
    for (const std::string& file : {kPrimary, kBackup}) {
      sqlite3* database = nullptr;
      sqlite3_open(file.c_str(), &database);
      const int code = sqlite3_exec(database, "begin exclusive; rollback", nullptr, nullptr, nullptr);
      sqlite3_close(database);
      if (code != SQLITE_OK) return false;
    }
    return true;
  }

  std::array<int, 2> to_ = {};
  std::array<int, 2> from_ = {};
  pid_t pid_ = -1;
};

const Rival* g_rival = nullptr;
bool g_rival_wrote = false;

// The line that is logged between the row and the copy.
void let_the_rival_write(const char* line) {
  if (g_rival == nullptr || std::strstr(line, "ERROR: cp /data/config.db") == nullptr) return;
  g_rival_wrote = std::exchange(g_rival, nullptr)->write_now();
}

class Overtaking : public StorageTest {
 protected:
  void SetUp() override {
    StorageTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    expect_in_child([] {
      vexa_set_log_level(4);
      ASSERT_EQ(put("old"), 0);
    });
    files_ = SavedFiles::take();
  }

  // Tries the body with a fault at place 1, 2, 3 ... until there are no more places. The body says
  // "end" when its fault did not come.
  void everywhere(const std::function<void(std::uint64_t place)>& body) {
    FaultCount count{.kind = "fault between writers"};
    for (std::uint64_t place = 1; !HasFailure(); place += how_many("VEXA_OVERTAKING", step(), 1)) {
      SCOPED_TRACE("place " + std::to_string(place));
      files_.put_back();
      const QuickResult result = run_quickly([&] { body(place); });
      EXPECT_EQ(result.exit_code, 0) << "signal " << result.signal << "\n" << result.out;
      if (result.out.find("end of places") != std::string::npos) break;
      ++count.tried;
      if (result.exit_code != 0) ++count.failed;
    }
    EXPECT_GT(count.tried, 10U);
    report(count);
  }

  static std::uint64_t step() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return 11;
#else
    return is_emulated() ? 11 : 3;
#endif
  }
  SavedFiles files_;
};

TEST_F(Overtaking, OfAWriteOfAnotherProcessNeverHappens) {
  everywhere([](std::uint64_t place) {
    const Rival rival;
    g_rival = &rival;
    set_print_interface(let_the_rival_write);
    std::int32_t result = -1;
    {
      const FailingCalls fault({place, 1, EIO, "config"});
      result = put("older of the two");
    }
    g_rival = nullptr;
    if (FailingCalls::failed() == 0) std::printf("end of places");
    const std::string wanted = g_rival_wrote ? "newer of the rival" : "older of the two";
    if (result == 0 || g_rival_wrote) {
      const std::string found = read_item("item").value;
      EXPECT_TRUE(found == wanted || (!g_rival_wrote && found == "old")) << found << ", wanted " << wanted;
    }
    expect_in_child([] { EXPECT_EQ(put("next"), 0); });
    EXPECT_EQ(read_item("item").value, "next");
  });
}

}  // namespace
}  // namespace vexa_test
