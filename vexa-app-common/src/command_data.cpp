// SPDX-License-Identifier: MIT
// Records of command queues: made, and freed with what they own.
#include "vexadm/command_data.h"

#include <array>
#include <cstddef>
#include <cstdlib>
#include <utility>

#include "log/call_site.h"
#include "owners.h"

namespace {

constexpr const char* kSource = "vexa_common_def";

// What is freed with a record.
enum class Owns : uint8_t { kUnknown, kNothing, kPayload, kText, kList };

struct Type {
  Owns owns = Owns::kUnknown;
  std::size_t size = 0;  // of the payload of a new record; 0 when none is made here
};

constexpr std::array<Type, 16> kTypes = {{{Owns::kList, VEXA_CMD_Q_LIST_SIZE},
                                          {},
                                          {},
                                          {},
                                          {Owns::kList, VEXA_CMD_Q_LIST_SIZE},
                                          {Owns::kText, VEXA_CMD_Q_TEXT_SIZE},
                                          {Owns::kNothing},
                                          {Owns::kPayload},
                                          {Owns::kPayload},
                                          {Owns::kNothing},
                                          {Owns::kPayload},
                                          {Owns::kPayload},
                                          {Owns::kPayload},
                                          {Owns::kText},
                                          {Owns::kPayload},
                                          {Owns::kText}}};

static_assert(sizeof(vexa_cmd_q_list) <= VEXA_CMD_Q_LIST_SIZE);
static_assert(sizeof(vexa_cmd_q_text) <= VEXA_CMD_Q_TEXT_SIZE);
static_assert(offsetof(vexa_cmd_q_list, entry_count) == 3 * sizeof(char*));
static_assert(offsetof(vexa_cmd_q_data, payload) == sizeof(void*));

Type type_of(int32_t number) {
  const auto index = static_cast<uint32_t>(number);
  return index < kTypes.size() ? kTypes[index] : Type{};
}

void free_list(const vexa_cmd_q_list& list) {
  std::free(list.text);
  std::free(list.second_text);
  for (uint32_t i = 0; list.entries && i < list.entry_count; ++i) std::free(list.entries[i]);
  std::free(list.entries);
}

void free_payload(Owns owns, void* payload) {
  if (!payload || owns < Owns::kPayload) return;
  if (owns == Owns::kText) std::free(static_cast<vexa_cmd_q_text*>(payload)->text);
  if (owns == Owns::kList) free_list(*static_cast<vexa_cmd_q_list*>(payload));
  std::free(payload);
}

}  // namespace

vexa_cmd_q_data* vexa_malloc_cmd_q_data(int32_t type) {
  const std::size_t size = type_of(type).size;
  if (size == 0) {
    VEXA_LOG(vexa::log::kError, "vexa_malloc_cmd_q_data", "Invalid CMD type: %d\n", type);
    VEXA_ASSERT(false, kSource);
  }
  vexa::Heap<vexa_cmd_q_data> record = vexa::Heap<vexa_cmd_q_data>::zeroed(1);
  VEXA_ASSERT(record, kSource);
  vexa::HeapText payload = vexa::HeapText::zeroed(size);
  VEXA_ASSERT(payload, kSource);
  record.get()->cmd_type = type;
  record.get()->payload = payload.release();
  return record.release();
}

void vexa_free_cmd_q_data(vexa_cmd_q_data* record) {
  constexpr const char* kName = "vexa_free_cmd_q_data";
  if (!record) {
    VEXA_LOG(vexa::log::kError, kName, "oem_free_cmd_q_data invalid queue data\n");
    return;
  }
  VEXA_LOG(vexa::log::kDebug, kName, "oem_free_cmd_q_data:cmd_type=%d, %p\n", record->cmd_type,
           static_cast<void*>(record));
  const Owns owns = type_of(record->cmd_type).owns;
  if (owns == Owns::kUnknown) {
    VEXA_LOG(vexa::log::kError, kName, "Invalid CMD type: %d\n", record->cmd_type);
  }
  free_payload(owns, record->payload);
  std::free(record);
}
