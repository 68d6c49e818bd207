// SPDX-License-Identifier: MIT
// Beside the modem: replies of the network as people read them, and commands to the modem.
#include <vexadm/vexadm.h>

#include <array>
#include <cstdlib>
#include <string_view>

#include "demo_modem.h"
#include "demo_screen.h"
#include "demo_steps.h"
#include "demo_store.h"

namespace demo {
namespace {

// ---- Replies of the network -------------------------------------------------

struct Reply {
  uint8_t scheme;  // data coding scheme
  const char* hex;
  const char* text;  // what people must read; empty: not for people
};

constexpr std::array kReplies = {
    // 31 characters in 28 bytes; the last septet is a carriage return that only fills the byte.
    Reply{0x0F, "4379999CA6836232570D062A56A52C903DCC4E93413318881CCECF1B",
          "Credit 12.50 EUR, valid 30 days"},
    Reply{0x44, "546F7020757020617420616E79206B696F736B", "Top up at any kiosk"},
    Reply{0x48, "04110430043B0430043D0441003A00200031003200300020044004430431002E", "Баланс: 120 руб."},
    Reply{0x48, "4F59989D00200031003200205143", "余额 12 元"},
    Reply{0x4C, "00010203", ""},
};

std::string decoded(const Reply& reply) {
  std::array<uint8_t, 160> bytes = {};
  std::array<char, 512> text = {};
  const std::string_view hex = reply.hex;
  const int32_t count =
      vexa_hex_StringToBinary(reply.hex, static_cast<uint32_t>(hex.size()), bytes.data(), bytes.size());
  if (count < 0) return "no hexadecimal text";
  vexa_util_convert_ussd_string_to_utf8(reply.scheme, bytes.data(), static_cast<uint32_t>(count), text.data(),
                                        text.size());
  return text.data();
}

int tell_replies(const Arguments&) {
  quiet_log();
  say("The owner asks the network for the credit. Its replies come as bytes with a data");
  say("coding scheme: packed septets, plain bytes, or UCS-2. As UTF-8 they read:");
  int good = 0;
  for (const Reply& reply : kReplies) {
    const std::string text = decoded(reply);
    good += text == reply.text ? 1 : 0;
    show("0x%02X %.20s%-3s  %s", reply.scheme, reply.hex,
         std::string_view(reply.hex).size() > 20 ? "..." : "",
         text.empty() ? "(a reserved scheme: nothing for people)" : text.c_str());
  }
  return report({good == static_cast<int>(kReplies.size()),
                 of(kReplies.size(), kReplies.size()) + " as expected",
                 of(good, kReplies.size()) + " as expected"});
}

// ---- Commands to the modem --------------------------------------------------

struct Exchange {
  const char* command;
  const char* wanted;  // stands in the reply
};

constexpr std::array kExchanges = {
    Exchange{"AT", "OK"},
    Exchange{"at+csq", "+CSQ:"},
    Exchange{"AT+CGSN", "3"},
    Exchange{"AT+NOSUCH", "ERROR"},
};

std::string one_line(std::string_view reply) {
  std::string line;
  for (const char c : reply) {
    if (c >= ' ') {
      line += c;
    } else if (!line.empty() && !line.ends_with(" ")) {
      line += ' ';
    }
  }
  return line;
}

int tell_modem(const Arguments&) {
  quiet_log();
  const Modem modem;
  if (!modem.ready()) return report({false, "a modem on UDP port 5555", "it did not start"});
  say("A program plays the modem on UDP port 5555; it echoes what it is sent. The echo is");
  say("taken off, and the final result code ends the waiting:");
  int good = 0;
  for (const Exchange& exchange : kExchanges) {
    char* const reply = vexa_util_send_at(exchange.command);
    const bool found = std::string_view(reply).find(exchange.wanted) != std::string_view::npos;
    good += found ? 1 : 0;
    show("%-10s %s", exchange.command, one_line(reply).c_str());
    std::free(reply);
  }
  return report({good == static_cast<int>(kExchanges.size()),
                 of(kExchanges.size(), kExchanges.size()) + " answered",
                 of(good, kExchanges.size()) + " answered"});
}

constexpr std::array kSteps = {
    Step{"What the network says, as people read it", [] { return run_step({"replies"}); }},
    Step{"AT commands to a modem", [] { return run_step({"modem"}); }},
};

constexpr std::array kModes = {
    Mode{"replies", tell_replies},
    Mode{"modem", tell_modem},
};

}  // namespace

std::span<const Step> text_steps() { return kSteps; }
std::span<const Mode> text_modes() { return kModes; }

}  // namespace demo
