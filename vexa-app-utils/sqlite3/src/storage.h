// SPDX-License-Identifier: MIT
// What the rooms of the storage backend share.
#ifndef VEXADM_STORAGE_INTERNAL_H
#define VEXADM_STORAGE_INTERNAL_H

#include <pthread.h>
#include <vexadm/storage.h>

#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace vexa::storage {

inline constexpr char kFactoryCopy[] = "/vexanvbak/data/config.db";
inline constexpr char kVersionTable[] = "SQL_VER_TAB";
inline constexpr char kVersionKey[] = "SQL_VER_KEY";
inline constexpr int32_t kVersionType = 3;
inline constexpr char kAssertSource[] = "sqlite3/src/vexa_dm_sqlite";

// The backend's one lock: write, read, clean and version reads hold it.
extern pthread_mutex_t backend_mutex;

// The schema version as an item: the default-items functions read and write it like any
// other, and store the type they find into the descriptor.
struct VersionRecord {
  vexa_dm_item_desc desc;
  uint32_t version;
};
extern VersionRecord version_record;

// Text built in a fixed buffer; what does not fit is cut. SQL has 512 bytes, commands
// 128, so the stack use of a call has a bound on small devices.
template <std::size_t Size>
class FixedText {
 public:
  __attribute__((format(printf, 2, 3))) explicit FixedText(const char* format, ...) {
    std::va_list values;
    va_start(values, format);
    std::vsnprintf(text_, Size, format, values);
    va_end(values);
  }
  const char* get() const { return text_; }

 private:
  char text_[Size];
};

using Sql = FixedText<512>;
using Command = FixedText<128>;

// Whether a table holds a row of a key. Unknown after a failure that passes (memory, input): who
// then inserted would make a second row of that key, behind the one that reads find.
enum class Presence { kAbsent, kPresent, kUnknown };
Presence presence_of(sqlite3* db, const char* table, const char* key);

// The checksum stored beside a value. The length goes in as a count of bits, cut to 16
// bits: databases in the field were written that way.
int32_t value_crc(const void* data, int32_t length);

}  // namespace vexa::storage

#endif
