// SPDX-License-Identifier: MIT
// ussd, at, gateway, wait-ip, crc: the toolbox from a shell.
#include <cstdlib>
#include <cstring>

#include <vexadm/at_command.h>
#include <vexadm/data_manager.h>
#include <vexadm/gsm_text.h>
#include <vexadm/netlink.h>

#include "base/value.h"
#include "commands/rows.h"
#include "store_writer.h"

namespace cli {
namespace {

constexpr std::size_t kMostMessage = 255;  // bytes of a USSD message; its length is one byte

int run_ussd(Arguments& arguments) {
  Text scheme;
  const char* digits = arguments.words[0];
  if (digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) digits += 2;
  if (!parse_hex(digits, scheme) || scheme.size() != 1) {
    return wrong_usage("DCS %s: two hexadecimal digits, such as 0f or 48", arguments.words[0]);
  }
  Text message;
  if (!parse_hex(arguments.words[1], message) || message.empty() || message.size() > kMostMessage) {
    return wrong_usage("HEX: 1 to %zu bytes in hexadecimal", kMostMessage);
  }
  hear_library();
  // A septet or a unit of UCS-2 gives three bytes at most.
  char text[4 * kMostMessage] = {};
  const uint16_t size = vexa_util_convert_ussd_string_to_utf8(
      static_cast<uint8_t>(scheme.view()[0]), reinterpret_cast<const uint8_t*>(message.c_str()),
      message.size(), text, sizeof text);
  if (size == 0) {
    tell_failures();
    return fail("data coding scheme %s says no text, or this is none", arguments.words[0]);
  }
  Text out(std::string_view(text, size));
  if (arguments.json) {
    Json().object().text("text", out.view()).end();
    return kDone;
  }
  print(out.add('\n'));
  return kDone;
}

// The reply is worth exit 0 when the modem has done what was asked for.
bool is_success(std::string_view reply) {
  while (!reply.empty() && (reply.back() == '\r' || reply.back() == '\n')) reply.remove_suffix(1);
  return reply.ends_with("OK") || reply == "0" || reply.ends_with("\n0");
}

int run_at(Arguments& arguments) {
  hear_library();
  char* reply = vexa_util_send_at(arguments.words[0]);
  const std::string_view text = reply;
  const bool success = is_success(text);
  if (arguments.json) {
    Json().object().text("reply", text).boolean("ok", success).end();
  } else {
    Text out;
    std::string_view rest = text;
    while (rest.starts_with('\r') || rest.starts_with('\n')) rest.remove_prefix(1);
    for (const char c : rest) {
      if (c != '\r') out.add(c);
    }
    if (out.empty() || out.view().back() != '\n') out.add('\n');
    print(out);
  }
  std::free(reply);
  if (!success) tell_failures();
  return success ? kDone : kFailed;
}

int tell_address(const Arguments& arguments, const char* name, const char* address) {
  if (arguments.json) {
    Json().object().text("interface", arguments.words[0]).text(name, address).end();
  } else {
    print(textf("%s\n", address));
  }
  return kDone;
}

constexpr std::size_t kAddressSize = 64;

int run_gateway(Arguments& arguments) {
  hear_library();
  char gateway[kAddressSize] = {};
  if (vexa_get_ipv6_default_gw(arguments.words[0], gateway) != 0 || gateway[0] == '\0') {
    tell_failures();
    return fail("%s has no IPv6 default gateway; ip -6 route shows all routes", arguments.words[0]);
  }
  return tell_address(arguments, "gateway", gateway);
}

int run_wait_ip(Arguments& arguments) {
  hear_library();
  char address[kAddressSize] = {};
  const int32_t result = vexa_check_global_ipv6_addr(arguments.words[0], address);
  if (result == 0 && address[0] != '\0' && std::strncmp(address, "fe80", 4) != 0) {
    return tell_address(arguments, "address", address);
  }
  tell_failures();
  return fail("no new global IPv6 address came to %s; ip -6 address shows those that are there",
              arguments.words[0]);
}

int run_crc(Arguments& arguments) {
  Text bytes;
  if (!parse_hex(arguments.words[0], bytes) || bytes.empty()) return wrong_usage("HEX: bytes in hexadecimal");
  const bool all = arguments.has("--all");
  const auto size = static_cast<uint32_t>(bytes.size());
  const uint32_t bits = all ? size * 8 : size & 0xFFFFU;
  const int32_t crc = vexa_dm_Crc32Calc(reinterpret_cast<const uint8_t*>(bytes.c_str()), bits, 0);
  if (arguments.json) {
    Json().object().number("crc", crc).number("bits", bits).end();
  } else {
    print(textf("%d %08x\n", crc, static_cast<uint32_t>(crc)));
  }
  return kDone;
}

constexpr Option kCrcOptions[] = {
    {"--all", nullptr, "over all bits; items are guarded in an eighth of them"}};

}  // namespace

extern const Command kUssd = {
    "ussd",
    "DCS HEX",
    "The text of a USSD message, by its data coding scheme",
    "Both in hexadecimal, as a modem's log or +CUSD shows them. Schemes are those of\n"
    "3GPP TS 23.038: 0f is the 7-bit alphabet, 48 UCS-2, f4 8-bit.",
    "  $ vexadm ussd 0f C8329BFD06\n"
    "  Hello",
    {},
    2,
    2,
    true,
    run_ussd,
};

extern const Command kAt = {
    "at",
    "COMMAND",
    "Sends an AT command to the modem and prints the reply",
    "By the service on UDP port 5555 of this machine; waits up to 60 seconds. Exit 0 when the\n"
    "reply ends in OK.",
    "  $ vexadm at AT+CSQ\n"
    "  +CSQ: 21,99\n"
    "  \n"
    "  OK",
    {},
    1,
    1,
    true,
    run_at,
};

extern const Command kGateway = {
    "gateway",
    "IFACE",
    "The IPv6 default gateway of an interface",
    "",
    "  $ vexadm gateway wwan0\n"
    "  fe80::1",
    {},
    1,
    1,
    true,
    run_gateway,
};

extern const Command kWaitIp = {
    "wait-ip",
    "IFACE",
    "Waits for a new global IPv6 address of an interface",
    "Until the kernel tells of one, or of nothing for two seconds. An address that is there\n"
    "already is not told of.",
    "  $ vexadm wait-ip wwan0\n"
    "  2001:0db8:0000:0000:0000:0000:0000:0001",
    {},
    1,
    1,
    true,
    run_wait_ip,
};

extern const Command kCrc = {
    "crc",
    "HEX",
    "The checksum that an item of these bytes has",
    "As the stores have it: signed, then in hexadecimal. It covers as many bits as there are\n"
    "bytes.",
    "  $ vexadm crc 47617264656e20686f757365\n"
    "  -1089048068 bf1671fc",
    kCrcOptions,
    1,
    1,
    true,
    run_crc,
};

}  // namespace cli
