// SPDX-License-Identifier: MIT
// The items of the demonstration router: what it stores, and how a person wants to read it.
#ifndef VEXADM_EXAMPLES_DEMO_ITEMS_H
#define VEXADM_EXAMPLES_DEMO_ITEMS_H

#include <vexadm/types.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace demo {

// Item ids. The upper byte is the table, as in the router's web interface.
enum Id : int32_t {
  kApn = 0x101,
  kApnUser,
  kPdpType,
  kRoaming,
  kSimPinMode,
  kNetworkMode,
  kMtu,
  kBandLock,
  kWifiSsid = 0x201,
  kWifiKey,
  kWifiChannel,
  kWifiCountry,
  kLanAddress = 0x301,
  kLanMask,
  kDhcpFirst,
  kDhcpLast,
  kDhcpLease,
  kLanMac,
  kHostNames,
  kFirewallOn = 0x401,
  kAdminPort,
  kBlockedPorts,
  kTimeZone = 0x501,
  kUnitName,
  kBootCount = 0x601,
  kReceivedKib,
  kSentKib,
  kConnectedSeconds,
};

// How a value is shown.
enum class Show { kText, kNumber, kOnOff, kPdpType, kPinMode, kNetworkMode, kIpv4, kMac, kHex, kPorts };

// A default value together with its value type.
struct Default {
  vexa_dm_type type;
  vexa_dm_default_value value;
  int32_t length;
};

struct Item {
  int32_t id;
  const char* table;
  const char* key;
  const char* label;
  Show show;
  Default fallback;
};

std::span<const Item> items();
const Item& item(int32_t id);

// The same table in the library's form, ending with id -1. It lives, writable, until the
// process ends, as the library asks.
vexa_dm_default_item* records();

// The bytes of a compiled-in default, and bytes as a person reads them.
std::string default_bytes(const Item& item);
std::string as_text(const Item& item, std::string_view bytes);
// A number as an item of that type stores it.
std::string number_bytes(const Item& item, uint32_t number);

}  // namespace demo

#endif
