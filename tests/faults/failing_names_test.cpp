// SPDX-License-Identifier: MIT
// Nothing is forgotten: each exported function is called by an operation that is made to fail, and
// each function that the library imports can be made to fail or has nothing that could.
#include <dlfcn.h>
#include <elf.h>
#include <gmock/gmock.h>
#include <link.h>
#include <sys/mman.h>

#include <fstream>
#include <set>
#include <sstream>

#include "faults/failing_alloc.h"
#include "faults/failing_operations.h"
#include "vexadm/vexadm.h"

namespace vexa_test {
namespace {

using Names = std::set<std::string>;

class FailingNames : public StorageTest {};

struct Symbol {
  std::string file;
  bool is_function = false;
};

Symbol find_symbol(const std::string& name) {
  void* const address = dlsym(RTLD_DEFAULT, name.c_str());
  Dl_info info = {};
  void* entry = nullptr;
  if (address == nullptr || dladdr1(address, &info, &entry, RTLD_DL_SYMENT) == 0 || entry == nullptr)
    return {};
  const unsigned type = static_cast<const ElfW(Sym)*>(entry)->st_info & 0xFU;
  return {info.dli_fname, type == STT_FUNC || type == STT_GNU_IFUNC};
}

Names exported_functions() {
  Names names;
  std::ifstream stream(EXPORTED_NAMES);
  for (std::string line; std::getline(stream, line);) {
    if (line.empty() || line[0] == '#') continue;
    const Symbol symbol = find_symbol(line);
    EXPECT_FALSE(symbol.file.empty()) << line;
    if (!symbol.is_function) continue;  // an object
    // Not a function of the same name that another library has.
    EXPECT_NE(symbol.file.find("libvexadm"), std::string::npos) << line << " of " << symbol.file;
    names.insert(line);
  }
  return names;
}

TEST_F(FailingNames, EveryExportedFunctionIsMadeToFailByAnOperation) {
  if (IsSkipped()) return;
  void* const memory =
      mmap(nullptr, sizeof(Called), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  g_called = static_cast<Called*>(memory);
  Names called;
  for (const Operation& operation : all_operations()) {
    Device::clear();
    if (operation.prepare != nullptr) operation.prepare();
    g_called->count = 0;
    expect_in_child([&] {
      vexa_set_log_level(4);
      if (operation.before != nullptr) operation.before();
      operation.run();
    });
    for (std::size_t i = 0; i < g_called->count; ++i) called.insert(g_called->names[i]);
  }
  g_called = nullptr;
  munmap(memory, sizeof(Called));
  EXPECT_THAT(called, ::testing::ContainerEq(exported_functions()));
}

#ifdef LIBRARY

// Neither asks for memory nor makes a system call that can fail.
const Names kCannotFail = {
    "_ITM_deregisterTMCloneTable",
    "_ITM_registerTMCloneTable",
    "__cxa_finalize",
    "__errno_location",
    "__fpurge",
    "__gmon_start__",
    "__stack_chk_fail",
    "_exit",
    "abort",
    "fdelt",  // the check of FD_SET
    "free",
    "freelocale",
    "getpid",
    "gettimeofday",
    "gmtime_r",
    "inet_ntop",
    "inet_pton",
    "isspace",
    "isxdigit",
    "localtime_r",
    "memchr",
    "memcmp",
    "memcpy",
    "memmove",
    "memset",
    "mktime",
    "newlocale",
    "pause",
    "prctl",
    "pthread_cond_init",
    "pthread_cond_signal",
    "pthread_cond_timedwait",
    "pthread_cond_wait",
    "pthread_condattr_init",
    "pthread_condattr_setclock",
    "pthread_mutex_destroy",
    "pthread_mutex_init",
    "pthread_mutex_lock",
    "pthread_mutex_trylock",
    "pthread_mutex_unlock",
    "pthread_once",
    "pthread_rwlock_init",
    "pthread_rwlock_rdlock",
    "pthread_rwlock_unlock",
    "pthread_rwlock_wrlock",
    "pthread_sigmask",
    "regfree",
    "sigaction",
    "sigfillset",
    "snprintf",
    "stderr",
    "stdout",
    "strchr",
    "strcmp",
    "strcpy",
    "strcspn",
    "strerror",
    "strerrordesc_np",
    "strlen",
    "strncasecmp",
    "strncmp",
    "strnlen",
    "strrchr",
    "strspn",
    "strstr",
    "strtod",
    "strtok_r",
    "strtol",
    "strtoll",
    "sync",
    "syscall",
    "time",
    "toupper",
    "uselocale",
    "vsnprintf",
#ifdef __USE_TIME_BITS64
    "__gettimeofday64",
    "__gmtime64_r",
    "__localtime64_r",
    "__mktime64",
    "__prctl_time64",
    "__pthread_cond_timedwait64",
    "__time64",
#endif
#ifdef __arm__
    "__stack_chk_guard",
    "raise",  // of the compiler's library, for a division by zero
#endif
};

// Made to fail where they reach the kernel.
const Names kBelow = {"clearerr", "fclose", "ferror", "fflush", "fgetc", "fprintf", "fputc",
                      "fread",    "fwrite", "pclose", "printf", "puts",  "vfprintf"};

// Ask for memory by malloc.
const Names kAllocate = {"regcomp", "regexec", "strdup"};

// A library compiled with _FORTIFY_SOURCE calls __printf_chk for printf.
std::string without_fortification(const std::string& name) {
  const std::string_view text = name;
  if (!text.starts_with("__") || !text.ends_with("_chk")) return name;
  return std::string(text.substr(2, text.size() - 6));
}

TEST_F(FailingNames, EveryImportedFunctionIsMadeToFailOrCannot) {
#if !VEXA_TEST_OWN_ALLOC
  GTEST_SKIP() << "an instrumented library imports what the sanitizer needs";
#endif
  std::FILE* const stream = popen((std::string(NM) + " -D --undefined-only " + LIBRARY).c_str(), "re");
  ASSERT_NE(stream, nullptr);
  std::string output(16384, '\0');
  output.resize(std::fread(output.data(), 1, output.size(), stream));
  ASSERT_EQ(pclose(stream), 0);
  std::istringstream words(output);
  Names forgotten;
  std::size_t replaced = 0;
  for (std::string word; words >> word;) {
    const std::string name = without_fortification(word.substr(0, word.find('@')));
    if (name == "U" || name == "w" || name.starts_with("sqlite3_")) continue;
    if (kCannotFail.contains(name) || kBelow.contains(name) || kAllocate.contains(name)) continue;
    if (find_symbol(name).file.find("failing_names_test") != std::string::npos) {
      ++replaced;
    } else {
      forgotten.insert(name);
    }
  }
  EXPECT_THAT(forgotten, ::testing::IsEmpty());
  EXPECT_GT(replaced, 15u);
}

#endif

}  // namespace
}  // namespace vexa_test
