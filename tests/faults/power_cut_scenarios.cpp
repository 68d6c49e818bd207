// SPDX-License-Identifier: MIT
#include "faults/power_cut_scenarios.h"

#include <string>
#include <utility>

#include "support/sqlite_tools.h"

namespace vexa_test {
namespace {

constexpr char kOneCut[] = "power cut";
constexpr char kInAClean[] = "power cut in a clean";

// A device that has been in use; n numbers its values.
void use(Recording& recording, int n) {
  recording.write([n](Writer& writer) {
    writer.put(kChannel, n);
    writer.make_defaults();
    writer.put(kName, n);
    writer.put(kLarge, n);
    writer.put_pair(n);
    writer.put(kBlock, n);
  });
}

std::vector<Stage> first_start(unsigned) {
  Recording recording;
  recording.write([](Writer& writer) {
    writer.put(kChannel, 1);
    writer.make_defaults();
    writer.put(kName, 1);
    writer.put(kLarge, 1);
    writer.put_pair(1);
    writer.put(kBlock, 1);
    writer.put(kAddress, 1);
    writer.put_pair(2);
    writer.put(kLarge, 2);
    writer.empty(kBlock);
    writer.put_past_the_cache(kName, 2);
  });
  return {recording.stage()};
}

std::vector<Stage> repair_by_a_start(unsigned) {
  Recording recording;
  use(recording, 11);
  recording.begin_stage();
  recording.run([](std::vector<std::string>& lines) {
    if (!overwrite(store_area.primary(), kHeadOfSchema, 0)) lines.push_back("not damaged");
  });
  recording.write([](Writer& writer) {
    writer.read_all();
    writer.put(kBlock, 12);
    writer.put(kChannel, 12);
  });
  return {recording.stage()};
}

std::vector<Stage> repair_by_a_write(unsigned) {
  Recording recording;
  use(recording, 21);
  recording.begin_stage();
  recording.write([](Writer& writer) {
    writer.read_all();  // from here on the write itself is the first to see the file
    writer.damage(DB_CONFIG, kHeadOfSchema, 0);
    writer.put(kName, 22);
    writer.damage(DB_CONFIG, kHeadOfSchema, 0);
    writer.put(kLarge, 22);
    writer.empty(kBlock);
  });
  return {recording.stage()};
}

// Both files are damaged: the settings are those of the factory from then on.
Recording with_a_factory_copy(int n) {
  Recording recording;
  use(recording, n);
  put_file(kFactory, content_of(DB_CONFIG).bytes());
  recording.begin_stage();
  recording.write([n](Writer& writer) {
    writer.put(kName, n + 1);
    writer.put(kAddress, n + 1);
  });
  return recording;
}

// Of an item that the factory copy lacks: its default.
int factory_value(std::int32_t id, int n) {
  return id == kAddress || id == kNeverWritten || id == kProbe ? 0 : n;
}

void mark_factory_values(const std::string& word, int n) {
  for (const std::int32_t id : kItemIds) {
    mark(word + " " + std::to_string(id) + " " + std::to_string(factory_value(id, n)));
  }
}

std::vector<Stage> repair_from_the_factory_copy(unsigned) {
  Recording by_start = with_a_factory_copy(31);
  overwrite(DB_CONFIG, kHeadOfSchema, 0);
  overwrite(DB_CONFIGBAK, kHeadOfSchema, 0);
  for (const std::int32_t id : kItemIds) by_start.promise().values[id] = {factory_value(id, 31)};
  by_start.begin_stage();
  by_start.write([](Writer& writer) {
    writer.read_all();
    writer.put(kBlock, 33);
    writer.put(kAddress, 33);
  });
  Stage started = by_start.stage();

  Recording by_write = with_a_factory_copy(41);
  by_write.begin_stage();
  by_write.write([](Writer& writer) {
    writer.read_all();
    // The values of the factory are allowed from the first damage on: with its copy in place, a
    // damaged backup costs the primary.
    mark_factory_values("begin", 41);
    writer.damage(DB_CONFIGBAK, kHeadOfSchema, 0);
    writer.damage(DB_CONFIG, kHeadOfSchema, 0);
    mark_factory_values("now", 41);
    writer.put(kBlock, 43);
    writer.put(kName, 43);
  });
  Stage written = by_write.stage();
  return {std::move(started), std::move(written)};
}

// A start that has to finish what the journal says: the primary has the value, the backup not.
std::vector<Stage> start_that_finishes_a_write(unsigned) {
  std::vector<Stage> stages;
  for (const int n : {51, 53}) {
    Recording recording;
    use(recording, n);
    const Content old_backup = content_of(DB_CONFIGBAK);
    const std::int32_t id = n == 51 ? kName : kLarge;
    recording.write([&](Writer& writer) { writer.put(id, n + 1); });
    put_file(DB_CONFIGBAK, old_backup.bytes());
    exec_sql(DB_STATE, "update state set state=101");
    recording.begin_stage();
    recording.write([](Writer& writer) { writer.read_all(); });
    recording.write([&](Writer& writer) {
      writer.read_all();
      writer.put(kAddress, n + 1);
    });
    stages.push_back(recording.stage());
  }
  return stages;
}

// A page of another item's table is damaged: only the check meets it.
std::vector<Stage> write_onto_a_damaged_primary(unsigned) {
  Recording recording;
  use(recording, 61);
  const off_t page = std::stol(query(DB_CONFIG, "select rootpage from sqlite_master where name='cert'"));
  recording.begin_stage();
  recording.write([page](Writer& writer) {
    writer.read_all();
    mark("damaged");
    writer.damage(DB_CONFIG, (page - 1) * 4096, '\xff');
    writer.put(kName, 62);
    writer.put(kAddress, 62);
  });
  return {recording.stage()};
}

// Files of an older build: no id and no type, neither in the tables nor in the journal.
std::vector<Stage> migration(unsigned) {
  Recording recording;
  const auto put_old = [](const std::string& path, const char* table, const char* key,
                          const std::string& value) {
    exec_sql(path, std::string("create table if not exists ") + table +
                       " (key text not null,len integer not null,crc integer not null,value blob);"
                       "insert into " +
                       table + " values('" + key + "'," + std::to_string(value.size()) + "," +
                       std::to_string(reference_crc(value)) + ",x'" + sqlite_tools_detail::hex(value) + "')");
  };
  for (const std::string& path : {store_area.primary(), store_area.backup()}) {
    put_old(path, "SQL_VER_TAB", "SQL_VER_KEY", std::string("\x01\x00\x01\x00", 4));
    for (const std::int32_t id : {kName, kBlock, kLarge}) {
      const vexa_dm_item_desc& desc = power_cut_items()[id - 1].desc;
      put_old(path, desc.table, desc.key, item_value(id, 71));
      recording.promise().values[id] = {71};
    }
  }
  exec_sql(DB_STATE,
           "create table state (key text not null,item_table text not null,item_key text not null,"
           "len integer,state integer);insert into state values('write_state','wifi','name',20,102)");
  recording.begin_stage();
  recording.write([](Writer& writer) {
    writer.put(kName, 72);
    writer.put(kLarge, 72);
  });
  recording.write([](Writer& writer) {
    writer.read_all();
    writer.put(kBlock, 72);
    writer.put(kAddress, 72);
  });
  return {recording.stage()};
}

// Primary and backup in directories of their own, on file systems of their own.
std::vector<Stage> moved_store(unsigned) {
  Recording recording(moved_area());
  recording.write([](Writer& writer) {
    writer.put(kName, 81);
    writer.make_defaults();
    writer.put(kLarge, 82);
    writer.put_pair(81);
    writer.empty(kName);
  });
  recording.run([](std::vector<std::string>& lines) {
    if (!overwrite(store_area.primary(), kHeadOfSchema, 0)) lines.push_back("not damaged");
  });
  recording.write([](Writer& writer) {
    writer.read_all();
    writer.put(kBlock, 83);
    writer.put(kLarge, 83);
  });
  return {recording.stage()};
}

// A clean with so many dated copies there already, or without backup; then a start anew.
void clean_and_start(std::vector<Stage>& stages, const StoreArea& area, int copies, bool with_backup, int n) {
  Recording recording(area);
  use(recording, n);
  for (int k = 1; k <= copies; ++k) {
    const std::string name = std::string(kRotation) + "/2025-12-0" + std::to_string(k) + "_10_00_00.db";
    put_file(name + std::to_string(k), "dated copy " + std::to_string(k));
  }
  recording.begin_stage();
  recording.stage().every_image = true;
  recording.stage().saves_primary = with_backup;
  for (int k = with_backup && copies == 3 ? 2 : 1; k <= copies; ++k) {
    recording.stage().keeps_copies.push_back(Content("dated copy " + std::to_string(k)));
  }
  recording.write([with_backup](Writer& writer) { writer.clean(with_backup); });
  stages.push_back(recording.stage());

  recording.stage().every_image = false;
  recording.stage().operations.clear();
  recording.stage().base = image_in_place();
  recording.stage().promise = recording.promise();
  recording.write([n](Writer& writer) {
    writer.read_all();
    writer.put(kName, n + 1);
    writer.put(kLarge, n + 1);
  });
  stages.push_back(recording.stage());
}

std::vector<Stage> clean(unsigned) {
  std::vector<Stage> stages;
  clean_and_start(stages, {}, 0, false, 91);
  clean_and_start(stages, {}, 0, true, 101);
  clean_and_start(stages, {}, 2, true, 111);
  return stages;
}

std::vector<Stage> clean_that_rotates(unsigned) {
  std::vector<Stage> stages;
  clean_and_start(stages, {}, 3, true, 121);
  clean_and_start(stages, moved_area(), 3, true, 131);
  return stages;
}

// A program is killed, what it did is in memory only, the next one writes the same again, and
// then the power goes. Killed at each change of a name: what the next one sees may be gone.
std::vector<Stage> kill_before_the_cut(unsigned) {
  const auto write = [](Writer& writer) { writer.put(kName, 142); };
  Recording whole;
  use(whole, 141);
  whole.begin_stage();
  whole.write(write);
  std::vector<Stage> stages;
  const std::vector<FileOperation>& operations = whole.stage().operations;
  for (unsigned at = 0; at < operations.size(); ++at) {
    if (operations[at].op != FileOp::kRename && operations[at].op != FileOp::kUnlink) continue;
    Recording recording;
    use(recording, 141);
    recording.begin_stage();
    recording.write(write, at + 1);
    recording.write(write);
    stages.push_back(recording.stage());
    // What is at stake is gone with the next sync of the directory: few images, and all of them.
    stages.back().every_image = operations[at].op == FileOp::kRename;
  }
  return stages;
}

constexpr Scenario kScenarios[] = {
    {"FirstStart", kOneCut, first_start, 1, 1, 0},
    {"RepairByAStart", kOneCut, repair_by_a_start, 1, 1, 0},
    {"RepairByAWrite", kOneCut, repair_by_a_write, 1, 1, 0},
    {"RepairFromTheFactoryCopy", kOneCut, repair_from_the_factory_copy, 1, 1, 0},
    {"StartThatFinishesAWrite", kOneCut, start_that_finishes_a_write, 1, 1, 0},
    {"WriteOntoADamagedPrimary", kOneCut, write_onto_a_damaged_primary, 1, 1, 0},
    {"Migration", kOneCut, migration, 1, 1, 0},
    {"MovedStore", kOneCut, moved_store, 1, 1, 0},
    {"KillBeforeTheCut", kOneCut, kill_before_the_cut, 1, 1, 0},
    {"Clean", kInAClean, clean, 1, 1, 0},
    {"CleanThatRotates", kInAClean, clean_that_rotates, 1, 1, 0},
    {"RandomWritesA", kOneCut, random_writes, 1, 2, 1},
    {"RandomWritesB", kOneCut, random_writes, 1, 2, 21},
    {"RandomWritesC", kOneCut, random_writes, 1, 2, 41},
    {"RandomWritesD", kOneCut, random_writes, 1, 2, 61},
};

}  // namespace

std::span<const Scenario> scenarios() { return kScenarios; }

}  // namespace vexa_test
