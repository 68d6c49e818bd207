// SPDX-License-Identifier: MIT
// Ordinary days: the first start, reading, writing, a restart, a text that grows.
#include <array>
#include <cstdio>

#include "demo_files.h"
#include "demo_items.h"
#include "demo_screen.h"
#include "demo_steps.h"
#include "demo_store.h"

namespace demo {
namespace {

// ---- 1. First start -------------------------------------------------------

std::string version_text(uint32_t (*read_version)(uint8_t*)) {
  uint32_t version = 0;
  const auto result = static_cast<int32_t>(read_version(reinterpret_cast<uint8_t*>(&version)));
  if (result < 0) return "none";
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", version);
  return text;
}

int stored_defaults(const Store& store) {
  int found = 0;
  vexa_dm_default_item* record = records();
  for (const Item& each : items()) {
    std::array<uint8_t, 1024> buffer = {};
    const int32_t count = vexa_dm_def_items_read(store.handle(), static_cast<uint32_t>(each.id),
                                                 &record->desc, buffer.data(), buffer.size());
    const std::string stored(reinterpret_cast<const char*>(buffer.data()),
                             static_cast<std::size_t>(count < 0 ? 0 : count));
    found += stored == default_bytes(each) ? 1 : 0;
    ++record;
  }
  return found;
}

int tell_first_start(const Arguments&) {
  const bool empty = names_in("/data").empty();
  say("The flash of a new router is empty: /data holds %s.", contents_of("/data").c_str());
  const Store store;
  say("The library starts, finds no schema version and writes its own, to the items,");
  say("their backup and, around the two, the write-state journal. /data now holds");
  show("%s", contents_of("/data").c_str());
  vexa_dm_construct_def_database(VEXA_DM_BACKEND_SQLITE);
  say("The host registers its %zu items and has their defaults stored beside them:", items().size());
  show("%s", contents_of("/data").c_str());

  const std::string here = version_text(store.handle()->ops.read_cfg_db_version);
  const std::string defaults = version_text(store.handle()->ops.read_def_items_db_version);
  uint8_t match = 0;
  vexa_dm_check_db_version_match(VEXA_DM_BACKEND_SQLITE, &match);
  show("schema version of the items %s, of the defaults %s: %s", here.c_str(), defaults.c_str(),
       match == 1 ? "they match" : "they do not match");

  const int found = stored_defaults(store);
  const auto total = items().size();
  return report(
      {empty && match == 1 && found == static_cast<int>(total),
       "empty flash, version 0x00010001 twice, " + of(static_cast<int>(total), total) + " defaults stored",
       std::string(empty ? "empty flash" : "files on the flash") + ", version " + here + " and " + defaults +
           ", " + of(found, total) + " defaults stored"});
}

// ---- 2. Defaults ----------------------------------------------------------

int tell_defaults(const Arguments&) {
  const Store store;
  say("Nothing has been set yet, so every read is answered by the item's default:");
  int answered = 0;
  int stored = 0;
  for (const Item& each : items()) {
    const std::string bytes = store.read(each.id);
    std::array<uint8_t, 1024> buffer = {};
    answered += bytes == default_bytes(each) ? 1 : 0;
    stored += dm_pal_read_by_key(each.table, each.key, buffer.data(), buffer.size()) > 0 ? 1 : 0;
    show("%-9s %-13s type %d   %-22s %s", each.table, each.key, each.fallback.type, each.label,
         as_text(each, bytes).c_str());
  }
  const auto total = items().size();
  return report(
      {answered == static_cast<int>(total) && stored == 0,
       of(static_cast<int>(total), total) + " items answer with their default, 0 are stored",
       of(answered, total) + " items answer with their default, " + std::to_string(stored) + " are stored"});
}

// ---- 3. Writes ------------------------------------------------------------

int g_callbacks = 0;

void on_change(int32_t id, const void* data, int32_t length) {
  ++g_callbacks;
  const std::string_view bytes(static_cast<const char*>(data), static_cast<std::size_t>(length));
  show("callback: %-22s is now %s", item(id).label, as_text(item(id), bytes).c_str());
}

int tell_writes(const Arguments&) {
  const Store store;
  vexa_dm_reg_event_callback(on_change);
  say("The owner sets up the router. Each accepted write calls the host back, once the");
  say("value and its backup are on storage:");
  int written = 0;
  for (const auto& [id, bytes] : changes()) written += store.write(id, bytes) ? 1 : 0;
  const int heard = g_callbacks;

  say("Then the owner presses \"save\" again. The same value is not stored twice:");
  const bool again = store.write(changes().front().first, changes().front().second);
  show("write of \"%s\": %s, %d more callbacks", changes().front().second.c_str(),
       again ? "accepted" : "refused", g_callbacks - heard);

  const auto total = changes().size();
  const std::string all = std::to_string(total);
  return report({written == static_cast<int>(total) && heard == written && again && g_callbacks == heard,
                 all + " writes, " + all + " callbacks, 0 for the repeated value",
                 std::to_string(written) + " writes, " + std::to_string(heard) + " callbacks, " +
                     std::to_string(g_callbacks - heard) + " for the repeated value"});
}

Finding run_writes() {
  const Finding finding = run_step({"writes"});
  if (!provision_factory_copy()) return {false, "a factory copy", "it could not be written"};
  say("No process has the files open now. As on a production line, a copy of this healthy");
  say("store goes into the factory area: %s. It will be needed.", kFactory);
  return finding;
}

// ---- 4. Restart -----------------------------------------------------------

int tell_restart(const Arguments&) {
  const Store store;
  say("Power off, power on: a new process, whose memory knows nothing.");
  int cached = 0;
  for (const auto& [id, bytes] : changes()) {
    std::array<uint8_t, 64> buffer = {};
    cached += vexa_dm_cache_read(static_cast<uint32_t>(id), buffer.data(), buffer.size()) >= 0 ? 1 : 0;
    show("%-22s %s", item(id).label, store.shown(id).c_str());
  }
  const auto total = changes().size();
  const int kept = changes_kept(store);
  return report({kept == static_cast<int>(total) && cached == 0,
                 of(static_cast<int>(total), total) + " values read back, 0 from memory",
                 of(kept, total) + " values read back, " + std::to_string(cached) + " from memory"});
}

// ---- 5. Key-value text ----------------------------------------------------

void set_host_name(const Store& store, const char* name, const char* address) {
  int32_t length = 0;
  const int32_t result = vexa_dm_write_key_value_pairs(store.handle(), kHostNames, name, address, &length);
  show("set %-8s -> %2d, %3d bytes: %s", name, result, length, store.shown(kHostNames).c_str());
}

int tell_key_value(const Arguments&) {
  const Store store;
  say("One item may hold a small dictionary as text. Here it names the hosts of the LAN;");
  say("the default knows only the router itself:");
  show("%s", store.shown(kHostNames).c_str());
  set_host_name(store, "nas", "10.0.0.20");
  set_host_name(store, "printer", "10.0.0.30");
  say("The storage box moves; its pair keeps its place:");
  set_host_name(store, "nas", "10.0.0.21");

  char keys[8][VEXA_DM_KEY_VALUE_ROW_SIZE] = {};
  char values[8][VEXA_DM_KEY_VALUE_ROW_SIZE] = {};
  int32_t count = 0;
  vexa_dm_read_key_value_pairs(store.handle(), kHostNames, keys, values, &count);
  say("Read back as pairs:");
  std::string found;
  for (int32_t i = 0; i < count; ++i) {
    show("%-8s %s", keys[i], values[i]);
    found += (i == 0 ? "" : " ") + std::string(keys[i]) + "=" + values[i];
  }
  const std::string expected = "router=192.168.1.1 nas=10.0.0.21 printer=10.0.0.30";
  return report({found == expected, expected, found});
}

constexpr std::array kSteps = {
    Step{"First start on an empty flash", [] { return run_step({"first-start"}); }},
    Step{"Reads answered by defaults", [] { return run_step({"defaults"}); }},
    Step{"Writes, with the change callback", run_writes},
    Step{"Restart: a second process reads everything back", [] { return run_step({"restart"}); }},
    Step{"A key-value text that grows", [] { return run_step({"key-value"}); }},
};

constexpr std::array kModes = {
    Mode{"first-start", tell_first_start}, Mode{"defaults", tell_defaults},   Mode{"writes", tell_writes},
    Mode{"restart", tell_restart},         Mode{"key-value", tell_key_value},
};

}  // namespace

std::span<const Step> daily_steps() { return kSteps; }
std::span<const Mode> daily_modes() { return kModes; }

}  // namespace demo
