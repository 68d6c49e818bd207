// SPDX-License-Identifier: MIT
#include "store_damage.h"

#include <dirent.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstring>
#include <string_view>

namespace vexa_fuzz {
namespace {

constexpr std::size_t kPage = 512;
constexpr std::array<const char*, 4> kSuffixes = {"", "-journal", "-wal", "-shm"};

// Past the library, as another program or an older build would have left the file.
constexpr const char* kStatements[] = {
    "drop table cfg",
    "drop table cfg; create table cfg (key, value, crc)",
    "drop table cfg; create table cfg (key text not null, len integer, crc integer, value blob)",
    "drop table cfg; create view cfg as select * from net",
    "delete from cfg",
    "update cfg set crc = crc + 1",
    "update cfg set value = null",
    "update cfg set len = 100000, type = 5",
    "update cfg set value = zeroblob(70000), crc = 0",
    "update cfg set key = 'a'",
    "insert into cfg select * from cfg",
    "create unique index cfg_key on cfg (key)",
    "create trigger t after update on cfg begin delete from net; end",
    "update state set state = 101",
    "update state set state = 101, len = 100000",
    "update state set state = 101, len = 'x', item_table = null",
    "update state set state = 101, item_key = printf('%040d', 1)",
    "update state set state = 100",
    "drop table state; create table state (key, item_table, item_key, len, state)",
    "update SQL_VER_TAB set value = x'02000100'",
    "update SQL_VER_TAB set value = x'00000000', crc = 0",
    "drop table SQL_VER_TAB",
    "pragma journal_mode = wal",
    "pragma auto_vacuum = full; vacuum",
    "pragma page_size = 1024; vacuum",
};

std::string& u32(std::string& bytes, std::size_t at, std::uint32_t number) {
  for (int i = 0; i < 4; ++i)
    bytes[at + static_cast<std::size_t>(i)] = static_cast<char>(number >> (24 - 8 * i));
  return bytes;
}

// A rollback journal that SQLite takes for one of a crash and plays back.
std::string hot_journal(Source& source, const GoodFiles& good) {
  const std::uint32_t nonce = 7;
  const unsigned records = 1 + source.below(4);
  std::string bytes(kPage, '\0');
  bytes.replace(0, 8, "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7");
  u32(u32(u32(bytes, 8, records), 12, nonce), 16, 1 + source.below(16));
  u32(u32(bytes, 20, kPage), 24, kPage);
  for (unsigned i = 0; i < records; ++i) {
    std::string record(4, '\0');
    u32(record, 0, 1 + source.below(12));
    const std::string page = good.page(source);
    std::uint32_t sum = nonce;
    for (int at = static_cast<int>(kPage) - 200; at > 0; at -= 200) {
      sum += static_cast<unsigned char>(page[static_cast<std::size_t>(at)]);
    }
    std::string end(4, '\0');
    bytes += record + page + u32(end, 0, sum);
  }
  return bytes;
}

void run_statement(const char* path, const char* sql) {
  sqlite3* db = nullptr;
  if (sqlite3_open(path, &db) == SQLITE_OK) sqlite3_exec(db, sql, nullptr, nullptr, nullptr);
  sqlite3_close(db);
}

std::size_t place(Source& source, const std::string& bytes) {
  return bytes.empty() ? 0 : source.word() % bytes.size();
}

void put(std::string& bytes, std::size_t at, const std::string& with) {
  if (at < bytes.size()) bytes.replace(at, std::min(with.size(), bytes.size() - at), with);
}

std::string one_byte(Source& source) { return {static_cast<char>(source.byte())}; }

// The kinds that change some bytes of a file.
void change(std::string& bytes, unsigned kind, Source& source, const GoodFiles& good) {
  const std::size_t page_at = (kind == 2 || kind == 4 || kind == 5) ? source.byte() * kPage : 0;
  switch (kind) {
    case 0: {
      const std::size_t at = place(source, bytes);
      if (at < bytes.size()) bytes[at] = static_cast<char>(bytes[at] ^ (1 << source.below(8)));
      return;
    }
    case 1:
      put(bytes, source.below(100), one_byte(source));
      return;
    case 2: {  // the head of a page of the tree: type, free blocks, cells
      const std::size_t head = page_at == 0 ? 100 : page_at;
      put(bytes, head + source.below(24), source.bytes(1 + source.below(4)));
      return;
    }
    case 3:
      put(bytes, place(source, bytes), source.bytes(1 + source.below(32)));
      return;
    case 4:
      put(bytes, page_at, good.page(source));
      return;
    case 5:
      put(bytes, page_at, std::string(kPage, static_cast<char>(source.byte())));
      return;
    case 6:
      bytes.resize(place(source, bytes));
      return;
    default:
      bytes = source.bytes(source.word());
      return;
  }
}

}  // namespace

void GoodFiles::take() {
  for (std::size_t i = 0; i < kFiles.size(); ++i) {
    bytes_[i] = bytes_of_file(kFiles[i]);
    check(bytes_[i].size() >= 2 * kPage && bytes_[i].size() % kPage == 0,
          "the sound files are not as they should be");
  }
}

void GoodFiles::put_back() const {
  for (std::size_t i = 0; i < kFiles.size(); ++i) {
    for (const char* suffix : kSuffixes) unlink((std::string(kFiles[i]) + suffix).c_str());
    make_file(kFiles[i], bytes_[i]);
  }
  unlink("/data/ExportCSV.csv");
}

std::string GoodFiles::page(Source& source) const {
  const std::string& bytes = bytes_[source.below(kFiles.size())];
  return bytes.substr(source.byte() % (bytes.size() / kPage) * kPage, kPage);
}

const char* choose_file(Source& source) {
  static constexpr unsigned kChoice[] = {0, 0, 0, 1, 1, 2, 3, 4};
  return kFiles[kChoice[source.below(8)]];
}

void damage(Source& source, const GoodFiles& good) {
  const std::string path = choose_file(source);
  const unsigned kind = source.below(14);
  if (kind < 8) {
    std::string bytes = bytes_of_file(path.c_str());
    change(bytes, kind, source, good);
    make_file(path.c_str(), bytes);
  } else if (kind == 8) {
    unlink(path.c_str());
  } else if (kind == 9) {
    make_file(path.c_str(), bytes_of_file(choose_file(source)));
  } else if (kind == 10) {
    make_file((path + kSuffixes[1 + source.below(3)]).c_str(), source.bytes(source.below(1100)));
  } else if (kind == 11) {
    make_file((path + "-journal").c_str(), hot_journal(source, good));
  } else {
    run_statement(path.c_str(), kStatements[source.below(std::size(kStatements))]);
  }
}

void check_names_in_data() {
  DIR* const entries = opendir("/data");
  check(entries != nullptr, "/data is gone");
  while (const dirent* const entry = readdir(entries)) {
    const std::string_view name = entry->d_name;
    check(!name.starts_with(".vexadm-copy"), "a temporary file was left behind");
  }
  closedir(entries);
}

}  // namespace vexa_fuzz
