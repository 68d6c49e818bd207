// SPDX-License-Identifier: MIT
// One operation of the storage backend, made to fail at every place in turn: what is done, and
// what has to hold afterwards.
#ifndef VEXADM_TESTS_FAULTS_FAULT_CASE_H
#define VEXADM_TESTS_FAULTS_FAULT_CASE_H

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "faults/failing_alloc.h"
#include "faults/failing_calls.h"
#include "support/storage_fixture.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace vexa_test {

// ---- The device before: two items, a default, a dated history ----

// The checksum covers an eighth of a value: these differ in every byte.
inline const std::string kOldValue(3000, 'o');
inline const std::string kNewValue(9000, 'n');
inline const std::string kNextValue(500, 'x');
inline const std::string kOtherValue(700, '#');

inline vexa_dm_item_desc g_wanted = item_desc("cfg", "wanted", 6);
inline vexa_dm_item_desc g_other = item_desc("net", "other", 6);
inline vexa_dm_item_desc g_fresh = item_desc("extra", "item", 6);

// What a read of an item may give, as a set.
enum Found : unsigned { kOld = 1, kNew = 2, kMissing = 4, kNext = 8, kTorn = 16 };

struct Looked {
  unsigned found = kMissing;
  std::int32_t code = 0;
};

inline Looked identify(std::int32_t code, const std::uint8_t* bytes) {
  if (code == -1 || code == -100) return {kMissing, code};
  if (code < 0) return {kTorn, code};
  const std::string_view value(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(code));
  if (value == kOldValue) return {kOld, code};
  if (value == kNewValue) return {kNew, code};
  if (value == kNextValue) return {kNext, code};
  return {kTorn, code};
}

inline std::uint8_t g_buffer[16384];

inline Looked look(const vexa_dm_item_desc& desc) {
  const std::int32_t code = dm_pal_read(desc.table, desc.key, g_buffer, sizeof g_buffer);
  return identify(code, g_buffer);
}

inline bool other_is_unharmed() {
  const std::int32_t code = dm_pal_read(g_other.table, g_other.key, g_buffer, sizeof g_buffer);
  return code == static_cast<std::int32_t>(kOtherValue.size()) &&
         std::memcmp(g_buffer, kOtherValue.data(), kOtherValue.size()) == 0;
}

inline std::int32_t store(const vexa_dm_item_desc& desc, const std::string& value) {
  return dm_sqlite_write(7, &desc, value.data(), static_cast<std::int32_t>(value.size()));
}

inline void prepare_store() {
  start_once();
  expect_in_child([] {
    EXPECT_EQ(store(g_other, kOtherValue), 0);
    EXPECT_EQ(store(g_wanted, kOldValue), 0);
    EXPECT_EQ(dm_write_def_db("cfg", "wanted", 6, kOldValue.data(), 3000), 0);
    EXPECT_EQ(dm_write_def_db("SQL_VER_TAB", "SQL_VER_KEY", 3, "\x01\x00\x01\x00", 4), 0);
  });
}

// A writer that was killed in its transaction: SQLite's rollback journal is waiting.
inline void leave_hot_journal(const std::string& path) {
  const pid_t writer = fork();
  if (writer == 0) {
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    const char* const sql =
        "PRAGMA cache_size=1;BEGIN IMMEDIATE;create table filler (value blob);"
        "update cfg set value=randomblob(40000);insert into filler values(randomblob(200000));";
    _exit(sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK ? 0 : 1);
  }
  int status = 0;
  waitpid(writer, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_GT(std::filesystem::file_size(path + "-journal"), 512u);
}

// ---- An operation ----

struct Operation {
  const char* name;
  void (*prepare)();
  std::int64_t (*run)();            // the result code; allocates nothing of its own
  std::vector<std::int64_t> codes;  // documented ones
  const vexa_dm_item_desc* item;    // looked at afterwards, and written next
  unsigned found;                   // what it may be afterwards
  unsigned found_at_start;          // what it may be at the next start
  bool keeps_other = true;
  // Of the assertion that ends it when memory for the value runs out; "" for none.
  const char* assertion = "";
  bool quiet_failure = false;  // a failure may go without a line
};

inline std::ostream& operator<<(std::ostream& out, const Operation& operation) {
  return out << operation.name;
}

inline std::string operation_name(const ::testing::TestParamInfo<Operation>& tested) {
  return tested.param.name;
}

namespace fault_detail {

inline std::int64_t read_wanted() {
  const std::int32_t code = dm_sqlite_read(7, &g_wanted, g_buffer, sizeof g_buffer);
  return code < 0 ? code : (identify(code, g_buffer).found == kOld ? 1 : 999);
}

inline std::int64_t read_default() {
  std::int32_t type = 0;
  const std::int32_t code = dm_read_def_db("cfg", "wanted", &type, g_buffer, sizeof g_buffer);
  return code < 0 ? code : (identify(code, g_buffer).found == kOld && type == 6 ? 1 : 999);
}

inline std::int64_t register_backend() {
  vexa_dm_backend_ops slots = {};
  sqlite_reg(&slots);
  return 0;
}

inline std::int64_t signed_code(std::uint32_t code) { return static_cast<std::int32_t>(code); }

inline void prepare_interrupted() {
  prepare_store();
  put_item(kPrimary, {"cfg", 7, "wanted", 6, kNewValue});
  exec_sql(kJournal, "update state set item_table='cfg',item_key='wanted',id=7,type=6,len=9000,state=101");
}

inline void prepare_damaged() {
  prepare_store();
  damage_schema(kPrimary);
}

inline void prepare_killed() {
  prepare_store();
  leave_hot_journal(kPrimary);
}

// SQLite's codes of opening a file, of which the start-up check gives one.
inline std::vector<std::int64_t> start_up_codes() {
  return {0, -1, -100, -101, -102, SQLITE_NOMEM, SQLITE_IOERR, SQLITE_CANTOPEN};
}

constexpr char kNoMemory[] = "sqlite3/src/vexa_dm_sqlite, line: ";

inline char g_backup_wish[] = "backup";

}  // namespace fault_detail

inline std::vector<Operation> all_operations() {
  using namespace fault_detail;
  return {
      {"WriteOfAnItem",
       prepare_store,
       [] { return std::int64_t{store(g_wanted, kNewValue)}; },
       {0, -1},
       &g_wanted,
       kOld | kNew,
       kOld | kNew},
      {"WriteOfANewTable",
       prepare_store,
       [] { return std::int64_t{store(g_fresh, kNewValue)}; },
       {0, -1},
       &g_fresh,
       kMissing | kNew,
       kMissing | kNew},
      {"WriteAfterAKilledWriter",
       prepare_killed,
       [] { return std::int64_t{store(g_wanted, kNewValue)}; },
       {0, -1},
       &g_wanted,
       kOld | kNew,
       kOld | kNew},
      {"WriteToADamagedPrimary",
       prepare_damaged,
       [] { return std::int64_t{store(g_wanted, kNewValue)}; },
       {0, -1},
       &g_wanted,
       kOld | kNew,
       kOld | kNew},
      {"Read", prepare_store, read_wanted, {1, -1, -100, -101, -102}, &g_wanted, kOld, kOld},
      {"ReadAfterAKilledWriter",
       prepare_killed,
       read_wanted,
       {1, -1, -100, -101, -102},
       &g_wanted,
       kOld,
       kOld},
      {"ReadOfADamagedPrimary",
       prepare_damaged,
       read_wanted,
       {1, -1, -100, -101, -102},
       &g_wanted,
       kOld,
       kOld},
      {"WriteOfADefault",
       prepare_store,
       [] { return std::int64_t{dm_write_def_db("cfg", "wanted", 6, kNewValue.data(), 9000)}; },
       {0, -1, -101},
       &g_wanted,
       kOld,
       kOld},
      {"ReadOfADefault", prepare_store, read_default, {1, -1, -100, -101}, &g_wanted, kOld, kOld},
      {"FirstStart", [] {}, register_backend, {0}, &g_wanted, kMissing, kMissing, false},
      {"Start", prepare_store, register_backend, {0}, &g_wanted, kOld, kOld},
      {"StartAfterACut",
       prepare_interrupted,
       register_backend,
       {0},
       &g_wanted,
       kOld | kNew,
       kNew,
       true,
       kNoMemory},
      {"StartUpCheck", prepare_interrupted, [] { return signed_code(dm_sqlite_check_database()); },
       start_up_codes(), &g_wanted, kOld | kNew, kNew, true, kNoMemory, true},
      {"HealthCheck",
       prepare_store,
       [] { return signed_code(check_database_health(DB_CONFIG)); },
       {0, 1, -1, -2},
       &g_wanted,
       kOld,
       kOld},
      {"HealthCheckAfterAKilledWriter",
       prepare_killed,
       [] { return signed_code(check_database_health(DB_CONFIG)); },
       {0, 1, -1, -2},
       &g_wanted,
       kOld,
       kOld},
      {"VersionMatch",
       prepare_store,
       [] {
         std::uint8_t matched = 2;
         sqlite_chk_db_ver_match(&matched);
         return std::int64_t{matched};
       },
       {1, 2},
       &g_wanted,
       kOld,
       kOld},
      {"Clean",
       prepare_store,
       [] { return signed_code(dm_sqlite_clean(g_backup_wish)); },
       {0, -1},
       &g_wanted,
       kOld | kMissing,
       kOld | kMissing,
       false},
      {"Export",
       prepare_store,
       [] { return signed_code(dm_read_all_tabs_from_db(DB_CONFIG)); },
       {0, -1, -101, 4},
       &g_wanted,
       kOld,
       kOld,
       true,
       "",
       true},
  };
}

// ---- The files of the device, kept aside and put back ----

class Device {
 public:
  void keep() {
    files_.clear();
    for (const char* place : kPlaces) {
      if (!std::filesystem::exists(place)) continue;
      for (const auto& entry : std::filesystem::directory_iterator(place)) {
        std::FILE* stream = std::fopen(entry.path().c_str(), "rbe");
        std::string& bytes = files_[entry.path().string()];
        bytes.resize(entry.file_size());
        const std::size_t got = std::fread(bytes.data(), 1, bytes.size(), stream);
        EXPECT_EQ(got, bytes.size());
        std::fclose(stream);
      }
    }
  }
  void put_back() const {
    clear();
    for (const auto& [path, bytes] : files_) {
      std::FILE* stream = std::fopen(path.c_str(), "wbe");
      if (stream == nullptr) continue;
      std::fwrite(bytes.data(), 1, bytes.size(), stream);
      std::fclose(stream);
    }
  }
  static void clear() {
    for (const char* place : kPlaces) {
      if (!std::filesystem::exists(place)) continue;
      for (const auto& entry : std::filesystem::directory_iterator(place)) std::filesystem::remove_all(entry);
    }
  }

 private:
  static constexpr std::array<const char*, 3> kPlaces = {"/data", "/vexanvbak/data", "/mnt/vendor/nvdata"};
  std::map<std::string, std::string> files_;
};

// ---- What a child found, in memory shared with the parent ----

struct Report {
  bool done;  // the child came to its end
  std::int64_t result;
  std::uint64_t seen;
  std::uint64_t failed;
  std::array<bool, 4096> own;  // operation n + 1 is the library's own, not SQLite's
  int fds_before;
  int fds_after;
  std::int64_t blocks;  // more than before
  int leaked;           // by the leak checker
  int lines;            // at error level
  unsigned found;
  std::int32_t found_code;
  bool other;
  // The next process:
  std::int32_t next_write;
  unsigned next_found;
  std::uint32_t health;
  std::uint32_t backup_health;
  bool same_files;
  bool litter;  // what a copy or a transaction left in the directory
  char first_failed[160];
  char first_line[256];
};

inline Report* g_report = nullptr;

inline void note_line(const char* line) {
  if (std::strstr(line, "=ERR=") == nullptr) return;
  // Said by each good write.
  if (std::strstr(line, "ERROR: cp /data/config.db /data/configbak.db") != nullptr) return;
  if (g_report->lines++ == 0) {
    std::snprintf(g_report->first_line, sizeof g_report->first_line, "%.255s", line);
  }
}

inline int open_descriptors() {
  DIR* const directory = opendir("/proc/self/fd");
  int count = -1;  // the directory's own
  while (const dirent* entry = readdir(directory)) count += entry->d_name[0] != '.' ? 1 : 0;
  closedir(directory);
  return count;
}

struct Ending {
  int signal;
  std::string output;
};

// Forks with both streams in a file; the alarm ends what hangs.
template <typename Body>
Ending in_child(Body body) {
  static const int output = memfd_create("output", MFD_CLOEXEC);
  if (ftruncate(output, 0) != 0) ADD_FAILURE() << "output";
  lseek(output, 0, SEEK_SET);
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) std::signal(fault, SIG_DFL);
    alarm(30);
    body();
    std::fflush(nullptr);
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  Ending ending{WIFSIGNALED(status) ? WTERMSIG(status) : (WEXITSTATUS(status) != 0 ? -1 : 0), {}};
  const off_t size = lseek(output, 0, SEEK_END);
  ending.output.resize(static_cast<std::size_t>(std::min<off_t>(size, 4000)));
  if (pread(output, ending.output.data(), ending.output.size(), 0) < 0) ending.output.clear();
  return ending;
}

// ---- Trying ----

struct Tally {
  std::uint64_t tried = 0;
  std::uint64_t failed_calls = 0;
  std::uint64_t refused = 0;          // a failure code
  std::uint64_t aborted = 0;          // with the assertion line
  std::uint64_t given_up = 0;         // 0 although the old value is read, announced in the log
  std::uint64_t given_up_to_one = 0;  // of these, after a single fault
  std::uint64_t litter = 0;           // files beside the databases after the next write
};

inline std::uint64_t cases_wanted() {
  const char* const text = std::getenv("VEXA_FAULT_CASES");  // "all": every call, every error
  if (text != nullptr && std::strcmp(text, "all") == 0) return UINT64_MAX;
  if (text != nullptr) return std::strtoull(text, nullptr, 10);
#if VEXA_TEST_OWN_ALLOC
  return 80;
#else
  return 40;
#endif
}

template <typename Injector>
class FaultRun {
 public:
  explicit FaultRun(const Operation& operation) : operation_(operation) {
    void* const memory =
        mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    g_report = static_cast<Report*>(memory);
    Device::clear();
    operation.prepare();
    device_.keep();
  }
  FaultRun(const FaultRun&) = delete;
  FaultRun& operator=(const FaultRun&) = delete;
  ~FaultRun() { munmap(g_report, sizeof(Report)); }

  // Runs without a fault; the number of places at which one can be put.
  std::uint64_t places(const char* path = "") {
    attempt({0, 1, 0, path});
    own_ = g_report->own;
    return g_report->seen;
  }

  // Each step-th place, and all where the library itself acts and not SQLite.
  bool is_chosen(std::uint64_t place, std::uint64_t step) const {
    return (place - 1) % step == 0 || (place <= own_.size() && own_[place - 1]);
  }

  const Tally& tally() const { return tally_; }

  // One plan, with everything that has to hold.
  void attempt(const FaultPlan& plan) {
    device_.put_back();
    *g_report = {};
    const Ending during = in_child([&] { run_with(plan); });
    Report& report = *g_report;
    ++tally_.tried;
    tally_.failed_calls += report.failed;
    SCOPED_TRACE(std::string(operation_.name) + ": place " + std::to_string(plan.from) +
                 (plan.count == 1 ? " once" : " and on") + plan.path + ", error " +
                 std::to_string(plan.error) + ", " + report.first_failed + ", result " +
                 std::to_string(report.result) + ", log " + std::to_string(report.lines) + " " +
                 report.first_line);
    if (during.signal != 0) {
      expect_assertion(during);
    } else {
      expect_answer(during);
    }
    expect_next_start();
  }

 private:
  void run_with(const FaultPlan& plan) {
    Report& report = *g_report;
    set_print_interface(note_line);
    vexa_set_log_level(3);
    warm_up();
    report.fds_before = open_descriptors();
    const std::int64_t blocks = live_blocks();
    {
      const Injector injector(plan);
      report.result = operation_.run();
    }
    report.blocks = live_blocks() - blocks;
    report.seen = Injector::seen();
    report.failed = Injector::failed();
    for (std::size_t i = 0; i < report.own.size(); ++i) report.own[i] = Injector::is_own(i + 1);
    std::snprintf(report.first_failed, sizeof report.first_failed, "%s", Injector::first_failed());
    report.fds_after = open_descriptors();
    set_print_interface(nullptr);
    vexa_set_log_level(4);
    const Looked found = look(*operation_.item);
    report.found = found.found;
    report.found_code = found.code;
#if defined(__SANITIZE_ADDRESS__)
    report.leaked = __lsan_do_recoverable_leak_check();
#endif
    report.done = true;
  }

  // What SQLite and the C library keep from their first use on is no leak.
  static void warm_up() {
    sqlite3* db = nullptr;
    sqlite3_open("/tmp/warm.db", &db);
    sqlite3_exec(db, "create table if not exists t (v)", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    char message[VEXA_LOG_MESSAGE_SIZE];
    vexa_log_printf(3, message, "warm_up", 0, "time zone, streams");
    g_report->lines = 0;
    g_report->first_line[0] = '\0';
    std::printf(" ");
    std::fflush(stdout);
  }

  void expect_assertion(const Ending& during) {
    EXPECT_EQ(during.signal, SIGABRT) << during.output;
    EXPECT_NE(*operation_.assertion, '\0') << "no assertion is documented: " << during.output;
    EXPECT_NE(during.output.find(operation_.assertion), std::string::npos) << during.output;
    ++tally_.aborted;
  }

  void expect_answer(const Ending& during) {
    const Report& report = *g_report;
    EXPECT_TRUE(report.done) << during.output;
    const auto& codes = operation_.codes;
    EXPECT_NE(std::find(codes.begin(), codes.end(), report.result), codes.end()) << "undocumented code";
    EXPECT_EQ(report.fds_after, report.fds_before) << "descriptors left open";
    EXPECT_EQ(report.blocks, 0) << "memory not given back";
    EXPECT_EQ(report.leaked, 0) << during.output;
    EXPECT_NE(report.found & operation_.found, 0u)
        << "found " << report.found << ", code " << report.found_code;
    if (report.result < 0) {
      ++tally_.refused;
      EXPECT_TRUE(report.lines > 0 || operation_.quiet_failure) << "a failure without a word";
    }
    const bool is_write = (operation_.found & kNew) != 0 && operation_.codes.size() == 2;
    if (is_write && report.result == 0 && report.found != kNew) {
      ++tally_.given_up;
      if (report.failed == 1) ++tally_.given_up_to_one;
      if (std::getenv("VEXA_FAULT_SHOW") != nullptr) {
        std::printf("  only the log tells: %s: %s", report.first_failed, report.first_line);
      }
      EXPECT_GT(report.lines, 0) << "acknowledged, not stored, and nothing said";
    }
    if (report.failed == 0) {
      EXPECT_GE(report.result, 0) << "nothing failed";
    }
  }

  void expect_next_start() {
    Report& report = *g_report;
    report.done = false;
    const Ending next = in_child([&] {
      vexa_set_log_level(4);
      vexa_dm_backend_ops slots = {};
      sqlite_reg(&slots);
      const Looked found = look(*operation_.item);
      report.found = found.found;
      report.found_code = found.code;
      report.other = other_is_unharmed();
      report.next_write = store(*operation_.item, kNextValue);
      report.next_found = look(*operation_.item).found;
      report.other = report.other && other_is_unharmed();
      report.health = check_database_health(DB_CONFIG);
      report.backup_health = check_database_health(DB_CONFIGBAK);
      report.done = true;
    });
    EXPECT_TRUE(report.done && next.signal == 0) << "next start, signal " << next.signal << next.output;
    EXPECT_NE(report.found & operation_.found_at_start, 0u)
        << "at the next start found " << report.found << ", code " << report.found_code;
    EXPECT_TRUE(report.other || !operation_.keeps_other) << "the other item is harmed";
    EXPECT_EQ(report.next_write, 0);
    EXPECT_EQ(report.next_found, unsigned{kNext});
    EXPECT_EQ(report.health, 0u);
    EXPECT_EQ(report.backup_health, 0u);
    for (const std::string& name : names_in("/data")) {
      if (name.find("vexadm-copy") != std::string::npos || name.ends_with("-journal")) ++tally_.litter;
    }
  }

  const Operation& operation_;
  Device device_;
  std::array<bool, 4096> own_ = {};
  Tally tally_;
};

inline void print_tally(const Operation& operation, std::uint64_t places, const Tally& tally) {
  std::printf(
      "%s: %llu places, %llu cases tried, %llu faults injected, %llu answered with a failure code, "
      "%llu assertions, %llu writes lost of which only the log tells (%llu by one fault alone), %llu files "
      "left "
      "beside\n",
      operation.name, static_cast<unsigned long long>(places), static_cast<unsigned long long>(tally.tried),
      static_cast<unsigned long long>(tally.failed_calls), static_cast<unsigned long long>(tally.refused),
      static_cast<unsigned long long>(tally.aborted), static_cast<unsigned long long>(tally.given_up),
      static_cast<unsigned long long>(tally.given_up_to_one), static_cast<unsigned long long>(tally.litter));
}

}  // namespace vexa_test

#endif
