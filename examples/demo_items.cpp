// SPDX-License-Identifier: MIT
#include "demo_items.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace demo {
namespace {

constexpr Default u8(uint8_t value) { return {VEXA_DM_U8, {.u8 = value}, 1}; }
constexpr Default u16(uint16_t value) { return {VEXA_DM_U16, {.u16 = value}, 2}; }
constexpr Default u32(uint32_t value) { return {VEXA_DM_U32, {.u32 = value}, 4}; }
constexpr Default counter(uint32_t value) { return {VEXA_DM_U32_ALT, {.u32 = value}, 4}; }
constexpr Default text(const char* value) {
  return {VEXA_DM_STRING, {.text = value}, static_cast<int32_t>(std::string_view(value).size())};
}
template <std::size_t Size>
constexpr Default block(const std::array<uint8_t, Size>& bytes) {
  return {VEXA_DM_BLOCK, {.block = bytes.data()}, Size};
}

constexpr uint32_t ipv4(uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
  return a << 24 | b << 16 | c << 8 | d;
}

// LTE bands 1, 3, 7, 8, 20, 28 and 38, one bit a band, low byte first.
constexpr std::array<uint8_t, 8> kBands = {0xc5, 0x00, 0x08, 0x08, 0x20, 0x00, 0x00, 0x00};
constexpr std::array<uint8_t, 6> kMac = {0x02, 0x00, 0x5e, 0x10, 0x00, 0x01};
// telnet, SMB and CWMP, two bytes a port, low byte first.
constexpr std::array<uint8_t, 6> kPorts = {0x17, 0x00, 0xbd, 0x01, 0x7b, 0x1d};

// clang-format off
constexpr std::array kItems = {
  // id               table       key             what it is                how it is shown     default
  Item{kApn,          "cellular", "apn",          "access point name",      Show::kText,        text("internet")},
  Item{kApnUser,      "cellular", "apn_user",     "access point user",      Show::kText,        text("guest")},
  Item{kPdpType,      "cellular", "pdp_type",     "PDP type",               Show::kPdpType,     u8(3)},
  Item{kRoaming,      "cellular", "roaming",      "data while roaming",     Show::kOnOff,       u8(0)},
  Item{kSimPinMode,   "cellular", "sim_pin_mode", "SIM PIN at start",       Show::kPinMode,     u8(0)},
  Item{kNetworkMode,  "cellular", "network_mode", "radio technology",       Show::kNetworkMode, u8(0)},
  Item{kMtu,          "cellular", "mtu",          "largest packet",         Show::kNumber,      u16(1428)},
  Item{kBandLock,     "cellular", "band_lock",    "allowed LTE bands",      Show::kHex,         block(kBands)},
  Item{kWifiSsid,     "wifi",     "ssid",         "Wi-Fi name",             Show::kText,        text("Router-0001")},
  Item{kWifiKey,      "wifi",     "key",          "Wi-Fi key",              Show::kText,        text("printed-on-the-label")},
  Item{kWifiChannel,  "wifi",     "channel",      "Wi-Fi channel (0: any)", Show::kNumber,      u8(0)},
  Item{kWifiCountry,  "wifi",     "country",      "regulatory country",     Show::kText,        text("DE")},
  Item{kLanAddress,   "lan",      "address",      "router address",         Show::kIpv4,        u32(ipv4(192, 168, 1, 1))},
  Item{kLanMask,      "lan",      "mask",         "network mask",           Show::kIpv4,        u32(ipv4(255, 255, 255, 0))},
  Item{kDhcpFirst,    "lan",      "dhcp_first",   "first DHCP address",     Show::kIpv4,        u32(ipv4(192, 168, 1, 100))},
  Item{kDhcpLast,     "lan",      "dhcp_last",    "last DHCP address",      Show::kIpv4,        u32(ipv4(192, 168, 1, 199))},
  Item{kDhcpLease,    "lan",      "dhcp_lease",   "DHCP lease in seconds",  Show::kNumber,      u32(86400)},
  Item{kLanMac,       "lan",      "mac",          "LAN hardware address",   Show::kMac,         block(kMac)},
  Item{kHostNames,    "lan",      "host_names",   "names of local hosts",   Show::kText,        text("router,192.168.1.1;")},
  Item{kFirewallOn,   "firewall", "enabled",      "firewall",               Show::kOnOff,       u8(1)},
  Item{kAdminPort,    "firewall", "admin_port",   "web interface port",     Show::kNumber,      u16(443)},
  Item{kBlockedPorts, "firewall", "blocked",      "blocked ports",          Show::kPorts,       block(kPorts)},
  Item{kTimeZone,     "sys",      "time_zone",    "time zone",              Show::kText,        text("CET-1CEST,M3.5.0,M10.5.0/3")},
  Item{kUnitName,     "sys",      "unit_name",    "name of the unit",       Show::kText,        text("unnamed")},
  Item{kBootCount,    "counters", "boots",        "starts so far",          Show::kNumber,      u32(0)},
  Item{kReceivedKib,  "counters", "received_kib", "KiB received",           Show::kNumber,      counter(0)},
  Item{kSentKib,      "counters", "sent_kib",     "KiB sent",               Show::kNumber,      counter(0)},
  Item{kConnectedSeconds, "counters", "connected", "seconds connected",     Show::kNumber,      counter(0)},
};
// clang-format on

uint32_t number_of(std::string_view bytes) {
  uint32_t number = 0;  // the host's byte order is little-endian, as the device's
  std::memcpy(&number, bytes.data(), std::min(bytes.size(), sizeof number));
  return number;
}

template <std::size_t Count>
std::string choice(const std::array<const char*, Count>& names, uint32_t number) {
  return number < Count ? names[number] : "unknown (" + std::to_string(number) + ")";
}

std::string hex(std::string_view bytes, const char* separator) {
  std::string shown;
  for (const char byte : bytes) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    if (!shown.empty()) shown += separator;
    shown += digits;
  }
  return shown;
}

std::string ports(std::string_view bytes) {
  std::string shown;
  for (std::size_t at = 0; at + 2 <= bytes.size(); at += 2) {
    if (!shown.empty()) shown += ", ";
    shown += std::to_string(number_of(bytes.substr(at, 2)));
  }
  return shown;
}

std::string ipv4_text(uint32_t address) {
  return std::to_string(address >> 24) + "." + std::to_string(address >> 16 & 255) + "." +
         std::to_string(address >> 8 & 255) + "." + std::to_string(address & 255);
}

vexa_dm_default_item record(const Item& item) {
  vexa_dm_default_item made = {};
  made.id = item.id;
  std::snprintf(made.desc.table, sizeof made.desc.table, "%s", item.table);
  std::snprintf(made.desc.key, sizeof made.desc.key, "%s", item.key);
  made.value = item.fallback.value;
  made.type = item.fallback.type;
  made.length = item.fallback.length;
  return made;
}

}  // namespace

std::span<const Item> items() { return kItems; }

const Item& item(int32_t id) {
  for (const Item& candidate : kItems) {
    if (candidate.id == id) return candidate;
  }
  std::abort();
}

vexa_dm_default_item* records() {
  static std::vector<vexa_dm_default_item> table = [] {
    std::vector<vexa_dm_default_item> made;
    for (const Item& each : kItems) made.push_back(record(each));
    made.push_back({.id = -1, .desc = {}, .value = {}, .type = 0, .length = 0});
    return made;
  }();
  return table.data();
}

std::string default_bytes(const Item& item) {
  const auto length = static_cast<std::size_t>(item.fallback.length);
  switch (item.fallback.type) {
    case VEXA_DM_STRING:
      return std::string(item.fallback.value.text, length);
    case VEXA_DM_BLOCK:
      return std::string(static_cast<const char*>(item.fallback.value.block), length);
    default:
      return std::string(reinterpret_cast<const char*>(&item.fallback.value), length);
  }
}

std::string number_bytes(const Item& item, uint32_t number) {
  return std::string(reinterpret_cast<const char*>(&number), static_cast<std::size_t>(item.fallback.length));
}

std::string as_text(const Item& item, std::string_view bytes) {
  static constexpr std::array kPdpTypes = {"none", "IPv4", "IPv6", "IPv4 and IPv6"};
  static constexpr std::array kPinModes = {"not asked", "asked", "kept by the router"};
  static constexpr std::array kNetworkModes = {"any", "3G only", "LTE only", "5G only"};
  switch (item.show) {
    case Show::kText:
      return std::string(bytes);
    case Show::kNumber:
      return std::to_string(number_of(bytes));
    case Show::kOnOff:
      return number_of(bytes) != 0 ? "on" : "off";
    case Show::kPdpType:
      return choice(kPdpTypes, number_of(bytes));
    case Show::kPinMode:
      return choice(kPinModes, number_of(bytes));
    case Show::kNetworkMode:
      return choice(kNetworkModes, number_of(bytes));
    case Show::kIpv4:
      return ipv4_text(number_of(bytes));
    case Show::kMac:
      return hex(bytes, ":");
    case Show::kHex:
      return hex(bytes, " ");
    case Show::kPorts:
      return ports(bytes);
  }
  return {};
}

}  // namespace demo
