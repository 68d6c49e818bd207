// SPDX-License-Identifier: MIT
#include "base/json.h"

#include <cstdio>

#include "base/value.h"

namespace cli {

Json::~Json() {
  out_.add('\n');
  std::fwrite(out_.c_str(), 1, out_.size(), stdout);
}

void Json::new_line() {
  if (form_ == Form::kOneLine) return;
  out_.add('\n');
  for (int i = 0; i < depth_; ++i) out_.add("  ");
}

void Json::begin_value() {
  if (after_key_) {
    after_key_ = false;
    return;
  }
  if (depth_ == 0) return;
  bool& filled = filled_[depth_ - 1];
  if (filled) out_.add(form_ == Form::kOneLine ? ", " : ",");
  filled = true;
  new_line();
}

Json& Json::key(std::string_view name) {
  begin_value();
  add_json_string(out_, name);
  out_.add(": ");
  after_key_ = true;
  return *this;
}

Json& Json::open(char bracket) {
  begin_value();
  out_.add(bracket);
  if (depth_ == kDeepest) std::abort();
  closing_[depth_] = bracket == '{' ? '}' : ']';
  filled_[depth_] = false;
  ++depth_;
  return *this;
}

Json& Json::end() {
  --depth_;
  if (filled_[depth_]) new_line();
  out_.add(closing_[depth_]);
  return *this;
}

Json& Json::raw(std::string_view text) {
  begin_value();
  out_.add(text);
  return *this;
}

Json& Json::text(std::string_view value) {
  if (!is_utf8(value)) return null();
  begin_value();
  add_json_string(out_, value);
  return *this;
}

Json& Json::number(int64_t value) {
  begin_value();
  out_.addf("%lld", static_cast<long long>(value));
  return *this;
}

void add_json_string(Text& out, std::string_view text) {
  out.add('"');
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out.add('\\').add(c);
    } else if (c == '\n') {
      out.add("\\n");
    } else if (byte < 0x20 || byte == 0x7F) {
      out.addf("\\u%04x", byte);
    } else {
      out.add(c);
    }
  }
  out.add('"');
}

}  // namespace cli
