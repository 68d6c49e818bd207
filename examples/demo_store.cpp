// SPDX-License-Identifier: MIT
#include "demo_store.h"

#include <array>

#include "demo_items.h"
#include "demo_screen.h"

namespace demo {

Store::Store() {
  quiet_log();
  handle_ = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
  vexa_dm_reg_def_items(records());
}

Store::~Store() { vexa_dm_unreg(handle_); }

std::string Store::read(int32_t id, int32_t* result) const {
  std::array<uint8_t, 1024> buffer = {};
  const int32_t count = vexa_dm_read(handle_, id, buffer.data(), static_cast<int32_t>(buffer.size()));
  if (result != nullptr) *result = count;
  if (count < 0) return {};
  return std::string(reinterpret_cast<const char*>(buffer.data()), static_cast<std::size_t>(count));
}

std::string Store::shown(int32_t id) const { return as_text(item(id), read(id)); }

bool Store::write(int32_t id, std::string_view bytes) const {
  return vexa_dm_write(handle_, id, bytes.data(), static_cast<int32_t>(bytes.size())) == 0;
}

const std::vector<Change>& changes() {
  static const std::vector<Change> list = {
      {kApn, "fast.example"},
      {kRoaming, number_bytes(item(kRoaming), 1)},
      {kBandLock, std::string("\x04\x00\x08\x00\x00\x00\x00\x00", 8)},
      {kWifiSsid, "Garden house"},
      {kWifiKey, "apples and pears"},
      {kLanAddress, number_bytes(item(kLanAddress), 0x0a000001)},
      {kAdminPort, number_bytes(item(kAdminPort), 8443)},
      {kTimeZone, "GMT0BST,M3.5.0/1,M10.5.0"},
      {kReceivedKib, number_bytes(item(kReceivedKib), 4711)},
  };
  return list;
}

int changes_kept(const Store& store) {
  int kept = 0;
  for (const auto& [id, bytes] : changes()) kept += store.read(id) == bytes ? 1 : 0;
  return kept;
}

std::string of(int count, std::size_t total) {
  return std::to_string(count) + " of " + std::to_string(total);
}

}  // namespace demo
