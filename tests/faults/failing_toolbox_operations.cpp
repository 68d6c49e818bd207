// SPDX-License-Identifier: MIT
// Log, queue, symbol table and text functions.
#include <vexadm/vexadm.h>

#include <cstdlib>

#include "faults/failing_operations.h"

namespace vexa_test {
namespace {

std::int64_t verdict(bool good) { return good ? 0 : 999; }

// ---- Log ----

char g_message[VEXA_LOG_MESSAGE_SIZE];

std::int64_t log_lines() {
  for (std::int32_t level = -1; level < 6; ++level) {
    if (CALL(vexa_log_printf)(level, g_message, "vexa_some_function", 7, "%s %d\n", "text", 5) != 0)
      return 999;
  }
  return verdict(std::strcmp(g_message, "text 5\n") == 0 &&
                 std::strstr(log_msg, "some_function 7 | text 5\n") != nullptr);
}

std::vector<Operation> log_operations() {
  return {
      {.name = "LogLines", .run = log_lines, .answers = {{0, "3 oem_some_function|text 5\n"}}},
      {.name = "LogLinesToStandardOutput",
       .before = [] { set_print_interface(nullptr); },
       .run = log_lines,
       .answers = {{0}},
       .below_libc = true},
      {.name = "LogSettings",
       .run =
           [] {
             const std::int32_t level = CALL(vexa_get_log_level)();
             CALL(vexa_set_log_level)(4);
             const int filtered = vexa_log_printf(3, g_message, "vexa_some_function", 7, "text");
             CALL(vexa_set_log_tool_enable)(1);
             const bool on = CALL(vexa_get_log_tool_enable)() == 1;
             const int left = vexa_log_printf(4, g_message, "vexa_some_function", 7, "text");
             vexa_set_log_tool_enable(0);
             CALL(set_print_interface)([](const char*) {});
             vexa_set_log_level(level);
             return verdict(on && filtered == 0 && left == 1);
           },
       .answers = {{0}},
       .reach = Reach::kNothing},
      {.name = "ThreadId",
       .run = [] { return verdict(CALL(get_tid)() > 0); },
       .answers = {{0}},
       .reach = Reach::kKernel},
      {.name = "FunctionName",
       .run =
           [] {
             char* const name = CALL(rewrite_func_name)("vexa_dm_write");
             const bool good = name == nullptr || std::strcmp(name, "oem_dm_write") == 0;
             const bool refused = name == nullptr;
             std::free(name);
             return std::int64_t{!good ? 999 : refused ? -1 : 0};
           },
       .answers = {{0}, {-1}},
       .reach = Reach::kMemory},
  };
}

// ---- Queue ----

std::uint32_t is_it(const void* element, const void* value) {
  return value == nullptr || element == value ? 1 : 0;
}

std::int64_t use_queue() {
  static q_queue first;
  static q_queue second;
  static q_link_node links[5];
  CALL(q_init)(&first);
  q_init(&second);
  for (q_link_node& link : links) CALL(q_put)(&first, CALL(q_link)(nullptr, &link));
  bool good = CALL(q_cnt)(&first) == 5 && CALL(q_check)(&first) == &links[0];
  good = good && CALL(q_last_check)(&first) == &links[4] && CALL(q_next)(&first, &links[0]) == &links[1];
  good = good && CALL(q_linear_search)(&first, is_it, &links[2], nullptr) == &links[2];
  good = good && CALL(q_get)(&first) == &links[0] && CALL(q_last_get)(&first) == &links[4];
  CALL(q_insert)(&first, &links[0], &links[2]);
  CALL(q_delete)(&first, &links[0]);
  CALL(q_m_put)(&second, &first);
  good = good && CALL(q_get_ext)(&second) == &links[1] && q_cnt(&second) == 2;
  good = good && CALL(q_linear_delete_new)(&second, is_it, &links[2], nullptr, nullptr) == &links[2];
  CALL(q_linear_delete)(&second, is_it, nullptr, nullptr);
  q_put(&first, q_link(nullptr, &links[0]));
  good = good && CALL(q_delete_ext)(&first, &links[0]) == 1 && q_cnt(&second) == 0;
  return verdict(good && CALL(q_destroy)(&second) == 0 && q_destroy(&first) == 0);
}

// ---- Symbol table ----

std::int64_t use_symtab() {
  const std::int32_t table = CALL(symOpen)(16);
  if (table < 0) return -1;
  bool good = true;
  std::int64_t entered = 0;
  for (const char* name : {"one", "two", "three", "four", "one"}) {
    const vexa_sym_value text = CALL(valueString)(name, 1);
    if (const vexa_sym_entry* const entry = CALL(symEnter)(table, name, text, 1)) {
      good = good && symLookup(table, name) == entry;
      ++entered;
    } else {
      vexa_sym_value own = text;
      CALL(valueFree)(&own);
    }
  }
  symDelete(table, "two");
  CALL(symClose)(table);
  return !good ? 999 : (entered == 5 ? 0 : -1);
}

std::int32_t g_symtab = -1;

void fill_symtab() {
  g_symtab = symOpen(16);
  for (const char* name : {"one", "two", "three"}) symEnter(g_symtab, name, valueInteger(1), 1);
}

std::int64_t look_into_symtab() {
  std::int64_t walked = 0;
  for (const vexa_sym_entry* entry = CALL(symFirst)(g_symtab); entry != nullptr;
       entry = CALL(symNext)(g_symtab)) {
    ++walked;
  }
  vexa_sym_value number = CALL(valueInteger)(7);
  const vexa_sym_value symbol = CALL(valueSymbol)(&number);
  const vexa_sym_value text = valueString("kept where it is", 0);
  CALL(valueFree)(&number);
  const bool good = walked == 3 && CALL(symLookup)(g_symtab, "two") != nullptr &&
                    CALL(symDelete)(g_symtab, "two") == 0 && symLookup(g_symtab, "two") == nullptr &&
                    number.type == 0 && symbol.type == VEXA_SYM_SYMBOL && text.type == VEXA_SYM_STRING;
  CALL(bopen)();
  return verdict(good && CALL(bclose)(&walked) == &walked && CALL(bstats)(&walked) == &walked);
}

std::int64_t use_handles() {
  void** array = nullptr;
  std::int32_t max = 0;
  std::int32_t taken[40];
  std::int32_t count = 0;
  for (std::int32_t i = 0; i < 40; ++i) {
    const std::int32_t index = CALL(hAllocEntry)(&array, &max, 24);
    if (index >= 0) taken[count++] = index;
  }
  for (std::int32_t i = 0; i < count; ++i) {
    std::free(array[taken[i]]);
    CALL(hFree)(&array, taken[i]);
  }
  const bool empty = array == nullptr;
  const std::int32_t slot = CALL(hAlloc)(&array);
  if (slot >= 0) hFree(&array, slot);
  if (!empty || array != nullptr) return 999;
  return count == 40 && slot == 0 ? 0 : -1;
}

std::int64_t use_copies() {
  char* const text = CALL(bstrdupNoBalloc)("text");
  char* const empty = CALL(bstrdupANoBalloc)(nullptr);
  void* const bytes = CALL(bmemdupNoBalloc)("bytes", 5);
  const bool good = (text == nullptr || std::strcmp(text, "text") == 0) &&
                    (empty == nullptr || *empty == '\0') &&
                    (bytes == nullptr || std::memcmp(bytes, "bytes", 5) == 0);
  const bool all = text != nullptr && empty != nullptr && bytes != nullptr;
  std::free(text);
  std::free(empty);
  std::free(bytes);
  return !good ? 999 : (all ? 0 : -1);
}

std::vector<Operation> container_operations() {
  return {
      {.name = "Queue", .run = use_queue, .answers = {{0}}, .reach = Reach::kNothing},
      {.name = "SymbolTable", .run = use_symtab, .answers = {{0}, {-1}}, .reach = Reach::kMemory},
      {.name = "SymbolTableLookedInto",
       .before = fill_symtab,
       .run = look_into_symtab,
       .answers = {{0}},
       .keeps_memory = true,
       .reach = Reach::kNothing},
      {.name = "SymbolTableModule",
       .run =
           [] {
             const bool good = CALL(symSubOpen)() == 0;
             CALL(symSubClose)();
             return verdict(good);
           },
       .answers = {{0}},
       .reach = Reach::kNothing},
      {.name = "HandleArray", .run = use_handles, .answers = {{0}, {-1}}, .reach = Reach::kMemory},
      {.name = "Copies", .run = use_copies, .answers = {{0}, {-1}}, .reach = Reach::kMemory},
  };
}

// ---- Texts ----

std::int64_t use_texts() {
  char text[64];
  char* parts[8];
  std::uint32_t length = 0;
  bool good = CALL(vexa_strlcpy)(text, "  text ", sizeof text) == 7 &&
              CALL(vexa_strlcat)(text, " ", sizeof text) == 8;
  good = good && std::strcmp(CALL(vexa_trim_string)(text), "text") == 0;
  good = good && CALL(vexa_strip_quotes_out)("\"abc\"", text, sizeof text) == 1;
  good = good && CALL(starts_with)(text, "AB", 1) == 1 && CALL(ends_with)(text, "bc", 0) == 1;
  good = good && std::strcmp(CALL(vexa_string_toupper)(text), "ABC") == 0 && CALL(tolowercase)('A') == 'a';
  good = good && CALL(replace_str)(text, "B", "x") == 0 && std::strcmp(text, "AxC") == 0;
  CALL(vexa_string_memcpy)(text, "a,,b", sizeof text);
  good = good && CALL(split_string_to_array)(text, ",", parts, 1) == 2;
  char* rest = parts[0];
  good = good && std::strcmp(CALL(strsep)(&rest, ","), "a") == 0 && CALL(vexa_utf8_NumBytesInChar)(0xE2) == 3;
  return verdict(good && CALL(vexa_utf8_Copy)(text, "\xE2\x82\xAC", sizeof text, &length) == 0 &&
                 length == 3);
}

std::int64_t use_hex() {
  std::uint8_t bytes[4] = {};
  char text[8];
  bool good = CALL(vexa_hex_StringToBinary)("0a1B", 4, bytes, sizeof bytes) == 2 && bytes[1] == 0x1B;
  good = good && CALL(vexa_hex_BinaryToString)(bytes, 2, text, sizeof text) == 4;
  good = good && CALL(vexa_hex_HexaToInteger)("12") == 18;
  return verdict(good && CALL(vexa_change_hexstr_to_str)("4142", bytes + 2) == 0 && bytes[3] == 0x42);
}

std::int64_t complain() {
  char text[4];
  const bool good = vexa_strip_quotes_out("abc", text, sizeof text) == 0 &&
                    vexa_hex_BinaryToString(nullptr, 4, text, 4) == -1;
  vexa_string_memcpy(nullptr, "", 1);
  return verdict(good);
}

std::vector<Operation> text_operations() {
  return {
      {.name = "Texts", .run = use_texts, .answers = {{0}}, .reach = Reach::kNothing},
      {.name = "Hex", .run = use_hex, .answers = {{0}}, .reach = Reach::kNothing},
      {.name = "TextsRefused",
       .run = complain,
       .answers = {{0, "3 oem_strip_quotes_out|The in_str must be quoted\n"}}},
      {.name = "Directories",
       .prepare = prepare_store,
       .run = [] { return std::int64_t{CALL(dir_make_path)("/data/a/b/c", 0755)}; },
       .answers = {{0}, {-1, "3 dir_make_path|Could not create directory '/data/a/b/c'.\n"}},
       .kept = [] { return std::filesystem::is_directory("/data/a/b/c"); },
       .item = &g_wanted,
       .reach = Reach::kSystem},
  };
}

}  // namespace

std::vector<Operation> toolbox_operations() {
  std::vector<Operation> all = log_operations();
  for (const auto& part : {container_operations(), text_operations()}) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

}  // namespace vexa_test
