// SPDX-License-Identifier: MIT
// Takes several seconds. Damaged files in place of the store's: nothing crashes or hangs, no
// value is returned that was not stored, and the next write succeeds wherever a repair reaches.
//
// VEXA_CORRUPTIONS=n tries n random damages a case, VEXA_CORRUPTION_SEED=n others.
#include <gmock/gmock.h>
#include <vexadm/log.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "faults/quick_child.h"
#include "faults/saved_files.h"
#include "support/storage_fixture.h"

namespace vexa_test {
namespace {

using ::testing::AnyOf;
using Clock = std::chrono::steady_clock;

// Of each of the two random cases. Instrumented code is several times slower.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr unsigned kRandomDamages = 100;
#else
constexpr unsigned kRandomDamages = 600;
#endif
constexpr std::size_t kPage = 4096;
const std::vector<std::string> kFiles = {kPrimary, kBackup, kJournal, kDefaults, kFactory};

// No two rows have a key in common: a page of another table is never an answer.
std::vector<Item> items_of(const std::string& origin) {
  std::vector<Item> items;
  for (unsigned i = 0; i < 14; ++i) {
    const std::string table = i < 10 ? "cfg" : "net";
    const std::string key = table + "_key_" + std::string(3, static_cast<char>('a' + i));
    std::string value = origin + " value of " + key + " ";
    const std::size_t size = i == 4 ? 9000 : 20 + 37 * i;
    while (value.size() < size) value += static_cast<char>('A' + (value.size() * 7 + i) % 50);
    items.push_back({table, 100 + i, key, i == 11 ? 5 : 6, value});
  }
  return items;
}

const std::vector<Item>& current() {
  static const std::vector<Item> items = items_of("current");
  return items;
}
const std::vector<Item>& factory() {
  static const std::vector<Item> items = items_of("factory");
  return items;
}

struct Damage {
  std::string name;
  std::function<void(const std::string& path)> apply;
};

void set_bytes(const std::string& path, const std::string& bytes) {
  unlink(path.c_str());
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string bytes_of(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::string beside(const char* prefix, const std::string& path) {
  return "/data/" + (prefix + std::filesystem::path(path).filename().string());
}

Damage cut_to(std::size_t size) {
  return {"cut to " + std::to_string(size), [size](const std::string& path) {
            EXPECT_EQ(truncate(path.c_str(), static_cast<off_t>(size)), 0);
          }};
}

// What may stand at a path that is no database of ours.
std::vector<Damage> replacements() {
  return {
      {"missing", [](const std::string& path) { unlink(path.c_str()); }},
      {"empty file", [](const std::string& path) { set_bytes(path, ""); }},
      {"short foreign file", [](const std::string& path) { set_bytes(path, "hello\n"); }},
      {"foreign file", [](const std::string& path) { set_bytes(path, std::string(9000, 'x')); }},
      {"zeros", [](const std::string& path) { set_bytes(path, std::string(9000, '\0')); }},
      {"foreign database",
       [](const std::string& path) {
         unlink(path.c_str());
         run_quickly([&] { exec_sql(path, "create table cfg (a, b); create table state (a, b)"); });
       }},
      {"directory",
       [](const std::string& path) {
         unlink(path.c_str());
         EXPECT_EQ(mkdir(path.c_str(), 0755), 0);
       }},
      {"link to the file elsewhere",
       [](const std::string& path) {
         const std::string elsewhere = beside("elsewhere-", path);
         EXPECT_EQ(rename(path.c_str(), elsewhere.c_str()), 0);
         EXPECT_EQ(symlink(elsewhere.c_str(), path.c_str()), 0);
       }},
      {"dangling link",
       [](const std::string& path) {
         unlink(path.c_str());
         EXPECT_EQ(symlink(beside("nowhere-", path).c_str(), path.c_str()), 0);
       }},
      {"link to itself",
       [](const std::string& path) {
         unlink(path.c_str());
         EXPECT_EQ(symlink(path.c_str(), path.c_str()), 0);
       }},
  };
}

Damage random_damage(std::mt19937& random) {
  const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
  const auto seed = static_cast<std::uint32_t>(random());
  switch (below(8)) {
    case 0:
    case 1:
    case 2: {
      const std::size_t flips = std::size_t{1} << below(5);
      const bool header = below(5) == 0;
      return {std::to_string(flips) + (header ? " bits of the header, seed " : " bits, seed ") +
                  std::to_string(seed),
              [=](const std::string& path) {
                std::mt19937 where(seed);
                std::string bytes = bytes_of(path);
                const std::size_t size = header ? std::min<std::size_t>(100, bytes.size()) : bytes.size();
                for (std::size_t i = 0; i < flips && size > 0; ++i) {
                  const std::size_t bit = where() % (size * 8);
                  bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << bit % 8));
                }
                set_bytes(path, bytes);
              }};
    }
    case 3:
    case 4:
    case 5:
    case 6: {
      const std::size_t kind = below(5);
      static constexpr const char* kKinds[] = {"zeros", "ones", "noise", "another page", "noise in part"};
      return {std::string("a page of ") + kKinds[kind] + ", seed " + std::to_string(seed),
              [=](const std::string& path) {
                std::mt19937 where(seed);
                std::string bytes = bytes_of(path);
                const std::size_t pages = bytes.size() / kPage;
                if (pages == 0) return;
                const std::size_t at = where() % pages * kPage;
                std::string page = bytes.substr(where() % pages * kPage, kPage);
                const std::size_t from = kind == 4 ? where() % kPage : 0;
                const std::size_t to = kind == 4 ? std::min(kPage, from + 1 + where() % 64) : kPage;
                for (char& byte : page) {
                  if (kind != 3) byte = kind == 0 ? '\0' : kind == 1 ? '\xff' : static_cast<char>(where());
                }
                bytes.replace(at + from, to - from, page, from, to - from);
                set_bytes(path, bytes);
              }};
    }
    default: {
      const std::vector<Damage> all = replacements();
      const std::size_t which = below(all.size() + 2);
      return which < all.size() ? all[which]
                                : cut_to(which == all.size() ? 1 + below(40000) : kPage * below(9));
    }
  }
}

// ---- What a file holds, seen without the library and without changing it ----

struct Facts {
  bool reachable = false;  // a file, or a name that a file can be made under
  bool empty = false;      // counts as healthy: SQLite makes the database anew
  int prepare = SQLITE_OK;
  bool healthy = false;               // by the quick check
  bool read_only = false;             // the header asks for a newer writer; results in code 8
  bool takes_rows = false;            // writable, and its table has the columns of an item table
  std::map<std::string, bool> holds;  // by key: the row is there with its value
};

Facts facts_of(const std::string& path, const std::vector<Item>& items) {
  Facts facts;
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) {
    facts.reachable = facts.empty = errno == ENOENT;
    return facts;
  }
  facts.reachable = S_ISREG(status.st_mode);
  facts.empty = facts.reachable && status.st_size == 0;
  if (!facts.reachable || facts.empty) return facts;
  sqlite3* db = nullptr;
  const std::string name = "file:" + path + "?immutable=1&mode=ro";
  sqlite3_open_v2(name.c_str(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr);
  const auto first = [&](const std::string& sql, int& code) {
    sqlite3_stmt* statement = nullptr;
    std::string result;
    code = sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr);
    if (code == SQLITE_OK && sqlite3_stmt_readonly(statement) != 0 && sqlite3_step(statement) == SQLITE_ROW) {
      result = sqlite_tools_detail::column_bytes(statement, 0);
    }
    sqlite3_finalize(statement);
    return result;
  };
  first("select 1 from sqlite_master", facts.prepare);
  // A missing table is made by the write.
  int update = SQLITE_OK;
  first("update cfg set id=1, type=1, len=1, crc=1, value=:1 where key=''", update);
  const bool made = std::string(sqlite3_errmsg(db)).starts_with("no such table");
  const std::string header = bytes_of(path);
  facts.read_only = header.size() > 18 && static_cast<unsigned char>(header[18]) > 2;
  facts.takes_rows = (update == SQLITE_OK || made) && !facts.read_only;
  int ignored = 0;
  facts.healthy = first("PRAGMA quick_check", ignored) == "ok";
  for (const Item& item : items) {
    const std::string where = " from " + item.table + " where key='" + item.key + "' limit 1";
    facts.holds[item.key] = first("select value" + where, ignored) == item.value &&
                            first("select crc" + where, ignored) == std::to_string(reference_crc(item.value));
  }
  sqlite3_close(db);
  return facts;
}

// ---- The oracle, in a process of its own ----

void note(const std::string& text) { std::printf("note:%s\n", text.c_str()); }

class Oracle {
 public:
  void run() {
    start();
    const std::map<std::string, bool> before = read_all("before the write");
    read_defaults();
    const bool written = write(changed_.value);
    const std::map<std::string, bool> after = read_all("after the write");
    explain_reads(before);
    explain_losses(before, after, written);
    timed("start-up check", [] { dm_sqlite_check_database(); });
    look_at_the_rest();
  }

 private:
  void start() {
    timed("start", [] {
      vexa_dm_backend_ops slots = {};
      sqlite_reg(&slots);
    });
  }

  template <typename Call>
  static void timed(const char* what, const Call& call) {
    const auto begin = Clock::now();
    call();
    // The bound of all waits of a call, and room for a slow machine.
    EXPECT_LT(Clock::now() - begin, std::chrono::milliseconds(VEXA_STORAGE_BUSY_MS + 1500)) << what;
  }

  // By key: whether the stored value was read.
  std::map<std::string, bool> read_all(const char* when) {
    std::map<std::string, bool> good;
    for (const Item& item : current()) good[item.key] = read_one(item, when);
    return good;
  }

  bool read_one(const Item& item, const char* when) {
    std::vector<std::uint8_t> buffer(20000);
    std::int32_t code = 0;
    timed("read", [&] { code = dm_pal_read(item.table.c_str(), item.key.c_str(), buffer.data(), 20000); });
    if (code <= 0) {
      EXPECT_THAT(code, AnyOf(-1, -100, -101, -102)) << item.key << " " << when;
      return false;
    }
    const std::string value(buffer.begin(), buffer.begin() + code);
    const bool is_changed = item.key == changed_.key && value == changed_.value;
    if (value == item.value || is_changed) return true;
    const Item& produced = factory()[static_cast<std::size_t>(&item - current().data())];
    if (value == produced.value) {
      EXPECT_TRUE(said("cp /vexanvbak/")) << item.key << " has the factory's value";
      note("value: the factory copy's, after a repair from there");
    } else if (value.size() == item.value.size() && reference_crc(value) == reference_crc(item.value)) {
      note("value: differs in bits outside the checksum");
    } else if (value.size() == produced.value.size() &&
               reference_crc(value) == reference_crc(produced.value)) {
      note("value: the factory copy's, differs in bits outside the checksum");
    } else {
      ADD_FAILURE() << item.key << " " << when << " reads a value of " << value.size()
                    << " bytes that was never stored";
    }
    return false;
  }

  static void read_defaults() {
    for (const char* key : {"cfg_key_aaa", "cfg_key_bbb"}) {
      vexa_dm_item_desc desc = item_desc("cfg", key, 0);
      std::vector<std::uint8_t> buffer(20000);
      std::int32_t code = 0;
      timed("default", [&] { code = dm_sqlite_def_db_read(0, &desc, buffer.data(), 20000); });
      if (code <= 0) {
        EXPECT_THAT(code, AnyOf(-1, -100, -101));
      } else if (std::string(buffer.begin(), buffer.begin() + code) != std::string("default of ") + key) {
        note("default: another value, defaults have no checksum");
      }
    }
    std::uint8_t matched = 0;
    sqlite_chk_db_ver_match(&matched);
  }

  bool said(const std::string& text) const {
    for (const LogLine& line : log_.lines()) {
      if (line.message.find(text) != std::string::npos) return true;
    }
    return false;
  }

  // Whether the write succeeded in full; says why where it did not.
  bool write(const std::string& value) {
    log_at_write_ = log_.lines().size();
    std::int32_t code = 0;
    timed("write", [&] {
      code = dm_pal_write(changed_.table.c_str(), changed_.id, changed_.key.c_str(), changed_.type,
                          value.data(), static_cast<std::int32_t>(value.size()));
    });
    EXPECT_THAT(code, AnyOf(0, -1));
    std::vector<std::uint8_t> buffer(20000);
    const std::int32_t count =
        dm_pal_read(changed_.table.c_str(), changed_.key.c_str(), buffer.data(), 20000);
    const bool reads = count > 0 && std::string(buffer.begin(), buffer.begin() + count) == value;
    if (code == 0 && reads) {
      note("write: succeeds");
      return true;
    }
    EXPECT_FALSE(must_succeed()) << "code " << code << ", reads " << count << lines_of_the_write();
    note("write: " + cause_of(code));
    return false;
  }

  // Where the contract's repair reaches, or none is needed.
  bool must_succeed() const {
    const bool backup_replaceable = backup_.reachable;
    if (primary_.empty) return backup_replaceable;
    if (primary_.healthy) return primary_.takes_rows && backup_replaceable;
    const bool source = backup_.healthy || factory_.healthy;
    return primary_.reachable && primary_.prepare == SQLITE_CORRUPT && source && backup_replaceable;
  }

  std::string cause_of(std::int32_t code) const {
    const auto line = [&](const char* text) { return lines_of_the_write().find(text) != std::string::npos; };
    if (code != 0) {
      if (!primary_.reachable) return "refused, something else than a file is in place of the primary";
      if (line("rc=26")) return "refused, result 26 (not a database) instead of 11";
      if (line("rc=11")) {
        if (primary_.prepare == SQLITE_CORRUPT) return "refused, corrupt and no healthy source of a repair";
        return "refused, corruption that is met after the schema is read";
      }
      const std::size_t at = lines_of_the_write().find("create table error rc=");
      if (at != std::string::npos)
        return "refused, making the table gives" + lines_of_the_write().substr(at + 18, 6);
      ADD_FAILURE() << "refused without a cause" << lines_of_the_write();
      return "?";
    }
    if (line("step failed rc: 8"))
      return "0 although the row was not written, the header makes the file read-only";
    if (primary_.healthy && line("sqlite3_prepare error")) {
      return "0 although the row was not written, table text damaged or foreign in a way the quick check "
             "passes";
    }
    if (line("step failed") || line("sqlite3_prepare error") || line("get table existence error")) {
      return "0 although the row was not written, corruption that only a step meets";
    }
    if (line("Corruption detected") || line("corruption detected") || line("Quick check error")) {
      return "0 and the backup kept, the primary fails its quick check";
    }
    if (!backup_.reachable) return "0, something else than a file is in place of the backup";
    ADD_FAILURE() << "no success without a cause" << lines_of_the_write();
    return "?";
  }

  std::string lines_of_the_write() const {
    std::string text = "\n";
    for (std::size_t i = log_at_write_; i < log_.lines().size(); ++i) {
      const LogLine& line = log_.lines()[i];
      text += line.function + ": " + line.message;
      if (text.back() != '\n') text += '\n';
    }
    return text;
  }

  // A value that was not read although the backup has it would be a loss without a reason.
  void explain_reads(const std::map<std::string, bool>& before) const {
    std::size_t lost = 0;
    for (const auto& [key, good] : before) {
      if (good) continue;
      ++lost;
      const bool backup_has_it = backup_.holds.count(key) != 0 && backup_.holds.at(key);
      const bool rewritten = said("ERROR: cp /data/config.db /data/configbak.db");
      EXPECT_TRUE(!backup_has_it || rewritten) << key << " is in the backup and was not read";
    }
    if (lost != 0) note("read: some items read as default before the write");
  }

  void explain_losses(const std::map<std::string, bool>& before, const std::map<std::string, bool>& after,
                      bool written) const {
    bool lost = false;
    for (const auto& [key, good] : after) {
      const bool primary_has_it = primary_.healthy && primary_.holds.at(key);
      if (!good && written && primary_has_it && !said("cp /vexanvbak/")) {
        ADD_FAILURE() << key << " was in a healthy primary and does not read after a write";
      }
      if (good || !before.at(key) || key == changed_.key) continue;
      lost = true;
      const bool unseen = primary_.healthy && !primary_.holds.at(key);
      const bool explained = primary_.empty || unseen || said("cp /vexanvbak/");
      EXPECT_TRUE(explained) << key << " was read before the write and is gone after it"
                             << lines_of_the_write();
    }
    if (!lost) return;
    if (primary_.empty) {
      note("loss: other items, an empty or missing primary is healthy");
    } else if (said("cp /vexanvbak/")) {
      note("loss: other items, the factory copy took over");
    } else {
      note("loss: other items, damage in the primary that its quick check does not see was copied");
    }
  }

  void look_at_the_rest() {
    for (const std::string& path : kFiles) {
      timed("check", [&] {
        EXPECT_THAT(static_cast<std::int32_t>(check_database_health(path.c_str())), AnyOf(0, 1, -1, -2));
      });
    }
    timed("export", [] {
      EXPECT_THAT(static_cast<std::int32_t>(dm_read_all_tabs_from_db(DB_CONFIG)), AnyOf(0, 4, -101));
    });
    timed("write of a default", [] {
      vexa_dm_item_desc desc = item_desc("cfg", "cfg_key_ccc", 6);
      const char* bytes = "default";
      EXPECT_THAT(static_cast<std::int32_t>(dm_sqlite_def_db_const(1, &desc, &bytes, 7)), AnyOf(0, -1, -101));
    });
  }

  const Facts primary_ = facts_of(kPrimary, current());
  const Facts backup_ = facts_of(kBackup, current());
  const Facts factory_ = facts_of(kFactory, factory());
  const Item changed_ = {"cfg", 103, "cfg_key_ddd", 6, "a new value after the damage, and a word more"};
  LogCapture log_;
  std::size_t log_at_write_ = 0;
};

// ---- The cases ----

class Corruption : public StorageTest {
 protected:
  void SetUp() override {
    StorageTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    SavedFiles::clear();
    make_dirs("/vexanvbak/data");
    fill(factory());
    const std::string factory_copy = read_file(kPrimary);
    for (const std::string& name : names_in("/data")) unlink(("/data/" + name).c_str());
    fill(current());
    write_file(kFactory, factory_copy);
    with_factory_ = SavedFiles::take();
    unlink(kFactory.c_str());
    without_factory_ = SavedFiles::take();
    ASSERT_GE(with_factory_.files.at(kPrimary).size(), 6 * kPage);
  }

  void TearDown() override {
    if (tried_ == 0) return;
    std::printf("%d cases tried\n", tried_);
    for (const auto& [name, count] : noted_) std::printf("  %5d  %s\n", count, name.c_str());
  }

  static void fill(const std::vector<Item>& items) {
    expect_in_child([&] {
      vexa_set_log_level(4);
      vexa_dm_backend_ops slots = {};
      sqlite_reg(&slots);
      // A large value that shrinks leaves free pages.
      const std::string large(14000, 'L');
      ASSERT_EQ(write_item("cfg_key_large", large), 0);
      ASSERT_EQ(write_item("cfg_key_large", "small"), 0);
      for (const Item& item : items) {
        const auto size = static_cast<std::int32_t>(item.value.size());
        ASSERT_EQ(
            dm_pal_write(item.table.c_str(), item.id, item.key.c_str(), item.type, item.value.data(), size),
            0);
      }
      for (const char* key : {"cfg_key_aaa", "cfg_key_bbb"}) {
        vexa_dm_item_desc desc = item_desc("cfg", key, 5);
        const std::string text = std::string("default of ") + key;
        const char* value = text.c_str();
        ASSERT_EQ(dm_sqlite_def_db_const(1, &desc, &value, 0), 0u);
      }
    });
  }

  void try_one(bool factory_copy, const std::vector<std::pair<std::string, Damage>>& damages) {
    (factory_copy ? with_factory_ : without_factory_).put_back();
    std::string name = factory_copy ? "with a factory copy" : "without a factory copy";
    for (const auto& [path, damage] : damages) {
      name += "; " + path + ": " + damage.name;
      if (access(path.c_str(), F_OK) == 0) damage.apply(path);
    }
    const QuickResult result = run_quickly([] { Oracle().run(); });
    ++tried_;
    take_notes(result.out);
    EXPECT_EQ(result.exit_code, 0) << name << "\nsignal " << result.signal << "\n" << result.out;
  }

  void take_notes(const std::string& out) {
    std::map<std::string, int> once;  // a case counts once, however many items it concerns
    for (std::size_t at = out.find("note:"); at != std::string::npos; at = out.find("note:", at + 1)) {
      once[out.substr(at + 5, out.find('\n', at) - at - 5)] = 1;
    }
    for (const auto& [text, count] : once) noted_[text] += count;
  }

  static unsigned from_environment(const char* name, unsigned otherwise) {
    const char* text = std::getenv(name);
    return text == nullptr ? otherwise : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
  }

  std::mt19937 seeded() const {
    const unsigned seed = from_environment("VEXA_CORRUPTION_SEED", 2026);
    std::printf("seed %u\n", seed);
    return std::mt19937(seed);
  }

  SavedFiles with_factory_;
  SavedFiles without_factory_;
  int tried_ = 0;
  std::map<std::string, int> noted_;
};

TEST_F(Corruption, OfNoFileLosesNothing) {
  try_one(true, {});
  try_one(false, {});
  EXPECT_EQ(noted_, (std::map<std::string, int>{{"write: succeeds", 2}}));
}

TEST_F(Corruption, BySomethingElseInPlaceOfAFile) {
  for (const std::string& path : kFiles) {
    for (const Damage& damage : replacements()) {
      for (const bool factory_copy : {true, false}) {
        if (factory_copy || path != kFactory) try_one(factory_copy, {{path, damage}});
      }
    }
  }
}

TEST_F(Corruption, BySomethingElseInPlaceOfTwoFiles) {
  for (const Damage& first : replacements()) {
    for (const Damage& second : replacements()) {
      try_one(false, {{kPrimary, first}, {kBackup, second}});
      try_one(true, {{kPrimary, first}, {kBackup, second}});
    }
  }
}

TEST_F(Corruption, ByCuttingAFileAtAnyPage) {
  for (const std::string& path : kFiles) {
    for (std::size_t size = 0; size < with_factory_.files.at(path).size(); size += kPage) {
      for (const std::size_t odd : {std::size_t{0}, std::size_t{1}, std::size_t{511}}) {
        try_one(path == kFactory, {{path, cut_to(size + odd)}});
      }
    }
  }
}

TEST_F(Corruption, OfOneFileAtRandom) {
  std::mt19937 random = seeded();
  const unsigned count = from_environment("VEXA_CORRUPTIONS", kRandomDamages);
  for (unsigned i = 0; i < count && !HasFailure(); ++i) {
    const std::string& path = kFiles[i % 5 < 3 ? random() % 2 : 2 + random() % 3];
    try_one(random() % 2 == 0, {{path, random_damage(random)}});
  }
}

TEST_F(Corruption, OfTwoFilesAtRandom) {
  std::mt19937 random = seeded();
  const unsigned count = from_environment("VEXA_CORRUPTIONS", kRandomDamages);
  for (unsigned i = 0; i < count && !HasFailure(); ++i) {
    const std::size_t first = random() % kFiles.size();
    const std::size_t second = (first + 1 + random() % (kFiles.size() - 1)) % kFiles.size();
    const Damage one = random_damage(random);
    const Damage other = random_damage(random);
    try_one(random() % 2 == 0, {{kFiles[first], one}, {kFiles[second], other}});
  }
}

}  // namespace
}  // namespace vexa_test
