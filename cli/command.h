// SPDX-License-Identifier: MIT
// What a subcommand is, and what it is called with.
#ifndef VEXADM_CLI_COMMAND_H
#define VEXADM_CLI_COMMAND_H

#include <span>
#include <string_view>

#include "base/text.h"
#include "look/places.h"

namespace cli {

// Exit codes.
constexpr int kDone = 0;
constexpr int kFailed = 1;  // or: looked at and found unhealthy, or different
constexpr int kUsage = 2;

struct Option {
  std::string_view name;  // with its dashes
  const char* value;      // what the value is called; null when there is none
  const char* meaning;
};

struct Arguments;

struct Command {
  std::string_view name;
  const char* synopsis;  // behind the name
  const char* summary;   // one line
  const char* details;   // paragraphs
  const char* example;   // lines, as a terminal shows them
  std::span<const Option> options;
  int least_words;
  int most_words;
  bool json;  // knows --json
  int (*run)(Arguments& arguments);
};

// The command line, taken apart.
struct Arguments {
  const Command* command = nullptr;
  List<const char*> words;  // behind the command's name
  const char* root = nullptr;
  const char* store = nullptr;
  const char* backup_store = nullptr;
  bool json = false;
  bool quiet = false;

  struct Given {
    const Option* option;
    const char* value;
  };
  List<Given> given;

  bool has(std::string_view option) const;
  const char* value(std::string_view option) const;  // null when not given
  const char* word(std::size_t index) const { return index < words.size() ? words[index] : nullptr; }
  look::Places places() const {
    return look::Places::below(root != nullptr ? root : "", store, backup_store);
  }
};

// All subcommands, in the order of the help.
std::span<const Command* const> commands();
const Command* find_command(std::string_view name);

// Takes the line apart. kDone, or the code to exit with after it has said why.
int parse(int count, char** values, Arguments& out);

// ---- What is said beside the answer -----------------------------------------

// "vexadm: ..." on standard error. Gives kFailed, so that it can be returned.
int fail(const char* format, ...) __attribute__((format(printf, 1, 2)));
// The same, and how the command is used. Gives kUsage.
int wrong_usage(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Remarks on standard error; not with --quiet.
void note(const Arguments& arguments, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Progress of long work: a line that is written over, on a terminal only.
class Progress {
 public:
  explicit Progress(const Arguments& arguments);
  void step(const char* what, std::size_t done, std::size_t all);
  void end();

 private:
  bool shown_;
  bool dirty_ = false;
};

// From here on a person at a terminal is told when another program's lock is waited for.
void tell_of_waiting(const Arguments& arguments);

// Colour of standard output, where a person looks at it and has not asked for none (no-color.org).
enum class Colour { kPlain, kGood, kBad, kWarning, kBold };
void use_colour();
void add_coloured(Text& out, Colour colour, std::string_view text);

// Prints a text on standard output.
void print(const Text& text);

}  // namespace cli

#endif
