// SPDX-License-Identifier: MIT
// The table of the records' layout is complete: every record of the public headers stands in it, with
// every field in its order. That its numbers hold is the compiler's business (record_layout.c).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <string>
#include <vector>

namespace {

using Records = std::map<std::string, std::vector<std::string>>;  // fields by record

Records listed_records() {
  Records records;
#define RECORD(kind, record, size_4, size_8, align_4, align_8) records[#record];
#define FIELD(kind, record, field, at_4, at_8) records[#record].push_back(#field);
#include "record_layout.h"
  return records;
}

std::string text_of(const std::filesystem::path& file) {
  std::ifstream stream(file);
  EXPECT_TRUE(stream.is_open()) << file;
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

std::string without_comments(std::string text) {
  for (std::size_t begin; (begin = text.find("/*")) != std::string::npos;) {
    text.erase(begin, text.find("*/", begin + 2) + 2 - begin);
  }
  return text;
}

// What stands between braces of a member, such as those of a union, is the member's own.
std::string without_inner_braces(const std::string& body) {
  std::string outer;
  int depth = 0;
  for (const char c : body) {
    if (c == '}') --depth;
    if (depth == 0) outer += c;
    if (c == '{') ++depth;
  }
  return outer;
}

// The name before an array's bounds, or that of a pointer to a function.
std::string field_name(const std::string& declaration) {
  std::smatch match;
  if (std::regex_search(declaration, match, std::regex(R"(\(\*(\w+)\))"))) return match[1];
  std::regex_search(declaration, match, std::regex(R"((\w+)\s*(\[[^\]]*\]\s*)*$)"));
  return match[1];
}

std::vector<std::string> fields_of(const std::string& body) {
  std::vector<std::string> fields;
  const std::regex member(R"([^;]+;)");
  const std::string outer = without_inner_braces(body);
  for (std::sregex_iterator found(outer.begin(), outer.end(), member), end; found != end; ++found) {
    const std::string declaration = found->str();
    fields.push_back(field_name(declaration.substr(0, declaration.size() - 1)));
  }
  return fields;
}

// The end of what begins with the brace at a place.
std::size_t closing_brace(const std::string& text, std::size_t at) {
  int depth = 0;
  do {
    if (text[at] == '{') ++depth;
    if (text[at] == '}') --depth;
  } while (depth > 0 && ++at < text.size());
  return at;
}

Records declared_records() {
  Records records;
  const std::regex head(R"(\b(struct|union)\s+(\w+)\s*\{)");
  for (const auto& header : std::filesystem::directory_iterator(HEADERS)) {
    const std::string text = without_comments(text_of(header.path()));
    for (std::sregex_iterator found(text.begin(), text.end(), head), end; found != end; ++found) {
      const auto open = static_cast<std::size_t>(found->position() + found->length()) - 1;
      records[(*found)[2]] = fields_of(text.substr(open + 1, closing_brace(text, open) - open - 1));
    }
  }
  return records;
}

TEST(RecordLayout, EveryFieldOfEveryPublicRecordStandsInTheTable) {
  const Records declared = declared_records();
  EXPECT_GT(declared.size(), 20U);
  EXPECT_THAT(listed_records(), ::testing::ContainerEq(declared));
}

}  // namespace
