// SPDX-License-Identifier: MIT
// The way out: a default gateway, an address that arrives, and the tools that set them.
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string_view>
#include <thread>

#include "demo_screen.h"
#include "demo_steps.h"
#include "demo_store.h"

namespace demo {
namespace {

constexpr const char* kUplink = "wwan0";
constexpr const char* kGateway = "fe80::1";
constexpr const char* kAddress = "2001:db8:0:1::7";
constexpr const char* kAddressShown = "2001:0db8:0000:0001:0000:0000:0000:0007";

bool own_network() {
  const char* const set = std::getenv("VEXA_OWN_NETWORK");
  return set != nullptr && std::string_view(set) == "1";
}

// The router's own tools, by the runner that needs no shell.
bool run(const std::string& command) {
  show("%s", command.c_str());
  return vexa_ds_system_call3(command.c_str(), static_cast<uint32_t>(command.size()), nullptr, 0, 0) == 0;
}

// ---- The way out ------------------------------------------------------------

// True once a netlink socket has this process's number: the wait for an address listens.
bool someone_listens() {
  std::ifstream sockets("/proc/net/netlink");
  const std::string number = " " + std::to_string(getpid()) + " ";
  for (std::string line; std::getline(sockets, line);) {
    if (line.find(number) != std::string::npos) return true;
  }
  return false;
}

void hand_out_address() {
  while (!someone_listens()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  run(std::string("ip address add ") + kAddress + "/64 dev " + kUplink + " nodad");
}

int tell_way_out(const Arguments&) {
  quiet_log();
  if (!own_network()) {
    const char* const reason = std::getenv("VEXA_OWN_NETWORK_MISSING");
    return report({false, "a network of its own", reason != nullptr ? reason : "none was asked for"});
  }
  say("An uplink appears, in a network that only this demonstration sees:");
  bool made = run(std::string("ip link add ") + kUplink + " type veth peer name modem0");
  made = run("ip link set modem0 up") && made;
  made = run(std::string("ip link set ") + kUplink + " up") && made;

  say("Its address is not there yet. A process waits for it, and hears of it at once:");
  std::array<char, 64> address = {};
  std::thread network(hand_out_address);
  const bool waited = vexa_check_global_ipv6_addr(kUplink, address.data()) == 0;
  network.join();
  show("global address: %s", address.data());

  say("And a default route:");
  made = run(std::string("ip -6 route add default via ") + kGateway + " dev " + kUplink) && made;
  std::array<char, 64> gateway = {};
  const bool asked = vexa_get_ipv6_default_gw(kUplink, gateway.data()) == 0;
  show("gateway through %s: %s", kUplink, gateway.data());

  const bool good =
      std::string_view(address.data()) == kAddressShown && std::string_view(gateway.data()) == kGateway;
  return report({made && waited && asked && good, std::string(kAddressShown) + ", gateway " + kGateway,
                 std::string(address.data()) + ", gateway " + gateway.data()});
}

// ---- Commands ---------------------------------------------------------------

std::string run_and_tell(const std::string& command) {
  std::array<char, 256> output = {};
  const auto begin = std::chrono::steady_clock::now();
  const int32_t result = vexa_ds_system_call3(command.c_str(), static_cast<uint32_t>(command.size()),
                                              output.data(), output.size(), 0);
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
  const std::string_view text(output.data());
  show("%-24s %2d after %.1f s  %.*s", command.c_str(), result, time.count(),
       static_cast<int>(text.substr(0, text.find('\n')).size()), output.data());
  return std::to_string(result);
}

int tell_commands(const Arguments&) {
  quiet_log();
  say("Network tools run without a shell, from a list of programs, and not for ever:");
  std::string found;
  for (const char* command :
       {"ls /etc/hostname", "ls /nonexistent", "cat /etc/passwd", "echo up; reboot", "sleep 60"}) {
    found += (found.empty() ? "" : " ") + run_and_tell(command);
  }
  say("The second one fails and says why; cat is not on the list, and nothing ran; to echo");
  say("the semicolon is a letter, as no shell looks at it; and sleep was killed, because it");
  say("had been silent for two seconds.");
  return report({found == "0 -1 -1 0 -1", "results 0 -1 -1 0 -1", "results " + found});
}

constexpr std::array kSteps = {
    Step{"The way out: an address arrives, a gateway is found", [] { return run_step({"way-out"}); }},
    Step{"Commands: allowed, refused, and silent for too long", [] { return run_step({"commands"}); }},
};

constexpr std::array kModes = {
    Mode{"way-out", tell_way_out},
    Mode{"commands", tell_commands},
};

}  // namespace

std::span<const Step> network_steps() { return kSteps; }
std::span<const Mode> network_modes() { return kModes; }

}  // namespace demo
