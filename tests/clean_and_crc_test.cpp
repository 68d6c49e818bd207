// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vexadm/data_manager.h>
#include <vexadm/storage.h>

#include <string>

#include "support/device_fixture.h"
#include "support/fake_backend.h"
#include "support/log_capture.h"

using namespace vexa_test;
using ::testing::ElementsAre;

namespace {

uint32_t crc(const std::string& bytes, uint32_t bits, uint32_t initial = 0) {
  return static_cast<uint32_t>(
      vexa_dm_Crc32Calc(reinterpret_cast<const uint8_t*>(bytes.data()), bits, initial));
}

// Bit by bit, without the table.
uint32_t slow_crc(const std::string& bytes, uint32_t bits, uint32_t value = 0) {
  for (uint32_t bit = 0; bit < bits; ++bit) {
    const auto byte = static_cast<uint8_t>(bytes[bit / 8]);
    const uint32_t top = (value >> 31) ^ (byte >> (7 - bit % 8) & 1u);
    value = (value << 1) ^ (top != 0 ? 0x04C11DB7u : 0u);
  }
  return value;
}

std::string pattern(std::size_t size) {
  std::string bytes(size, '\0');
  uint32_t state = 12345;
  for (char& byte : bytes) {
    state = state * 1103515245u + 12345u;
    byte = static_cast<char>(state >> 24);
  }
  return bytes;
}

// A clean slot that stores a default through a handle without slots.
uint32_t store_default_during_clean(char*) {
  vexa_dm_handle without_slots{};
  vexa_dm_default_item row = bare_item(1, "NAME");
  return static_cast<uint32_t>(vexa_dm_def_items_write(&without_slots, 1, &row.desc, "x", 1));
}

}  // namespace

TEST(Clean, HandsItsArgumentToTheBackendAndReturnsItsResult) {
  FakeBackend backend;
  backend.clean_result = 0xFFFFFFFF;
  char request[] = "yes";

  EXPECT_EQ(vexa_dm_clean(backend.handle, request), 0xFFFFFFFFu);
  EXPECT_EQ(backend.clean_argument, request);
  EXPECT_THAT(backend.calls, ElementsAre("clean"));
}

TEST(Clean, ASecondOneReturnsZeroWithoutTheBackend) {
  FakeBackend backend;
  backend.clean_result = 9;
  ASSERT_EQ(vexa_dm_clean(backend.handle, nullptr), 9u);

  EXPECT_EQ(vexa_dm_clean(backend.handle, nullptr), 0u);
  EXPECT_THAT(backend.calls, ElementsAre("clean"));
}

TEST(Clean, WithoutASlotDoesNothingAndLeavesTheStateAsItIs) {
  FakeBackend backend;
  const auto slot = backend.handle->ops.clean;
  backend.handle->ops.clean = nullptr;
  EXPECT_EQ(vexa_dm_clean(backend.handle, nullptr), 0u);
  EXPECT_EQ(vexa_dm_clean(nullptr, nullptr), 0u);

  backend.handle->ops.clean = slot;
  backend.clean_result = 9;
  EXPECT_EQ(vexa_dm_clean(backend.handle, nullptr), 9u);
}

TEST(Clean, TheStateBeginsBeforeTheBackendStarts) {
  FakeBackend backend;
  backend.handle->ops.clean = store_default_during_clean;

  // Outside run-clean state the slot that is missing would stop the process.
  EXPECT_EQ(vexa_dm_clean(backend.handle, nullptr), 0u);
}

TEST(Clean, HoldsForEveryHandleOfTheProcess) {
  vexa_dm_default_item table[] = {bare_item(1, "NAME"), end_of_table()};
  ASSERT_EQ(vexa_dm_reg_def_items(table), 0);
  vexa_dm_handle* const other = vexa_dm_reg(2);
  {
    FakeBackend backend;
    vexa_dm_clean(backend.handle, nullptr);
  }

  EXPECT_EQ(write_item(other, 1, "abc"), 0);
  EXPECT_EQ(read_item(other, 1).bytes, "abc");
  vexa_dm_unreg(other);
}

TEST(Clean, SaysNothingItself) {
  FakeBackend backend;
  const LogCapture log;

  vexa_dm_clean(backend.handle, nullptr);
  vexa_dm_clean(backend.handle, nullptr);

  EXPECT_TRUE(log.lines().empty());
}

class CleanOnDevice : public DeviceTest {};

TEST_F(CleanOnDevice, RemovesTheFilesAndKeepsThemAway) {
  vexa_dm_handle* const handle = vexa_dm_reg(1);
  vexa_dm_default_item table[] = {bare_item(1, "NAME"), end_of_table()};
  ASSERT_EQ(vexa_dm_reg_def_items(table), 0);
  ASSERT_EQ(write_item(handle, 1, "before"), 0);
  ASSERT_TRUE(exists("/data/config.db"));

  EXPECT_EQ(vexa_dm_clean(handle, nullptr), 0u);
  EXPECT_EQ(write_item(handle, 1, "after"), 0);

  EXPECT_EQ(read_item(handle, 1).bytes, "after");
  EXPECT_FALSE(exists("/data/config.db"));
  EXPECT_FALSE(exists("/data/configbak.db"));
  EXPECT_FALSE(exists("/data/state.db"));
  vexa_dm_unreg(handle);
}

TEST(CrcTable, HasTheKnownEntries) {
  EXPECT_EQ(vexa_dm_crc32_table[0], 0x00000000u);
  EXPECT_EQ(vexa_dm_crc32_table[1], 0x04C11DB7u);
  EXPECT_EQ(vexa_dm_crc32_table[2], 0x09823B6Eu);
  EXPECT_EQ(vexa_dm_crc32_table[128], 0x690CE0EEu);
  EXPECT_EQ(vexa_dm_crc32_table[255], 0xB1F740B4u);
}

TEST(CrcTable, EachEntryIsTheChecksumOfItsByte) {
  for (uint32_t byte = 0; byte < 256; ++byte) {
    ASSERT_EQ(vexa_dm_crc32_table[byte], slow_crc(std::string(1, static_cast<char>(byte)), 8)) << byte;
  }
}

TEST(Crc, OfNoDataIsMinusOne) { EXPECT_EQ(vexa_dm_Crc32Calc(nullptr, 8, 0), -1); }

TEST(Crc, OfNoBitsIsTheInitialValue) {
  EXPECT_EQ(crc("x", 0), 0u);
  EXPECT_EQ(crc("x", 0, 0x12345678), 0x12345678u);
}

TEST(Crc, OfOneByteFromZeroIsItsTableEntry) {
  for (uint32_t byte = 0; byte < 256; ++byte) {
    ASSERT_EQ(crc(std::string(1, static_cast<char>(byte)), 8), vexa_dm_crc32_table[byte]) << byte;
  }
}

TEST(Crc, OfSevenBitsLeavesTheLastOneOut) {
  EXPECT_EQ(crc("\x80", 7), crc("\x81", 7));
  EXPECT_NE(crc("\x80", 7), crc("\x82", 7));
  EXPECT_EQ(crc("\x80", 7), slow_crc("\x80", 7));
  EXPECT_EQ(crc("\x80", 1), 0x04C11DB7u);
}

TEST(Crc, HasNoFinalInversion) {
  // The check value of the checksum family with initial value 0 and without inversion.
  EXPECT_EQ(crc("123456789", 72), 0x89A1897Fu);
  EXPECT_EQ(crc("123456789", 72, 0xFFFFFFFF), 0x0376E6E7u);
}

TEST(Crc, AgreesWithTheBitwiseOneForEveryCountOfBits) {
  const std::string bytes = pattern(64);
  for (uint32_t bits = 0; bits <= 512; ++bits) {
    ASSERT_EQ(crc(bytes, bits, 0xCAFEBABE), slow_crc(bytes, bits, 0xCAFEBABE)) << bits;
  }
}

TEST(Crc, OfAnItemOfNBytesCoversAnEighthOfIt) {
  // The backend passes a byte count as the count of bits.
  const std::string stored = "abcdefghijklm";
  std::string changed = stored;
  changed[2] = 'X';

  EXPECT_EQ(crc(stored, 13), crc(changed, 13));
  changed[0] = 'X';
  EXPECT_NE(crc(stored, 13), crc(changed, 13));
}

TEST(Crc, CountsWholeBytesInThirteenBits) {
  const std::string bytes = pattern(8200);

  EXPECT_EQ(crc(bytes, 65535), slow_crc(bytes, 65535));
  EXPECT_EQ(crc(bytes, 65536), slow_crc(bytes, 65536));
  // 8193 bytes count as one; the odd bits are those of the byte after it.
  EXPECT_EQ(crc(bytes, 65544), slow_crc(bytes, 8));
  EXPECT_EQ(crc(bytes, 65547), slow_crc(bytes, 11));
}
