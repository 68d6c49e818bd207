// SPDX-License-Identifier: MIT
// The types of parameters, and which function takes which.
#ifndef VEXADM_PARAM_DB_TYPES_H
#define VEXADM_PARAM_DB_TYPES_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace vexa::param_db {

// What a host's variable is.
enum class Variable { kNone, kByte, kHalf, kWord, kLong, kText };

struct ParamType {
  Variable loaded;   // by vexa_db_query_db_init_struct and vexa_db_reload_value
  Variable got;      // by vexa_db_get_value
  Variable written;  // by vexa_db_update_db_from_struct
  Variable updated;  // by vexa_db_update_value
};

// The gaps are not to be filled: hosts declare parameters with these types that one of the
// functions has to pass over.
inline constexpr std::array<ParamType, 8> kParamTypes = {{
    {Variable::kByte, Variable::kByte, Variable::kByte, Variable::kByte},  // 0
    {Variable::kByte, Variable::kByte, Variable::kByte, Variable::kByte},  // 1
    {Variable::kWord, Variable::kWord, Variable::kWord, Variable::kWord},  // 2
    {Variable::kHalf, Variable::kNone, Variable::kNone, Variable::kNone},  // 3
    {Variable::kNone, Variable::kWord, Variable::kWord, Variable::kNone},  // 4
    {Variable::kLong, Variable::kLong, Variable::kLong, Variable::kLong},  // 5
    {Variable::kText, Variable::kText, Variable::kText, Variable::kText},  // 6
    {Variable::kWord, Variable::kWord, Variable::kWord, Variable::kWord},  // 7
}};

// Whether a function has anything to do with the variable of a type.
bool takes(uint32_t type, Variable ParamType::*column);

// What a function takes for a type; kNone is logged under the function's name.
Variable variable_of(uint32_t type, Variable ParamType::*column, const char* function);

// Stores a result cell, which may be null, in a host's variable. Nothing for kNone.
void store(Variable kind, const char* cell, void* variable, uint32_t size);

// Values of a host's variables as statements show them.
int shown_byte(const void* variable);
int shown_word(const void* variable);
unsigned long long shown_long(const void* variable);
// How many of the size bytes of a text variable to show: also where no terminator is among them. A size
// of 0 says nothing about the variable, whose text is terminated then.
int shown_length(const void* variable, uint32_t size);

}  // namespace vexa::param_db

#endif
