// SPDX-License-Identifier: MIT
// JSON (RFC 8259) on standard output.
#ifndef VEXADM_CLI_JSON_H
#define VEXADM_CLI_JSON_H

#include <cstdint>
#include <string_view>

#include "base/text.h"

namespace cli {

// Writes one value. Nesting is the caller's to keep: every object() and array() gets its end().
class Json {
 public:
  enum class Form { kIndented, kOneLine };
  explicit Json(Form form = Form::kIndented) : form_(form) {}
  Json(const Json&) = delete;
  Json& operator=(const Json&) = delete;
  ~Json();  // the line end, and all of it to standard output

  Json& key(std::string_view name);
  Json& object() { return open('{'); }
  Json& array() { return open('['); }
  Json& end();

  // A text that is not UTF-8 becomes null: its bytes stand in another field.
  Json& text(std::string_view value);
  Json& number(int64_t value);
  Json& boolean(bool value) { return raw(value ? "true" : "false"); }
  Json& null() { return raw("null"); }

  Json& text(std::string_view name, std::string_view value) { return key(name).text(value); }
  Json& number(std::string_view name, int64_t value) { return key(name).number(value); }
  Json& boolean(std::string_view name, bool value) { return key(name).boolean(value); }

 private:
  static constexpr int kDeepest = 8;
  Json& open(char bracket);
  Json& raw(std::string_view text);
  void begin_value();
  void new_line();

  Form form_;
  Text out_;
  char closing_[kDeepest] = {};
  bool filled_[kDeepest] = {};
  int depth_ = 0;
  bool after_key_ = false;
};

// The text in quotes and with escapes, as a JSON string; must be UTF-8.
void add_json_string(Text& out, std::string_view text);

}  // namespace cli

#endif
