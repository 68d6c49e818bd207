// SPDX-License-Identifier: MIT
// AT commands, and the device's small values.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vexadm/vexadm.h>

#include <cstdlib>

#include "faults/failing_operations.h"
#include "support/own_network.h"

namespace vexa_test {

// A process of its own, which ends with this one: the one that fails has one thread and no child.
void prepare_at_service() {
  EXPECT_EQ(enter_own_network(), "");
  const int service = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(VEXA_AT_PORT);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* const peer = reinterpret_cast<sockaddr*>(&address);
  socklen_t length = sizeof address;
  EXPECT_EQ(bind(service, peer, length), 0);
  const pid_t parent = getpid();
  if (fork() == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    static constexpr char kAnswer[] = "AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n";
    char command[64];
    while (getppid() == parent && recvfrom(service, command, sizeof command, 0, peer, &length) >= 0) {
      sendto(service, kAnswer, sizeof kAnswer - 1, 0, peer, length);
    }
    _exit(0);
  }
  close(service);
}

namespace {

std::int64_t verdict(bool good) { return good ? 0 : 999; }

std::int64_t ask_modem() {
  char* const reply = CALL(vexa_util_send_at)("AT+CSQ");
  const char* const end = std::strstr(reply, "\r\nOK\r\n");
  const bool failed = std::strcmp(reply, "\r\nERROR\r\n") == 0;
  std::free(reply);
  return end != nullptr ? 0 : (failed ? -1 : 999);
}

std::vector<Operation> at_operations() {
  return {
      {.name = "AtCommand",
       .prepare = prepare_at_service,
       .run = ask_modem,
       .answers = {{0}, {-1}},
       .assertion = "vexa_common_def, line: ",
       .counts_signals = true},
      {.name = "AtParameter",
       .run =
           [] {
             char text[] = " a ";
             return verdict(std::strcmp(CALL(vexa_at_param_strip)(text, " "), "a") == 0);
           },
       .answers = {{0}},
       .reach = Reach::kNothing},
  };
}

constexpr char kNumber[] = "/tmp/number";

void write_number() {
  std::FILE* const stream = std::fopen(kNumber, "we");
  std::fputs("42\n", stream);
  std::fclose(stream);
}

bool has_number(const char* text) {
  char bytes[8] = {};
  std::FILE* const stream = std::fopen(kNumber, "re");
  if (stream == nullptr) return false;
  const std::size_t count = std::fread(bytes, 1, sizeof bytes - 1, stream);
  std::fclose(stream);
  return count == std::strlen(text) && std::strcmp(bytes, text) == 0;
}

// The function answers by its line alone.
std::int64_t make_directory() {
  log_msg[0] = '\0';
  CALL(oem_create_and_check_directory)("/data/a/b/c");
  return std::strstr(log_msg, "creation error") != nullptr ? -1 : 0;
}

std::vector<Operation> file_operations() {
  return {
      {.name = "NumberWritten",
       .prepare = prepare_store,
       .before = write_number,
       .run = [] { return std::int64_t{CALL(vexa_util_set_file_int_value)(kNumber, -123)}; },
       .answers = {{0},
                   {7, "3 oem_util_set_file_int_value|Not exist file=/tmp/number\n"},
                   {7, "3 oem_util_set_file_int_value|fwrite() failed, only <any>"}},
       .kept = [] { return has_number("-123"); },
       .item = &g_wanted,
       .reach = Reach::kSystem},
      {.name = "NumberRead",
       .before = write_number,
       .run = [] { return std::int64_t{CALL(vexa_util_get_file_int_value)(kNumber)}; },
       .answers = {{42}, {0}},
       .reach = Reach::kSystem},
      {.name = "DirectoryChecked",
       .prepare = prepare_store,
       .run = make_directory,
       .answers = {{0}, {-1, "3 oem_create_and_check_directory|Directory /data/a/b/c creation error.\n"}},
       .kept = [] { return std::filesystem::is_directory("/data/a/b/c"); },
       .item = &g_wanted,
       .reach = Reach::kSystem},
  };
}

void add_bridge() {
  EXPECT_EQ(enter_own_network(), "");
  EXPECT_EQ(std::system("ip link add br-lan type bridge && ip addr add 10.1.2.3/24 dev br-lan"), 0);
}

std::vector<Operation> machine_operations() {
  return {
      {.name = "BridgeAddress",
       .prepare = add_bridge,
       .run =
           [] {
             std::uint32_t address = 7;
             const std::int32_t code = CALL(vexa_util_get_main_bridge_addr)(&address);
             return address == (code == 0 ? htonl(0x0A010203) : 0) ? std::int64_t{code} : 999;
           },
       .answers = {{0}, {-1}},
       .reach = Reach::kSystem},
      // A read of the pipe that fails is nobody found.
      {.name = "ProcessByName",
       .before = [] { prctl(PR_SET_NAME, "vexa-wanted"); },
       .run = [] { return std::int64_t{CALL(oem_get_pid_by_name)("vexa-wanted") > 0 ? 0 : -1}; },
       .answers = {{0}, {-1}},
       .below_libc = true},
      {.name = "Features",
       .run =
           [] {
             return std::int64_t{CALL(vexa_support_PRIMARY_INTERFACE)() +
                                 CALL(vexa_support_SECONDARY_INTERFACE)() + CALL(vexa_support_USB_DETECT)()};
           },
       .answers = {{0}},
       .reach = Reach::kNothing},
  };
}

}  // namespace

std::vector<Operation> device_operations() {
  std::vector<Operation> all = at_operations();
  for (const auto& part : {file_operations(), machine_operations()}) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

}  // namespace vexa_test
