// SPDX-License-Identifier: MIT
// What is made to fail at every place in turn: each exported function, with what it may answer and
// what has to hold afterwards.
#ifndef VEXADM_TESTS_FAULTS_FAILING_OPERATIONS_H
#define VEXADM_TESTS_FAULTS_FAILING_OPERATIONS_H

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "faults/failing_device.h"

namespace vexa_test {

// What a call asks for that can be refused.
enum class Reach {
  kNothing,  // neither memory nor the system
  kMemory,   // allocations alone
  kSystem,   // system calls alone
  kFiles,    // both
  kKernel,   // a system call that cannot fail
};

enum class Line {
  kOfTheCode,  // stands in the log only with this code
  kElsewhere,  // may stand there with another one too: what failed first was not needed after all
};

// A documented code, and a line that stands in the log with it; "" where none has to. Of several
// lines for one code one is enough.
struct Answer {
  std::int64_t code;
  const char* line = "";
  Line where = Line::kOfTheCode;
};

struct Operation {
  const char* name;
  void (*prepare)() = nullptr;  // the files, in processes of their own
  void (*before)() = nullptr;   // in the process that fails, while nothing does
  std::int64_t (*run)();        // the result code; allocates nothing of its own
  void (*after)() = nullptr;    // gives back what before() took
  std::vector<Answer> answers;
  // Once nothing fails any more: gives back what the contract lets a failure keep, and looks whether
  // what the result promises is there. The result code, or another one where it is not.
  std::int64_t (*settle)(std::int64_t result) = nullptr;
  // True when what the undisturbed result promises is there. Where it is not, although that result
  // was given, the case is one of those that the caveats name; "" for an item that is written,
  // whose state tells which one.
  bool (*kept)() = nullptr;
  const char* given_up = nullptr;
  bool silent_loss = false;  // of which not even the log tells

  const vexa_dm_item_desc* item = nullptr;  // looked at afterwards, and written next; NULL: no files
  unsigned found = kOld;                    // what it may be afterwards
  unsigned found_at_start = kOld;           // what it may be at the next start
  bool keeps_other = true;
  bool killed_writer = false;  // SQLite's rollback journal is waiting beside the primary

  const char* assertion = "";  // source of the one that ends it when memory runs out; "" for none
  bool keeps_memory = false;   // what it stores lives until the process ends
  Reach reach = Reach::kFiles;
  bool thorough = false;        // every place at which the library itself acts, every day
  bool below_libc = false;      // goes through popen, system or streams
  bool counts_signals = false;  // an interrupted wait is one of the few it makes
};

std::ostream& operator<<(std::ostream& out, const Operation& operation);

std::vector<Operation> storage_item_operations();
std::vector<Operation> storage_file_operations();
std::vector<Operation> manager_operations();
std::vector<Operation> process_operations();
std::vector<Operation> toolbox_operations();
std::vector<Operation> network_operations();
std::vector<Operation> identity_operations();
std::vector<Operation> list_operations();
std::vector<Operation> param_operations();
std::vector<Operation> device_operations();
std::vector<Operation> text_conversion_operations();
std::vector<Operation> all_operations();
std::vector<Operation> operations_where(bool (*wanted)(const Operation&));

// True for a line (in log_text form) that the contract has at its level.
bool is_documented_line(const std::string& line);

// An AT service in a network of the process's own, for as long as it lives.
void prepare_at_service();

// ---- Which functions have been called ----

// Names of functions, in memory that children share.
struct Called {
  std::size_t count;
  const char* names[4096];
};
extern Called* g_called;  // NULL: nobody asks

inline void note_call(const char* name) {
  if (g_called != nullptr && g_called->count < 4096) g_called->names[g_called->count++] = name;
}

// Calls a function of the library and takes down its name.
#define CALL(function) (::vexa_test::note_call(#function), function)

}  // namespace vexa_test

#endif
