// SPDX-License-Identifier: MIT
// The built library, the public headers and tests/exported_names.txt say the same about what is
// exported; and a host that loads the library loads nothing else with it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Names = std::set<std::string>;

std::string text_of(const std::filesystem::path& file) {
  std::ifstream stream(file);
  EXPECT_TRUE(stream.is_open()) << file;
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

std::string output_of(const std::string& command) {
  FILE* stream = popen(command.c_str(), "r");
  std::string output;
  for (int c; stream != nullptr && (c = std::fgetc(stream)) != EOF;) output += static_cast<char>(c);
  EXPECT_TRUE(stream != nullptr && pclose(stream) == 0) << command;
  return output;
}

Names listed_names() {
  Names names;
  std::istringstream lines(text_of(EXPORTED_NAMES));
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] == '#') continue;
    EXPECT_TRUE(names.insert(line).second) << "twice: " << line;
  }
  return names;
}

Names built_names(const char* library = LIBRARY) {
  Names names;
  std::istringstream lines(output_of(std::string(NM) + " -D --defined-only " + library));
  for (std::string line; std::getline(lines, line);) names.insert(line.substr(line.rfind(' ') + 1));
  return names;
}

// The headers are C: their comments are block comments.
std::string without_comments(std::string text) {
  for (std::size_t begin; (begin = text.find("/*")) != std::string::npos;) {
    const std::size_t end = text.find("*/", begin + 2);
    if (end == std::string::npos) return text.substr(0, begin);
    text.erase(begin, end + 2 - begin);
  }
  return text;
}

// A function is named before its parameters, an object at the end of its declaration.
std::string declared_name(const std::string& marker, const std::string& declaration) {
  std::smatch match;
  if (marker == "VEXA_API") {
    std::regex_search(declaration, match, std::regex(R"((\w+)\s*\()"));
  } else {
    std::regex_search(declaration, match, std::regex(R"((\w+)\s*(\[[^\]]*\]\s*)*$)"));
  }
  return match[1];
}

Names declared_names() {
  // The C library declares strsep; a second declaration could only contradict it.
  Names names = {"strsep"};
  const std::regex directive(R"(#(\\\n|[^\n])*)");
  const std::regex annotation(R"(VEXA_PRINTF\([^)]*\)|__attribute__\s*\(\(.*?\)\))");
  const std::regex declaration(R"((VEXA_API|VEXA_DATA)\s([^;]*);)");
  for (const auto& header : std::filesystem::directory_iterator(HEADERS)) {
    std::string text = std::regex_replace(without_comments(text_of(header.path())), directive, " ");
    text = std::regex_replace(text, annotation, " ");
    for (std::sregex_iterator found(text.begin(), text.end(), declaration), end; found != end; ++found) {
      const std::string name = declared_name((*found)[1], (*found)[2]);
      EXPECT_TRUE(names.insert(name).second) << "declared twice: " << name;
    }
  }
  return names;
}

// The values of one kind of entry of the dynamic section, such as "NEEDED".
std::vector<std::string> dynamic_entries(const std::string& kind) {
  std::vector<std::string> values;
  const std::regex entry(R"(\()" + kind + R"(\)[^\n\[]*\[([^\]]*)\])");
  const std::string section = output_of(std::string(READELF) + " -dW " + LIBRARY);
  for (std::sregex_iterator found(section.begin(), section.end(), entry), end; found != end; ++found) {
    values.push_back((*found)[1]);
  }
  return values;
}

}  // namespace

TEST(Exports, LibraryExportsExactlyTheListedNames) {
  EXPECT_THAT(built_names(), ::testing::ContainerEq(listed_names()));
}

#ifdef OWN_TIMES_LIBRARY
TEST(Exports, AreTheSameWithTimesAsWideAsALong) {
  EXPECT_THAT(built_names(OWN_TIMES_LIBRARY), ::testing::ContainerEq(built_names()));
}
#endif

TEST(Exports, HeadersDeclareExactlyTheListedNames) {
  EXPECT_THAT(declared_names(), ::testing::ContainerEq(listed_names()));
}

// Library and host need not agree on the width of times and file offsets (_TIME_BITS, _FILE_OFFSET_BITS)
// on a 32-bit machine. A function that hands over one of these would keep its name and still mistake
// what it is given, so that comparing names does not find it. vexa_cmn_timeval is a record of two longs.
TEST(Headers, HandOverNoTimesAndFileOffsetsOfTheCLibrary) {
  const std::regex of_the_c_library(R"(\b(time_t|suseconds_t|off_t|off64_t|ino_t|blkcnt_t|timespec|timeval)"
                                    R"(|itimerspec|itimerval|rlimit|rusage|dirent|struct\s+stat)\b)");
  int headers = 0;
  for (const auto& header : std::filesystem::directory_iterator(HEADERS)) {
    const std::string text = without_comments(text_of(header.path()));
    ++headers;
    for (std::sregex_iterator found(text.begin(), text.end(), of_the_c_library), end; found != end; ++found) {
      ADD_FAILURE() << header.path() << " has " << found->str();
    }
  }
  EXPECT_GT(headers, 20);
}

TEST(Linkage, OnlyTheCLibraryAndSqliteAreNeeded) {
#ifdef __arm__
  // The stack protector's secret is the loader's there.
  EXPECT_THAT(dynamic_entries("NEEDED"),
              ::testing::UnorderedElementsAre("libc.so.6", "libsqlite3.so.0", "ld-linux-armhf.so.3"));
#else
  EXPECT_THAT(dynamic_entries("NEEDED"), ::testing::UnorderedElementsAre("libc.so.6", "libsqlite3.so.0"));
#endif
}

TEST(Linkage, SonameCarriesTheMajorVersion) {
  EXPECT_THAT(dynamic_entries("SONAME"), ::testing::ElementsAre("libvexadm.so.0"));
}

TEST(Linkage, NoTextRelocationsAndNoLazyBinding) {
  const std::string section = output_of(std::string(READELF) + " -dW " + LIBRARY);

  EXPECT_THAT(section, ::testing::Not(::testing::HasSubstr("TEXTREL")));
  EXPECT_THAT(section, ::testing::HasSubstr("NOW"));
}

TEST(Linkage, StackIsNotExecutable) {
  const std::string segments = output_of(std::string(READELF) + " -lW " + LIBRARY);

  EXPECT_TRUE(std::regex_search(segments, std::regex(R"(GNU_STACK[^\n]* RW )"))) << segments;
}
