// SPDX-License-Identifier: MIT
// Taking the command line apart.
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "registry.h"

#include <vexadm/storage.h>

namespace cli {
namespace {

constexpr Option kGlobal[] = {
    {"--root", "DIR", "the device tree below DIR instead of this machine's own"},
    {"--store", "DIR", "primary, backup and journal in DIR, as a program that moved its store has them"},
    {"--backup-store", "DIR", "the backup in DIR instead"},
    {"--json", nullptr, "data as JSON"},
    {"--quiet", nullptr, "no remarks and no progress"},
};

// Commands that need no store, or name theirs in another way.
constexpr std::string_view kWithoutStore[] = {"diff", "ussd", "at",      "gateway", "wait-ip",
                                              "crc",  "help", "version", "__words"};

const Option* find_option(std::span<const Option> options, std::string_view name) {
  for (const Option& option : options) {
    if (option.name == name) return &option;
  }
  return nullptr;
}

// A word that begins with a dash and is none of our options: a number, or "-" for standard input.
bool is_word(std::string_view text) {
  return text.size() < 2 || text[0] != '-' || (text[1] >= '0' && text[1] <= '9');
}

int check_store(std::string_view name, const char* directory) {
  if (directory == nullptr) return kDone;
  const std::string_view text = directory;
  if (!text.ends_with('/'))
    return wrong_usage("%s %s: the directory needs a slash at its end", name.data(), directory);
  if (text.size() > VEXA_STORE_AREA_MAX) {
    return wrong_usage("%s %s: %zu characters, and %d is the most that the library takes", name.data(),
                       directory, text.size(), VEXA_STORE_AREA_MAX);
  }
  return kDone;
}

class Parser {
 public:
  Parser(int count, char** values, Arguments& out)
      : values_(values, static_cast<std::size_t>(count)), out_(out) {}

  int run() {
    for (; next_ < values_.size(); ++next_) {
      const std::string_view text = values_[next_];
      if (only_words_ || is_word(text)) {
        if (const int code = take_word(values_[next_]); code != kDone) return code;
      } else if (text == "--") {
        only_words_ = true;
      } else if (const int code = take_option(text); code != kDone) {
        return code;
      }
    }
    return finish();
  }

 private:
  int take_word(const char* word) {
    if (out_.command != nullptr) {
      out_.words.push(word);
      return kDone;
    }
    out_.command = find_command(word);
    if (out_.command == nullptr) return wrong_usage("there is no command %s; vexadm help lists them", word);
    return kDone;
  }

  int take_option(std::string_view text) {
    const std::size_t equals = text.find('=');
    const std::string_view name = part(text, 0, equals);
    if (name == "--help" || name == "-h") {
      help_ = true;
      return kDone;
    }
    if (name == "--version") {
      out_.command = find_command("version");
      return kDone;
    }
    const Option* option = find_option(global_options(), name);
    if (option == nullptr && out_.command != nullptr) option = find_option(out_.command->options, name);
    if (option == nullptr) {
      return out_.command != nullptr
                 ? wrong_usage("%s knows no option %s; see vexadm help %s", out_.command->name.data(),
                               values_[next_], out_.command->name.data())
                 : wrong_usage("there is no option %s that could stand before the command", values_[next_]);
    }
    const char* value = nullptr;
    if (option->value == nullptr) {
      if (equals != std::string_view::npos) return wrong_usage("%s takes no value", option->name.data());
    } else if (equals != std::string_view::npos) {
      value = values_[next_] + equals + 1;
    } else if (next_ + 1 < values_.size()) {
      value = values_[++next_];
    } else {
      return wrong_usage("%s needs %s behind it", option->name.data(), option->value);
    }
    keep(*option, value);
    return kDone;
  }

  void keep(const Option& option, const char* value) {
    if (option.name == "--root") out_.root = value;
    if (option.name == "--store") out_.store = value;
    if (option.name == "--backup-store") out_.backup_store = value;
    if (option.name == "--json") out_.json = true;
    if (option.name == "--quiet") out_.quiet = true;
    out_.given.push({&option, value});
  }

  int finish() {
    if (help_ && out_.command != nullptr && out_.command->name != "help") {
      out_.words = List<const char*>();
      out_.words.push(out_.command->name.data());
    }
    if (help_ || out_.command == nullptr) {
      const bool asked = help_ || values_.empty();
      out_.command = find_command("help");
      if (!asked) return wrong_usage("which command? vexadm help lists them");
      return kDone;
    }
    const auto count = static_cast<int>(out_.words.size());
    if (count < out_.command->least_words || count > out_.command->most_words) {
      return wrong_usage("usage: vexadm %s %s", out_.command->name.data(), out_.command->synopsis);
    }
    if (out_.json && !out_.command->json)
      return wrong_usage("%s has no --json form", out_.command->name.data());
    if (const int code = check_store("--store", out_.store); code != kDone) return code;
    if (const int code = check_store("--backup-store", out_.backup_store); code != kDone) return code;
    if (const int code = check_root(); code != kDone) return code;
    return check_directory();
  }

  // A tree that is not there would look like a healthy, empty store.
  int check_root() const {
    if (out_.root == nullptr) return kDone;
    if (out_.root[0] == '\0') return wrong_usage("--root is empty: which directory has the device tree?");
    struct stat entry {};
    if (stat(out_.root, &entry) != 0) return fail("--root %s: %s", out_.root, std::strerror(errno));
    if (!S_ISDIR(entry.st_mode))
      return fail("--root %s: a directory with a device tree was expected", out_.root);
    return kDone;
  }

  // The same for the directory of the primary.
  int check_directory() const {
    for (const std::string_view name : kWithoutStore) {
      if (out_.command->name == name) return kDone;
    }
    const Text primary = std::move(out_.places().primary);
    const Text directory = look::directory_of(primary);
    struct stat entry {};
    if (stat(directory.c_str(), &entry) == 0 || errno != ENOENT) return kDone;
    if (out_.root != nullptr)
      return fail("--root %s: %s is not there: make it first", out_.root, directory.c_str());
    if (out_.store != nullptr) return fail("--store %s is not there: make it first", out_.store);
    return fail("%s is not there; is this the unit? --root DIR looks into a copy of its files",
                directory.c_str());
  }

  std::span<char*> values_;
  Arguments& out_;
  std::size_t next_ = 0;
  bool only_words_ = false;
  bool help_ = false;
};

}  // namespace

bool Arguments::has(std::string_view option) const {
  for (const Given& one : given) {
    if (one.option->name == option) return true;
  }
  return false;
}

const char* Arguments::value(std::string_view option) const {
  const char* value = nullptr;  // of several the last counts
  for (const Given& one : given) {
    if (one.option->name == option) value = one.value;
  }
  return value;
}

std::span<const Option> global_options() { return kGlobal; }

int parse(int count, char** values, Arguments& out) { return Parser(count, values, out).run(); }

}  // namespace cli
