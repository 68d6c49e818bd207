// SPDX-License-Identifier: MIT
// Project name, ping, clocks, command data, watch files and message files.
#include <sys/stat.h>
#include <vexadm/vexadm.h>

#include <cstdlib>
#include <ctime>
#include <fstream>

#include "faults/failing_operations.h"

namespace vexa_test {
namespace {

std::int64_t verdict(bool good) { return good ? 0 : 999; }

// The C library reads its time zone at the first use and keeps it until the process ends; without TZ
// it looks at /etc/localtime again with each use. What it asks for there is none of the operation's.
void know_time_zone() {
  setenv("TZ", "UTC0", 1);
  tzset();
}

// ---- Project name and ping ----

char g_name[2048];

void make_fallback() { std::ofstream("/tmp/non_signal_info") << "project=ABC\n"; }

// The command line of no machine that runs tests has a project.
constexpr char kNotThere[] = "3 __oem_get_project_name_cmdline|Could not find oem.project in <any>\n";

template <typename Function>
std::int64_t find_project(Function function) {
  std::memset(g_name, 0, sizeof g_name);
  const std::int32_t code = function(g_name, 2047);
  return code == 0 && std::strcmp(g_name, "ABC") != 0 ? 999 : code;
}

// In ping's place one that answers at once.
void make_ping() {
  std::filesystem::create_directory("/tmp/bin");
  std::ofstream("/tmp/bin/ping") << "#!/bin/sh\nexit 0\n";
  chmod("/tmp/bin/ping", 0755);
  setenv("PATH", "/tmp/bin:/usr/bin:/bin", 1);
}

std::vector<Operation> identity_parts() {
  return {
      {.name = "CommandLineValue",
       .run =
           [] {
             g_name[0] = '\0';
             const std::int32_t code = CALL(odm_get_value_from_string)("", g_name, 2047);
             return std::int64_t{code == 0 && g_name[0] == '\0' ? 999 : code};
           },
       .answers = {{0}, {-1, "3 odm_get_value_from_string|Only containe space in \n"}},
       .reach = Reach::kSystem},
      {.name = "ProjectOfTheFile",
       .before = make_fallback,
       .run =
           [] { return find_project([](char* name, std::int32_t) { return CALL(get_project_para)(name); }); },
       .answers = {{0}, {-1}},
       .reach = Reach::kSystem},
      {.name = "ProjectName",
       .before = make_fallback,
       .run = [] { return find_project(CALL(vexa_get_project_name_cmdline)); },
       .answers = {{0, kNotThere, Line::kElsewhere}, {-1, kNotThere}}},
      {.name = "ProjectNameOfTheOem",
       .before = make_fallback,
       .run = [] { return find_project(CALL(vexa_get_project_name_cmdline_oem_version)); },
       .answers = {{0, kNotThere, Line::kElsewhere}, {-1, kNotThere}}},
      {.name = "Ping",
       .before = make_ping,
       .run = [] { return std::int64_t{CALL(vexa_ping_state)("router")}; },
       .answers = {{0}, {-1, "3 oem_ping_state|>>>ping status:fail>>>\n", Line::kElsewhere}},
       .below_libc = true},
  };
}

// ---- Clocks ----

std::int64_t read_clocks() {
  vexa_clk_time relative = {};
  vexa_clk_time absolute = {};
  bool good = CALL(vexa_clk_GetRelativeTime)(&relative) == &relative;
  good = good && CALL(vexa_clk_GetAbsoluteTime)(&absolute) == &absolute && absolute.sec > 1000000000;
  return verdict(good && CALL(vexa_clk_Add)(&relative, &relative, &absolute) == &relative);
}

std::int64_t use_calendar() {
  vexa_mytime time = {};
  CALL(vexa_util_utc_sec_2_mytime)(951782400000, &time, 0);
  return verdict(time.year == 2000 && time.day == 29 && CALL(get_days)("2024-2-28", "2024-3-1") == 2);
}

std::vector<Operation> clock_parts() {
  return {
      {.name = "Clocks", .run = read_clocks, .answers = {{0}}, .reach = Reach::kKernel},
      {.name = "Calendar",
       .before = know_time_zone,
       .run = use_calendar,
       .answers = {{0}},
       .reach = Reach::kNothing},
      {.name = "Uptime",
       .run =
           [] {
             const long uptime = CALL(get_linuxuptime)();
             return std::int64_t{uptime > 0 ? 0 : uptime};
           },
       .answers = {{0}, {-1, "3 get_linuxuptime|info.uptime is -1\n"}},
       .reach = Reach::kSystem},
  };
}

// ---- Command data ----

std::int64_t use_command_data() {
  for (const std::int32_t type : {0, 4, 5}) {
    vexa_cmd_q_data* const record = CALL(vexa_malloc_cmd_q_data)(type);
    if (record->cmd_type != type || record->payload == nullptr) return 999;
    CALL(vexa_free_cmd_q_data)(record);
  }
  return 0;
}

// ---- Watch and message files ----

void make_watch_files(off_t size) {
  std::filesystem::create_directories("/data/oem/logs");
  std::filesystem::create_directories("/vexanv/data");
  std::ofstream("/vexanv/data/fwawatch_option") << "1\n";
  for (const char* path : {"/data/oem/logs/fwawatchA.log", "/data/oem/logs/fwawatchB.log"}) {
    std::ofstream(path).close();
    std::filesystem::resize_file(path, static_cast<std::uintmax_t>(size));
  }
}

std::int64_t watch() { return CALL(oem_watch)("here", 7, "text %d", 5); }

char g_message[VEXA_LOG_MESSAGE_SIZE];

const std::vector<Answer> kShellAnswers = {
    {0},
    {-1, "3 oem_system_call|system error!\n"},
    // The shell could not be started by system(), which says so with the code of a missing one.
    {127 << 8, "3 oem_system_call|run shell script fail=32512, script exit code: 127\n"}};

std::vector<Operation> file_parts() {
  return {
      {.name = "WatchLog",
       .before = [] { make_watch_files(5); },
       .run = watch,
       .answers = {{0}},
       .below_libc = true},
      {.name = "WatchLogFull",
       .before = [] { make_watch_files(1048577); },
       .run = watch,
       .answers = {{0}},
       .below_libc = true},
      {.name = "MessageFile",
       .before = know_time_zone,
       .run = [] { return std::int64_t{CALL(vexa_write_msg2file)("/tmp/messages", "text")}; },
       .answers = kShellAnswers,
       .reach = Reach::kSystem,
       .below_libc = true},
      {.name = "MessageFileOfAFunction",
       .before = know_time_zone,
       .run =
           [] {
             return std::int64_t{CALL(vexa_write_msg2file_ex)(g_message, "/tmp/messages", "vexa_f", "%d", 5)};
           },
       .answers = kShellAnswers,
       .below_libc = true},
  };
}

}  // namespace

std::vector<Operation> identity_operations() {
  std::vector<Operation> all = identity_parts();
  for (const auto& part : {clock_parts(), file_parts()}) all.insert(all.end(), part.begin(), part.end());
  all.push_back({.name = "CommandData",
                 .run = use_command_data,
                 .answers = {{0}},
                 .assertion = "vexa_common_def, line: ",
                 .reach = Reach::kMemory});
  return all;
}

}  // namespace vexa_test
