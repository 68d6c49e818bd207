// SPDX-License-Identifier: MIT
// Values of items as people write and read them.
#ifndef VEXADM_CLI_VALUE_H
#define VEXADM_CLI_VALUE_H

#include <cstdint>
#include <optional>
#include <string_view>

#include "base/text.h"

namespace cli {

// The types by name: u8, u16, u32, u32alt, text, bytes. Any other is written "type9".
Text type_name(int64_t type);
// A name, a number, or "type9".
std::optional<int32_t> parse_type(std::string_view name);

// Ids and types are such numbers in the library; a row may hold any.
bool is_int32(int64_t number);

// Bytes that a number of the type takes; 0 for types that are no number.
std::size_t number_size(int64_t type);

bool is_utf8(std::string_view text);

// A number without a sign, decimal or 0x and hexadecimal, at most the limit.
std::optional<uint64_t> parse_number(std::string_view text, uint64_t limit);

void add_hex(Text& out, std::string_view bytes);
// Pairs of digits; blanks and colons between pairs are left out.
bool parse_hex(std::string_view digits, Text& out);

// In double quotes; what is not printable UTF-8 becomes \n, \t, \r or \xHH.
void add_quoted(Text& out, std::string_view text);
// For a line that a person reads: what is not printable UTF-8 as above, all else as it stands.
Text printable(std::string_view text);
// As it stands where it is one plain word that begins no remark, else quoted.
void add_name(Text& out, std::string_view name);
// Takes a text that add_quoted() wrote off the front of rest.
bool take_quoted(std::string_view& rest, Text& out);

// How a value is kept apart from one that only looks like it.
enum class ValueForm { kNumber, kText, kHex };
// Numbers of another length than their type's, and all types without a form of their own, are hex.
ValueForm form_of(int64_t type, std::string_view bytes);
uint32_t number_of(std::string_view bytes);

// By its form: 8443, "fast.example", 0a0b0c.
void add_value(Text& out, int64_t type, std::string_view bytes);

// The bytes of a number in the byte order of the unit, which is little-endian like this machine.
bool number_bytes(int64_t type, std::string_view text, Text& out);

}  // namespace cli

#endif
