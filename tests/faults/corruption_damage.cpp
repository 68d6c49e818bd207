// SPDX-License-Identifier: MIT
#include "faults/corruption_damage.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "faults/corruption_items.h"
#include "faults/quick_child.h"

namespace vexa_test {
namespace {

std::string beside(const char* prefix, const std::string& path) {
  return "/data/" + (prefix + std::filesystem::path(path).filename().string());
}

void make_link(const std::string& to, const std::string& path) {
  unlink(path.c_str());
  EXPECT_EQ(symlink(to.c_str(), path.c_str()), 0) << path;
}

void make_directory(const std::string& path) {
  unlink(path.c_str());
  EXPECT_EQ(mkdir(path.c_str(), 0755), 0) << path;
}

Damage bytes_in_place(const char* name, const std::string& bytes) {
  return {name, [bytes](const std::string& path) { set_bytes(path, bytes); }};
}

// The damage done to the file of another name that belongs to the path.
std::vector<Damage> under_name(const std::vector<Damage>& damages, const std::string& what,
                               const std::function<std::string(const std::string&)>& name_for) {
  std::vector<Damage> all;
  for (const Damage& damage : damages) {
    all.push_back({what + " " + damage.name,
                   [damage, name_for](const std::string& path) { damage.apply(name_for(path)); }});
  }
  return all;
}

// The rollback journal of a transaction that was never finished. The statements touch so many
// pages that SQLite has to write some of them before the end, so the journal counts as hot.
std::string hot_journal(const std::string& database, const std::string& sql) {
  const std::string journal = database + "-journal";
  const QuickResult result = run_quickly([&] {
    Sqlite db(database);
    EXPECT_EQ(db.exec("pragma cache_size=1; begin immediate; " + sql), SQLITE_OK) << sqlite3_errmsg(db.get());
    set_bytes("/tmp/hot", bytes_of(journal));
    std::fflush(nullptr);
    _exit(::testing::Test::HasFailure() ? 1 : 0);  // neither commits nor rolls back
  });
  EXPECT_EQ(result.exit_code, 0) << result.out;
  const std::string bytes = bytes_of("/tmp/hot");
  for (const std::string& name : {database, journal, std::string("/tmp/hot")}) unlink(name.c_str());
  EXPECT_TRUE(bytes.starts_with("\xd9\xd5\x05\xf9")) << "the journal has no header yet";
  return bytes;
}

std::string many_rows(const std::string& table) {
  return "with recursive n(i) as (select 1 union all select i + 1 from n where i < 90) insert into " + table +
         " select printf('%0900d', i) from n";
}

std::string foreign_journal() {
  const std::string database = "/tmp/foreign.db";
  run_quickly([&] { exec_sql(database, "create table t (a); " + many_rows("t")); });
  return hot_journal(database, "update t set a = a || 'x'");
}

// Puts back what is in the file already.
void add_own_journal(const std::string& path) {
  const std::string copy = "/tmp/own.db";
  set_bytes(copy, bytes_of(path));
  std::string touch_all;
  for (const std::string table : {"cfg", "net", "state", "SQL_VER_TAB"}) {
    touch_all +=
        "create table if not exists " + table + " (key); update " + table + " set key = key || 'x'; ";
  }
  set_bytes(path + "-journal", hot_journal(copy, touch_all + "create table more (a); " + many_rows("more")));
}

// A log whose checksums are right.
std::string foreign_log() {
  const std::string database = "/tmp/foreign.db";
  const QuickResult result = run_quickly([&] {
    Sqlite db(database);
    EXPECT_EQ(db.exec("pragma journal_mode=wal; create table cfg (a, b); insert into cfg values (1, 2)"),
              SQLITE_OK);
    set_bytes("/tmp/log", bytes_of(database + "-wal"));
    std::fflush(nullptr);
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  });
  EXPECT_EQ(result.exit_code, 0) << result.out;
  const std::string bytes = bytes_of("/tmp/log");
  for (const char* suffix : {"", "-wal", "-shm"}) unlink((database + suffix).c_str());
  unlink("/tmp/log");
  return bytes;
}

std::vector<Damage> no_files() {
  return {
      {"directory", make_directory},
      {"dangling link", [](const std::string& path) { make_link(beside("nowhere-", path), path); }},
      {"link to itself", [](const std::string& path) { make_link(path, path); }},
  };
}

std::vector<Damage> junk_files() {
  return {bytes_in_place("empty file", ""), bytes_in_place("short foreign file", "hello\n"),
          bytes_in_place("foreign file", std::string(9000, 'x')),
          bytes_in_place("zeros", std::string(9000, '\0'))};
}

void append(std::vector<Damage>& all, const std::vector<Damage>& more) {
  all.insert(all.end(), more.begin(), more.end());
}

Damage random_flips(std::size_t flips, bool header, std::uint32_t seed) {
  return {
      std::to_string(flips) + (header ? " bits of the header, seed " : " bits, seed ") + std::to_string(seed),
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

}  // namespace

void set_bytes(const std::string& path, const std::string& bytes) {
  unlink(path.c_str());
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string bytes_of(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

Damage cut_to(std::size_t size) {
  return {"cut to " + std::to_string(size), [size](const std::string& path) {
            EXPECT_EQ(truncate(path.c_str(), static_cast<off_t>(size)), 0);
          }};
}

Damage flipped_bit(std::size_t offset, unsigned bit) {
  return {"bit " + std::to_string(bit) + " of byte " + std::to_string(offset), [=](const std::string& path) {
            std::string bytes = bytes_of(path);
            if (offset >= bytes.size()) return;
            bytes[offset] = static_cast<char>(bytes[offset] ^ (1 << bit));
            set_bytes(path, bytes);
          }};
}

Damage overwritten_page(std::size_t page, PageOf what, std::uint32_t seed) {
  static constexpr const char* kNames[] = {"zeros", "ones", "noise", "another page", "noise in part"};
  return {
      "page " + std::to_string(page) + " of " + kNames[static_cast<int>(what)] + ", seed " +
          std::to_string(seed),
      [=](const std::string& path) {
        std::mt19937 where(seed);
        std::string bytes = bytes_of(path);
        const std::size_t pages = bytes.size() / kPage;
        if (pages == 0) return;
        const std::size_t at = page % pages * kPage;
        std::string with = bytes.substr((page + 1 + where() % pages) % pages * kPage, kPage);
        const bool part = what == PageOf::kNoiseInPart;
        const std::size_t from = part ? where() % kPage : 0;
        const std::size_t to = part ? std::min(kPage, from + 1 + where() % 64) : kPage;
        for (char& byte : with) {
          if (what == PageOf::kAnotherPage) break;
          byte = what == PageOf::kZeros ? '\0' : what == PageOf::kOnes ? '\xff' : static_cast<char>(where());
        }
        bytes.replace(at + from, to - from, with, from, to - from);
        set_bytes(path, bytes);
      }};
}

std::vector<Damage> replacements() {
  std::vector<Damage> all = {
      {"missing", [](const std::string& path) { unlink(path.c_str()); }},
      {"foreign database",
       [](const std::string& path) {
         unlink(path.c_str());
         run_quickly([&] { exec_sql(path, "create table cfg (a, b); create table state (a, b)"); });
       }},
      {"link to the file elsewhere",
       [](const std::string& path) {
         const std::string elsewhere = beside("elsewhere-", path);
         EXPECT_EQ(rename(path.c_str(), elsewhere.c_str()), 0);
         make_link(elsewhere, path);
       }},
  };
  append(all, junk_files());
  append(all, no_files());
  return all;
}

std::vector<Damage> links_to_other_databases() {
  std::vector<Damage> all;
  for (const std::string& other : kFiles) {
    if (other == kFactory) continue;
    all.push_back({"link to " + other, [other](const std::string& path) {
                     if (path != other) make_link(other, path);
                   }});
  }
  return all;
}

std::vector<Damage> companions() {
  static const std::string journal = foreign_journal();
  static const std::string log = foreign_log();
  std::vector<Damage> all = {{"its own hot -journal", add_own_journal}};
  const auto add = [&](const std::vector<Damage>& damages, const char* suffix) {
    append(all, under_name(damages, suffix, [suffix](const std::string& path) {
             return std::filesystem::weakly_canonical(path).string() + suffix;
           }));
  };
  for (const char* suffix : {"-journal", "-wal", "-shm"}) {
    add(junk_files(), suffix);
    add(no_files(), suffix);
  }
  add({bytes_in_place("of another database, hot", journal),
       bytes_in_place("of another database, hot, half of it", journal.substr(0, journal.size() / 2))},
      "-journal");
  add({bytes_in_place("of another database", log)}, "-wal");
  return all;
}

std::vector<Damage> leftover_copies() {
  std::vector<Damage> damages = junk_files();
  append(damages, no_files());
  damages.push_back({"full directory", [](const std::string& path) {
                       make_directory(path);
                       set_bytes(path + "/inside", "x");
                     }});
  for (const std::string& database : {kPrimary, kBackup, kDefaults}) {
    damages.push_back(
        {"link to " + database, [database](const std::string& path) { make_link(database, path); }});
  }
  return under_name(damages, "left-over copy:", [](const std::string& path) {
    const std::filesystem::path target(path);
    return (target.parent_path() / (".vexadm-copy-" + target.stem().string())).string();
  });
}

Damage random_damage(std::mt19937& random) {
  const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
  const auto seed = static_cast<std::uint32_t>(random());
  const std::size_t what = below(16);
  if (what < 6) {
    const std::size_t flips = std::size_t{1} << below(5);
    return random_flips(flips, below(5) == 0, seed);
  }
  if (what < 13) return overwritten_page(below(9), kPagesOf[below(std::size(kPagesOf))], seed);
  if (what == 13) return cut_to(below(2) == 0 ? 1 + below(40000) : kPage * below(9));
  const std::vector<Damage> all = what == 14 ? replacements() : companions();
  return all[below(all.size())];
}

}  // namespace vexa_test
