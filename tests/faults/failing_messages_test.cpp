// SPDX-License-Identifier: MIT
// What each class of failure answers and logs, word for word.
#include <sys/resource.h>
#include <sys/select.h>

#include <cerrno>

#include "faults/failing_calls.h"
#include "faults/failing_operations.h"
#include "vexadm/vexadm.h"

namespace vexa_test {
namespace {

using Lines = std::vector<std::string>;

constexpr FaultPlan always(int error, const char* call, const char* path) {
  return {1, kFromThereOn, error, path, call};
}
constexpr FaultPlan nth(std::uint64_t n, int error, const char* call, const char* path = "") {
  return {n, 1, error, path, call};
}

struct Failure {
  const char* name;
  FaultPlan plan;
  std::int64_t (*run)();
  std::int64_t code;
  Lines lines;            // of warning level and above
  unsigned found = kOld;  // the item, once nothing fails any more
};

std::ostream& operator<<(std::ostream& out, const Failure& failure) { return out << failure.name; }

std::int64_t write_wanted() { return store(g_wanted, kNewValue); }
std::int64_t read_wanted() { return look(g_wanted).code; }
std::int64_t clean() {
  char wish[] = "copy";
  return static_cast<std::int32_t>(dm_sqlite_clean(wish));
}
std::int64_t export_all() { return static_cast<std::int32_t>(dm_read_all_tabs_from_db(DB_CONFIG)); }
std::int64_t run_command() {
  char output[8] = {};
  return static_cast<std::int32_t>(dm_sqlite_system_cmd("true", output, 7));
}
std::int64_t check_health() { return static_cast<std::int32_t>(check_database_health(DB_CONFIG)); }
std::int64_t match_versions() {
  std::uint8_t matched = 2;
  sqlite_chk_db_ver_match(&matched);
  return matched;
}

std::int64_t ask_modem() {
  char* const reply = vexa_util_send_at("AT+CSQ");
  const bool good = std::strstr(reply, "\r\nOK\r\n") != nullptr;
  std::free(reply);
  return good ? 0 : -1;
}

std::int64_t ask_modem_by_a_high_descriptor() {
  const rlimit many = {2000, 2000};
  setrlimit(RLIMIT_NOFILE, &many);
  while (dup(STDERR_FILENO) < FD_SETSIZE - 1) {
  }
  return ask_modem();
}

const std::string kNotReceived = "3 oem_util_send_at|recvfrom fail:error=5,[Input/output error]\n";
const std::string kCopied = "3 dm_pal_write|ERROR: cp /data/config.db /data/configbak.db";
const std::string kCannotOpen = "sqlite3_open failed: unable to open database file\n";

std::vector<Failure> all_failures() {
  return {
      {"CommandWithoutADescriptor",
       nth(1, EMFILE, "popen"),
       run_command,
       -1,
       {"3 dm_sqlite_system_cmd|system command failed: (24) Too many open files\n"}},
      {"CommandWithoutAProcess",
       nth(1, EAGAIN, "popen"),
       run_command,
       -1,
       {"3 dm_sqlite_system_cmd|system command failed: (11) Resource temporarily unavailable\n"}},
      {"CleanThatCannotCount",
       nth(1, ENOMEM, "popen"),
       clean,
       -1,
       {"3 dm_sqlite_system_cmd|system command failed: (12) Cannot allocate memory\n"}},
      {"CleanThatCannotCopy",
       nth(2, EMFILE, "popen"),
       clean,
       -1,
       {"3 dm_sqlite_system_cmd|system command failed: (24) Too many open files\n"}},
      {"CleanOfAPrimaryThatStays",
       always(EACCES, "unlink", "/data/config.db"),
       clean,
       -1,
       {"3 dm_sqlite_clean|unlink error: Permission denied\n"}},
      {"CleanOfABackupThatStays",
       always(EROFS, "unlink", "/data/configbak.db"),
       clean,
       -1,
       {"3 dm_sqlite_clean|unlink bak error: Read-only file system\n"}},
      {"CleanOfAJournalThatStays",
       always(EIO, "unlink", "/data/state.db"),
       clean,
       -1,
       {"3 dm_sqlite_clean|unlink state error: Input/output error\n"},
       kMissing},
      {"ExportWithoutACsv", always(EACCES, "fopen", "ExportCSV"), export_all, 4, {}},
      {"ExportOfAClosedFile",
       always(EMFILE, "open", "config.db"),
       export_all,
       -101,
       {"3 dm_read_all_tabs_from_db|" + kCannotOpen}},
      {"ReadWithoutThePrimary",
       always(EMFILE, "open", "config.db"),
       read_wanted,
       3000,
       {"3 dm_read_db|" + kCannotOpen}},
      {"ReadWithoutTheBackup",
       always(EACCES, "open", "configbak.db"),
       read_wanted,
       -101,
       {"3 dm_read_db|" + kCannotOpen, "3 dm_read_db|" + kCannotOpen}},
      {"WriteWithoutThePrimary",
       always(EMFILE, "open", "config.db"),
       write_wanted,
       -1,
       {"3 dm_write_db|" + kCannotOpen, "3 dm_pal_write|dm_update_db: \n"}},
      {"WriteWithoutTheJournal",
       always(EMFILE, "open", "state.db"),
       write_wanted,
       0,
       {"3 dm_write_state_db|" + kCannotOpen, "3 dm_pal_write|dm_write_state_db  WS_READY failed: -1\n",
        kCopied, "3 dm_write_state_db|" + kCannotOpen,
        "3 dm_pal_write|dm_write_state_db  WS_WRITE_DONE failed: -1\n", "3 dm_write_state_db|" + kCannotOpen,
        "3 dm_pal_write|dm_write_state_db  WS_BACKUP_DONE failed: -1\n"},
       kNew},
      {"WriteOntoAFullStorage",
       always(ENOSPC, "pwrite", "/data/config.db"),
       write_wanted,
       0,
       {"3 dm_update_record|LINE step failed rc: 13\n", kCopied}},
      {"WriteWhoseSyncFails",
       always(EIO, "fdatasync", "/data/config.db"),
       write_wanted,
       0,
       {"3 dm_update_record|LINE step failed rc: 10\n", kCopied}},
      // The record alone goes into the backup then.
      {"WriteWhoseCopyIsNotSynced", always(EIO, "fsync", "vexadm-copy"), write_wanted, 0, {kCopied}, kNew},
      {"WriteWhoseCopyIsNotNamed",
       always(EACCES, "rename", "configbak.db"),
       write_wanted,
       0,
       {kCopied},
       kNew},
      {"WriteWhoseCopyDoesNotFit", always(ENOSPC, "write", "vexadm-copy"), write_wanted, 0, {kCopied}, kNew},
      {"DefaultWithoutItsFile",
       always(EMFILE, "open", "DefItems.db"),
       [] { return std::int64_t{dm_write_def_db("cfg", "wanted", 6, "new", 3)}; },
       -101,
       {"3 dm_write_def_db|" + kCannotOpen}},
      {"DefaultReadWithoutItsFile",
       always(EMFILE, "open", "DefItems.db"),
       [] {
         std::int32_t type = 0;
         return std::int64_t{dm_read_def_db("cfg", "wanted", &type, g_buffer, 64)};
       },
       -101,
       {"3 dm_read_def_db|" + kCannotOpen}},
      {"HealthOfAClosedFile",
       always(EMFILE, "open", "config.db"),
       check_health,
       -1,
       {"3 check_database_health|Open failed: unable to open database file (Code: 14)\n",
        "3 check_database_health|is_corrupted=0\n"}},
      {"HealthOfAnUnreadableFile",
       FaultPlan{2, kFromThereOn, EIO, "config.db", "pread"},
       check_health,
       -2,
       {"3 check_database_health|/data/config.db Quick check error: disk I/O error (Code: 10)\n",
        "3 check_database_health|is_corrupted=0\n"}},
      {"VersionsWithoutTheDefaults",
       always(EMFILE, "open", "DefItems.db"),
       match_versions,
       2,
       {"3 dm_read_def_db|" + kCannotOpen, "3 sqlite_chk_db_ver_match|tmp_DefItems_db_ver read fail\n"}},
      {"VersionsWithoutTheItems",
       always(EMFILE, "open", "config"),
       match_versions,
       2,
       {"3 dm_read_db|" + kCannotOpen, "3 dm_read_db|" + kCannotOpen, "3 dm_read_db|" + kCannotOpen,
        "3 sqlite_chk_db_ver_match|tmp_sqlite_ver read fail\n"}},
      {"SystemCallWithoutAProcess",
       nth(1, EAGAIN, "system"),
       [] { return std::int64_t{vexa_system_call("true", 4)}; },
       -1,
       {"3 oem_system_call|system error!\n"}},
      {"SystemCallForACodeWithoutAProcess",
       nth(1, EAGAIN, "popen"),
       [] { return std::int64_t{vexa_system_call_ex("true", 4)}; },
       -1,
       {"3 oem_system_call_ex|system command failed\n",
        "3 oem_system_call_ex|system command failed, rc=-1 errno: 11\n"}},
      {"OutputWithoutAProcess",
       nth(1, EAGAIN, "popen"),
       [] {
         char output[8] = {};
         return std::int64_t{vexa_popen_call("true", output, sizeof output)};
       },
       -1,
       {"3 oem_popen_call|popen call:true fail[Resource temporarily unavailable]\n"}},
      {"OutputLaterWithoutAProcess",
       nth(1, EAGAIN, "popen"),
       [] {
         char output[8] = {};
         return std::int64_t{vexa_popen_call_ex("true", output, sizeof output)};
       },
       -1,
       {"3 oem_popen_call_ex|popen call:true fail[Resource temporarily unavailable]\n"}},
      {"DirectoriesOnAFullStorage",
       nth(2, ENOSPC, "mkdir"),
       [] { return std::int64_t{dir_make_path("/data/a/b", 0755)}; },
       -1,
       {"3 dir_make_path|Could not create directory '/data/a/b'.\n"}},
      {"NumberThatIsNotSynced",
       always(EIO, "fsync", "/tmp/number"),
       [] { return std::int64_t{vexa_util_set_file_int_value("/tmp/number", 5)}; },
       7,
       {"3 oem_util_set_file_int_value|fwrite() failed, only [1] written, total_len=[1], "
        "reason=[Input/output error]5"}},
      {"AtCommandWithoutASocket",
       nth(1, ENFILE, "socket"),
       ask_modem,
       -1,
       {"3 oem_util_send_at|socket error [Too many open files in system]23\n"}},
      {"AtCommandThatIsNotSent", nth(1, ENOBUFS, "sendto"), ask_modem, -1, {}},
      {"AtCommandThatIsSentInPart", nth(1, kShortCount, "sendto"), ask_modem, -1, {}},
      {"AtCommandThatIsSentAfterAnInterruption", nth(1, EINTR, "sendto"), ask_modem, 0, {}},
      {"AtCommandWithoutAWait",
       always(ENOMEM, "select", ""),
       ask_modem,
       -1,
       {"3 oem_util_send_at|select fail:ret=-1\n", "3 oem_util_send_at|select fail:ret=-1\n",
        "3 oem_util_send_at|select fail:ret=-1\n"}},
      {"AtCommandWithoutAWaitForAHighDescriptor",
       always(ENOMEM, "poll", ""),
       ask_modem_by_a_high_descriptor,
       -1,
       {"3 oem_util_send_at|select fail:ret=-1\n", "3 oem_util_send_at|select fail:ret=-1\n",
        "3 oem_util_send_at|select fail:ret=-1\n"}},
      {"AtCommandWhoseLastWaitIsGood",
       FaultPlan{1, 2, EINTR, "", "select"},
       ask_modem,
       0,
       {"3 oem_util_send_at|select fail:ret=-1\n", "3 oem_util_send_at|select fail:ret=-1\n"}},
      {"AtCommandWithoutAnAnswer",
       always(EIO, "recvfrom", ""),
       ask_modem,
       -1,
       {kNotReceived, kNotReceived, kNotReceived}},
  };
}

class FailureOf : public StorageTest, public ::testing::WithParamInterface<Failure> {};

TEST_P(FailureOf, IsAnsweredAndLoggedWordForWord) {
  if (IsSkipped()) return;
  const Failure& failure = GetParam();
  prepare_store();
  if (failure.run == ask_modem) prepare_at_service();
  expect_in_child([&] {
    LogCapture log;
    std::int64_t code = 0;
    {
      const FailingCalls injector(failure.plan);
      code = failure.run();
    }
    EXPECT_GT(FailingCalls::failed(), 0u);
    EXPECT_EQ(code, failure.code);
    Lines lines;
    for (const LogLine& line : log.lines()) {
      if (line.level >= 2) lines.push_back(log_text(line));
    }
    EXPECT_EQ(lines, failure.lines);
    EXPECT_EQ(FailingCalls::unsynced_renames(), 0u);
  });
  expect_in_child([&] {
    vexa_set_log_level(4);
    EXPECT_EQ(look(g_wanted).found, failure.found);
  });
}

INSTANTIATE_TEST_SUITE_P(Classes, FailureOf, ::testing::ValuesIn(all_failures()),
                         [](const ::testing::TestParamInfo<Failure>& tested) { return tested.param.name; });

class FailureBeside : public StorageTest {};

TEST_F(FailureBeside, ACleanThatCannotStartLeavesTheStoreUsable) {
  if (IsSkipped()) return;
  prepare_store();
  expect_in_child([] {
    vexa_set_log_level(4);
    {
      const FailingCalls injector(nth(1, EMFILE, "popen"));
      EXPECT_EQ(clean(), -1);
    }
    EXPECT_EQ(store(g_wanted, kNewValue), 0);
    EXPECT_EQ(look(g_wanted).found, unsigned{kNew});
    EXPECT_EQ(clean(), 0);
  });
}

TEST_F(FailureBeside, AnExportThatLosesItsCsvSaysSoOnStandardError) {
  if (IsSkipped()) return;
  prepare_store();
  const ChildResult child = run_in_child([] {
    vexa_set_log_level(4);
    const FailingCalls injector(nth(2, EMFILE, "fopen"));
    EXPECT_EQ(export_all(), 0);
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
  EXPECT_EQ(child.err, "SQL error: query aborted\n");
  EXPECT_EQ(child.out, "");
  EXPECT_EQ(read_file(kExport), std::string("key,len,type,value,\r\n\0", 22));
}

// ---- A program without a shell ----

const std::string kExec = "oem_ds_exec_internal|";
const std::string kPipeMade = "0 " + kExec + "ret=0\n";
const std::string kStarted = "1 " + kExec + "[cpid:<any>] Spawned child PID(<any>) command:\"<any>\"\n";

struct ProgramFailure {
  FaultPlan plan;
  const char* command;
  Lines lines;      // of any level, behind those of the pipes
  int left_status;  // of the child that is left behind, -1 when none is
};

std::ostream& operator<<(std::ostream& out, const ProgramFailure& failure) {
  return out << failure.plan.call;
}

class ProgramFailureOf : public StorageTest, public ::testing::WithParamInterface<ProgramFailure> {};

TEST_P(ProgramFailureOf, IsAnsweredAndLoggedWordForWord) {
  if (IsSkipped()) return;
  const ProgramFailure& failure = GetParam();
  expect_in_child([&] {
    LogCapture log;
    char result[8] = "";
    {
      const FailingCalls injector(failure.plan);
      EXPECT_EQ(vexa_ds_system_call3(failure.command, 0, result, sizeof result, 0), -1);
    }
    Lines expected = {kPipeMade, kPipeMade};
    expected.insert(expected.end(), failure.lines.begin(), failure.lines.end());
    EXPECT_TRUE(log_is(log, expected));
    EXPECT_STREQ(result, "");
    int status = -1;
    EXPECT_EQ(waitpid(-1, &status, 0) > 0, failure.left_status != -1);
    EXPECT_EQ(status, failure.left_status);
  });
}

INSTANTIATE_TEST_SUITE_P(
    Calls, ProgramFailureOf,
    ::testing::Values(
        ProgramFailure{nth(1, EAGAIN, "fork"), "sleep 0", {}, -1},
        ProgramFailure{
            nth(1, ENOMEM, "select"),
            "sleep 0",
            {kStarted, "1 " + kExec + "[cpid:<any>] Failed to select() -> 12:Cannot allocate memory\n"},
            0},
        ProgramFailure{
            nth(1, EPERM, "kill"),
            "sleep 3",
            {kStarted,
             "1 " + kExec +
                 "[cpid:<any>] ds_exec tried kill(); failed with error 1 - Operation not permitted\n"},
            0},
        ProgramFailure{nth(1, ECHILD, "waitpid"),
                       "sleep 0",
                       {kStarted, "1 " + kExec + "(): [cpid:<any>] wait_pid = 0\n"},
                       0},
        // In the new process, of which the host sees the exit code.
        ProgramFailure{nth(1, EACCES, "execvp"),
                       "sleep 0",
                       {kStarted, "1 " + kExec + "[cpid:<any>] Process exited normally with rc=255\n"},
                       -1},
        ProgramFailure{nth(2, EBUSY, "dup2"),
                       "sleep 0",
                       {kStarted, "1 " + kExec + "[cpid:<any>] Process exited normally with rc=255\n"},
                       -1}),
    [](const auto& tested) { return std::string(tested.param.plan.call); });

TEST_F(FailureBeside, AnInterruptedWaitForAProgramGoesOn) {
  if (IsSkipped()) return;
  expect_in_child([] {
    for (const char* call : {"select", "waitpid"}) {
      LogCapture log;
      {
        const FailingCalls injector(FaultPlan{1, 3, EINTR, "", call});
        EXPECT_EQ(vexa_ds_system_call3("sleep 0", 0, nullptr, 0, 0), 0);
        EXPECT_EQ(FailingCalls::failed(), 3u);
      }
      const std::size_t interrupted = std::strcmp(call, "select") == 0 ? 3 : 0;
      EXPECT_EQ(
          log_count(log, "1 " + kExec + "[cpid:<any>] Failed to select() -> 4:Interrupted system call\n"),
          interrupted);
      EXPECT_EQ(log_count(log, "1 " + kExec + "(): select() was interrupted, continuing"), interrupted);
      EXPECT_EQ(log_count(log, "1 " + kExec + "[cpid:<any>] Process exited normally with rc=0\n"), 1u);
    }
  });
}

TEST_F(FailureBeside, AThreadWhoseNameCannotBeReadIsShownAsNull) {
  if (IsSkipped()) return;
  for (const char* call : {"open", "read", "close"}) {
    expect_in_child([&] {
      set_print_interface([](const char*) {});
      char message[VEXA_LOG_MESSAGE_SIZE];
      const FailingCalls injector(always(EMFILE, call, "comm"));
      EXPECT_EQ(vexa_log_printf(3, message, "f", 1, "text\n"), 0);
      EXPECT_EQ(FailingCalls::failed(), 1u);
      const bool shown_as_null = std::strstr(log_msg, "-NULL] | f 1 | text\n") != nullptr;
      EXPECT_EQ(shown_as_null, std::strcmp(call, "close") != 0) << call << ": " << log_msg;
    });
  }
}

TEST_F(FailureBeside, AFailedMkdirLeavesItsErrno) {
  if (IsSkipped()) return;
  expect_in_child([] {
    vexa_set_log_level(4);
    const FailingCalls injector(nth(3, EDQUOT, "mkdir"));
    EXPECT_EQ(dir_make_path("/data/a/b/c", 0755), -1);
    EXPECT_EQ(errno, EDQUOT);
  });
  EXPECT_TRUE(exists("/data/a"));
  EXPECT_FALSE(exists("/data/a/b"));
}

}  // namespace
}  // namespace vexa_test
