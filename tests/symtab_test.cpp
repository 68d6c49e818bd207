// SPDX-License-Identifier: MIT
#include "vexadm/symtab.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "support/child.h"
#include "support/failing_calloc.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vexa_test::ChildResult;
using vexa_test::run_in_child;

struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};

// The members of a packed record by value: matchers take references, which packed members have not.
const char* text_of(const vexa_sym_value& value) { return value.value.string; }
void* symbol_of(const vexa_sym_value& value) { return value.value.symbol; }
int32_t integer_of(const vexa_sym_value& value) { return value.value.integer; }
uint32_t type_of(const vexa_sym_value& value) { return value.type; }

std::vector<std::string> walk(int32_t table) {
  std::vector<std::string> names;
  for (vexa_sym_entry* entry = symFirst(table); entry; entry = symNext(table)) {
    names.emplace_back(text_of(entry->name));
  }
  return names;
}

// Leaves the process without a byte to allocate. Only for children, and not under a sanitizer,
// whose allocator has rules of its own.
void use_up_memory() {
  const rlimit none = {0, 0};
  setrlimit(RLIMIT_AS, &none);
  for (std::size_t size = std::size_t{1} << 20; size > 0; size /= 2) {
    while (void* volatile block = std::malloc(size)) static_cast<void>(block);
  }
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kOwnAllocator = true;
#else
constexpr bool kOwnAllocator = false;
#endif

class SymbolTable : public ::testing::Test {
 protected:
  void SetUp() override { table_ = symOpen(64); }
  void TearDown() override { symClose(table_); }
  int32_t table_ = -1;
};

// ---- Layout -----------------------------------------------------------------

TEST(SymbolLayout, ValueIsFourteenPackedBytes) {
  EXPECT_EQ(sizeof(vexa_sym_value), 14u);
  EXPECT_EQ(offsetof(vexa_sym_value, value), 0u);
  EXPECT_EQ(offsetof(vexa_sym_value, type), 8u);
  EXPECT_EQ(offsetof(vexa_sym_value, valid), 12u);
  EXPECT_EQ(offsetof(vexa_sym_value, allocated), 13u);
}

TEST(SymbolLayout, EntryIsNextNameContentArgument) {
  EXPECT_EQ(offsetof(vexa_sym_entry, next), 0u);
  EXPECT_EQ(offsetof(vexa_sym_entry, name), sizeof(void*));
  EXPECT_EQ(offsetof(vexa_sym_entry, content), sizeof(void*) + 14);
  EXPECT_EQ(offsetof(vexa_sym_entry, arg), sizeof(void*) == 8 ? 36u : 32u);
}

// ---- Values -----------------------------------------------------------------

TEST(SymbolValue, IntegerSetsFourBytesTypeAndValid) {
  const vexa_sym_value value = valueInteger(-2);
  const unsigned char expected[14] = {0xFE, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 3, 0, 0, 0, 1, 0};
  EXPECT_EQ(std::memcmp(&value, expected, sizeof value), 0);
}

TEST(SymbolValue, SymbolKeepsThePointer) {
  int object = 0;
  const vexa_sym_value value = valueSymbol(&object);
  EXPECT_EQ(symbol_of(value), &object);
  EXPECT_EQ(type_of(value), 12u);
  EXPECT_EQ(value.valid, 1);
  EXPECT_EQ(value.allocated, 0);
}

TEST(SymbolValue, StringWithoutTheFlagIsKeptAsItIs) {
  const char* const text = "text";
  const vexa_sym_value value = valueString(text, 2);
  EXPECT_EQ(text_of(value), text);
  EXPECT_EQ(type_of(value), 10u);
  EXPECT_EQ(value.valid, 1);
  EXPECT_EQ(value.allocated, 0);
}

TEST(SymbolValue, StringWithBitZeroIsAPrivateCopy) {
  char text[] = "text";
  vexa_sym_value value = valueString(text, 3);
  text[0] = 'T';
  EXPECT_STREQ(text_of(value), "text");
  EXPECT_EQ(value.valid, 1);
  EXPECT_EQ(value.allocated, 1);
  valueFree(&value);
}

TEST(SymbolValue, CopyOfNoTextIsTheEmptyText) {
  vexa_sym_value value = valueString(nullptr, 1);
  EXPECT_STREQ(text_of(value), "");
  valueFree(&value);
}

TEST(SymbolValue, FreeClearsAllButTheValueBytes) {
  vexa_sym_value value = valueInteger(77);
  valueFree(&value);
  EXPECT_EQ(integer_of(value), 77);
  EXPECT_EQ(type_of(value), 0u);
  EXPECT_EQ(value.valid, 0);
  EXPECT_EQ(value.allocated, 0);
}

TEST(SymbolValue, FreeTwiceFreesOnce) {
  vexa_sym_value value = valueString("text", 1);
  valueFree(&value);
  valueFree(&value);
}

TEST(SymbolValue, FreeLeavesWhatIsNotAValidAllocatedString) {
  char text[] = "on the stack";
  for (int missing = 0; missing < 3; ++missing) {
    vexa_sym_value value = valueString(text, 0);
    value.allocated = missing != 0;
    value.valid = missing != 1;
    if (missing == 2) value.type = 12;
    valueFree(&value);
    EXPECT_EQ(text_of(value), text);
  }
}

// ---- Tables -----------------------------------------------------------------

TEST_F(SymbolTable, FindsWhatWasEntered) {
  int object = 0;
  vexa_sym_entry* const entered = symEnter(table_, "4711", valueSymbol(&object), 5);
  ASSERT_NE(entered, nullptr);
  EXPECT_EQ(symLookup(table_, "4711"), entered);
  EXPECT_EQ(symbol_of(entered->content), &object);
  EXPECT_EQ(entered->arg, 5);
  EXPECT_STREQ(text_of(entered->name), "4711");
  EXPECT_EQ(entered->name.allocated, 1);
}

TEST_F(SymbolTable, KeepsItsOwnCopyOfTheName) {
  char name[] = "name";
  symEnter(table_, name, valueInteger(1), 0);
  name[0] = 'X';
  EXPECT_NE(symLookup(table_, "name"), nullptr);
}

TEST_F(SymbolTable, UnknownNameGivesNull) {
  symEnter(table_, "a", valueInteger(1), 0);
  EXPECT_EQ(symLookup(table_, "b"), nullptr);
  EXPECT_EQ(symLookup(table_, "ab"), nullptr);
}

TEST_F(SymbolTable, SecondEntryOfANameReplacesContentAndArgument) {
  vexa_sym_entry* const first = symEnter(table_, "name", valueString("old", 1), 1);
  vexa_sym_entry* const second = symEnter(table_, "name", valueInteger(2), 3);
  EXPECT_EQ(second, first);
  EXPECT_EQ(integer_of(second->content), 2);
  EXPECT_EQ(type_of(second->content), 3u);
  EXPECT_EQ(second->arg, 3);
  EXPECT_THAT(walk(table_), ElementsAre("name"));
}

TEST_F(SymbolTable, EmptyNameIsNeverFoundButWalkedAndDeleted) {
  ASSERT_NE(symEnter(table_, "", valueInteger(1), 0), nullptr);
  EXPECT_EQ(symLookup(table_, ""), nullptr);
  EXPECT_EQ(symLookup(table_, nullptr), nullptr);
  EXPECT_THAT(walk(table_), ElementsAre(""));
  EXPECT_EQ(symDelete(table_, ""), 0);
  EXPECT_THAT(walk(table_), IsEmpty());
}

TEST_F(SymbolTable, DeleteRemovesOneNameOnce) {
  symEnter(table_, "a", valueString("content", 1), 0);
  symEnter(table_, "b", valueInteger(2), 0);
  EXPECT_EQ(symDelete(table_, "a"), 0);
  EXPECT_EQ(symLookup(table_, "a"), nullptr);
  EXPECT_NE(symLookup(table_, "b"), nullptr);
  EXPECT_EQ(symDelete(table_, "a"), -1);
}

TEST(SymbolChain, DeletesHeadMiddleAndTailOfABucket) {
  const int32_t table = symOpen(1);
  for (const char* name : {"a", "b", "c", "d", "e"}) symEnter(table, name, valueInteger(0), 0);
  EXPECT_EQ(symDelete(table, "c"), 0);
  EXPECT_THAT(walk(table), ElementsAre("a", "b", "d", "e"));
  EXPECT_EQ(symDelete(table, "a"), 0);
  EXPECT_THAT(walk(table), ElementsAre("b", "d", "e"));
  EXPECT_EQ(symDelete(table, "e"), 0);
  EXPECT_THAT(walk(table), ElementsAre("b", "d"));
  symClose(table);
}

TEST(SymbolChain, ReplacingANameKeepsItsPlace) {
  const int32_t table = symOpen(1);
  for (const char* name : {"a", "b", "a"}) symEnter(table, name, valueInteger(0), 0);
  EXPECT_THAT(walk(table), ElementsAre("a", "b"));
  symClose(table);
}

// ---- Hashing ----------------------------------------------------------------

// The buckets of a table show in the order of a walk: the names below have known sums.
TEST(SymbolHash, SixtyFourGivesSixtyOneBuckets) {
  const int32_t table = symOpen(64);
  // "=" is 61: bucket 0 of 61, and bucket 61 of 64. "<" is 60, the last of 61 buckets.
  symEnter(table, "<", valueInteger(0), 0);
  symEnter(table, "=", valueInteger(0), 0);
  EXPECT_THAT(walk(table), ElementsAre("=", "<"));
  symClose(table);
}

// A single character with code c lies in bucket c mod size: size + 1 of them, entered from high to
// low, come back in an order that only one size explains.
std::vector<int> bucket_order(int32_t requested, int lowest, int count) {
  const int32_t table = symOpen(requested);
  for (int c = lowest + count - 1; c >= lowest; --c) {
    const char name[] = {static_cast<char>(c), '\0'};
    symEnter(table, name, valueInteger(c), 0);
  }
  std::vector<int> order;
  for (vexa_sym_entry* entry = symFirst(table); entry; entry = symNext(table)) {
    order.push_back(integer_of(entry->content));
  }
  symClose(table);
  return order;
}

TEST(SymbolHash, SizeIsTheLargestPrimeNotAboveTheWish) {
  EXPECT_THAT(bucket_order(2, 40, 4), ElementsAre(42, 40, 43, 41));
  EXPECT_THAT(bucket_order(3, 42, 4), ElementsAre(45, 42, 43, 44));
  EXPECT_THAT(bucket_order(4, 42, 4), ElementsAre(45, 42, 43, 44));
  EXPECT_THAT(bucket_order(5, 40, 6), ElementsAre(45, 40, 41, 42, 43, 44));
  EXPECT_THAT(bucket_order(6, 40, 6), ElementsAre(45, 40, 41, 42, 43, 44));
  EXPECT_THAT(bucket_order(10, 42, 8), ElementsAre(49, 42, 43, 44, 45, 46, 47, 48));
}

TEST(SymbolHash, SizeOfOneOrLessIsOneBucket) {
  for (const int32_t size : {1, 0, -1, INT32_MIN}) {
    EXPECT_THAT(bucket_order(size, 40, 4), ElementsAre(43, 42, 41, 40)) << size;
  }
}

TEST(SymbolHash, CharactersAreShiftedByMultiplesOfSevenModulo24) {
  const int32_t table = symOpen(61);
  // "aaaaa" sums up to 97 * (1 + 2^7 + 2^14 + 2^21 + 2^4), bucket 18; "O" = 79 is in bucket 18 too,
  // behind it; "z" = 122 is in bucket 0 and "P" = 80 in bucket 19.
  for (const char* name : {"P", "aaaaa", "O", "z"}) symEnter(table, name, valueInteger(0), 0);
  EXPECT_THAT(walk(table), ElementsAre("z", "aaaaa", "O", "P"));
  symClose(table);
}

TEST(SymbolHash, CharactersAbove127CountWithoutASign) {
  const int32_t table = symOpen(61);
  // 0xFF is 255, bucket 11; taken as -1 it would be in bucket 56. "G" is in bucket 10, "I" in 12.
  for (const char* name : {"I", "\xFF", "G"}) symEnter(table, name, valueInteger(0), 0);
  EXPECT_THAT(walk(table), ElementsAre("G", "\xFF", "I"));
  symClose(table);
}

// ---- Walk -------------------------------------------------------------------

TEST_F(SymbolTable, WalkOfAnEmptyTableGivesNull) {
  EXPECT_EQ(symFirst(table_), nullptr);
  EXPECT_EQ(symNext(table_), nullptr);
}

TEST_F(SymbolTable, WalkEndsWithNullAgainAndAgain) {
  symEnter(table_, "a", valueInteger(0), 0);
  EXPECT_NE(symFirst(table_), nullptr);
  EXPECT_EQ(symNext(table_), nullptr);
  EXPECT_EQ(symNext(table_), nullptr);
}

TEST_F(SymbolTable, DeletingTheEntryReturnedLastKeepsTheWalk) {
  for (int i = 0; i < 200; ++i) symEnter(table_, std::to_string(i).c_str(), valueInteger(i), 0);
  int seen = 0;
  for (vexa_sym_entry* entry = symFirst(table_); entry; entry = symNext(table_)) {
    const std::string name = text_of(entry->name);
    EXPECT_EQ(symDelete(table_, name.c_str()), 0);
    ++seen;
  }
  EXPECT_EQ(seen, 200);
  EXPECT_THAT(walk(table_), IsEmpty());
}

// ---- Handles ----------------------------------------------------------------

TEST(SymbolHandle, ClosedAndUnknownHandlesGiveNull) {
  const int32_t table = symOpen(3);
  symEnter(table, "a", valueInteger(0), 0);
  symClose(table);
  for (const int32_t handle : {table, -1, 1, 99, INT32_MAX, INT32_MIN}) {
    EXPECT_EQ(symLookup(handle, "a"), nullptr);
    EXPECT_EQ(symEnter(handle, "a", valueInteger(0), 0), nullptr);
    EXPECT_EQ(symFirst(handle), nullptr);
    EXPECT_EQ(symNext(handle), nullptr);
    symClose(handle);
  }
}

TEST(SymbolHandle, DeleteFromATableThatIsNotOpenFaults) {
  for (const int32_t handle : {0, -1, 5}) {
    const ChildResult child = run_in_child([handle] { symDelete(handle, "a"); });
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    EXPECT_TRUE(child.signal != 0 || child.exit_code != 0);
#else
    EXPECT_EQ(child.signal, SIGSEGV);
#endif
  }
}

TEST(SymbolHandle, ClosingTheLastTableStartsAgainAtZero) {
  EXPECT_EQ(symOpen(3), 0);
  EXPECT_EQ(symOpen(3), 1);
  symClose(0);
  symClose(1);
  EXPECT_EQ(symOpen(3), 0);
  symClose(0);
}

TEST(SymbolHandle, LowestFreeOneIsGivenNext) {
  for (int32_t i = 0; i < 3; ++i) EXPECT_EQ(symOpen(3), i);
  symClose(1);
  EXPECT_EQ(symOpen(3), 1);
  for (int32_t i = 0; i < 3; ++i) symClose(i);
}

TEST(SymbolHandle, BoundFollowsTheHighestOpenTable) {
  for (int32_t i = 0; i < 3; ++i) symOpen(3);
  symClose(2);
  symClose(0);
  EXPECT_NE(symEnter(1, "a", valueInteger(1), 0), nullptr);
  EXPECT_EQ(symEnter(2, "a", valueInteger(1), 0), nullptr);
  symClose(1);
}

TEST(SymbolHandle, SeventeenTablesAreOpenTogether) {
  for (int32_t i = 0; i < 17; ++i) {
    ASSERT_EQ(symOpen(3), i);
    symEnter(i, "name", valueInteger(i), 0);
  }
  for (int32_t i = 0; i < 17; ++i) {
    EXPECT_EQ(integer_of(symLookup(i, "name")->content), i);
    symClose(i);
  }
}

TEST(SymbolHandle, OldOnesBeyondANewArrayAreNotOpen) {
  for (int32_t i = 0; i < 17; ++i) symOpen(3);
  for (int32_t i = 0; i < 17; ++i) symClose(i);
  EXPECT_EQ(symOpen(3), 0);
  EXPECT_EQ(symLookup(16, "a"), nullptr);
  symClose(0);
}

TEST(SymbolModule, FirstUserFindsNoTables) {
  const int32_t forgotten = symOpen(3);
  symEnter(forgotten, "a", valueInteger(0), 0);
  const ChildResult child = run_in_child([forgotten] {
    EXPECT_EQ(symSubOpen(), 0);
    EXPECT_EQ(symLookup(forgotten, "a"), nullptr);
    EXPECT_EQ(symOpen(3), 0);
    EXPECT_EQ(symSubOpen(), 0);
    EXPECT_NE(symEnter(0, "b", valueInteger(0), 0), nullptr);
    symClose(0);
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  });
  EXPECT_EQ(child.exit_code, 0);
  symClose(forgotten);
}

TEST(SymbolModule, UsersAreNeverFewerThanNoneSoTheNextOneIsTheFirst) {
  const int32_t forgotten = symOpen(3);
  symEnter(forgotten, "a", valueInteger(0), 0);
  const ChildResult child = run_in_child([forgotten] {
    symSubClose();
    symSubClose();
    symSubOpen();
    _exit(symLookup(forgotten, "a") == nullptr ? 7 : 1);
  });
  EXPECT_EQ(child.exit_code, 7);
  symClose(forgotten);
}

TEST(SymbolModule, OnlyTheFirstUserForgetsTables) {
  symSubClose();
  symSubClose();
  symSubOpen();
  const int32_t table = symOpen(3);
  symSubOpen();
  EXPECT_NE(symEnter(table, "a", valueInteger(0), 0), nullptr);
  symSubClose();
  symSubClose();
  EXPECT_NE(symLookup(table, "a"), nullptr);
  symClose(table);
}

// ---- Handle arrays ----------------------------------------------------------

int32_t capacity(void** array) { return *static_cast<int32_t*>(array[-2]); }
int32_t used(void** array) { return *static_cast<int32_t*>(array[-1]); }

int g_object;

int32_t take(void*** array) {
  const int32_t index = hAlloc(array);
  (*array)[index] = &g_object;
  return index;
}

TEST(HandleArray, StartsWithSixteenNullSlots) {
  void** array = nullptr;
  EXPECT_EQ(hAlloc(&array), 0);
  EXPECT_EQ(capacity(array), 16);
  EXPECT_EQ(used(array), 1);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(array[i], nullptr);
  EXPECT_EQ(hFree(&array, 0), 0);
  EXPECT_EQ(array, nullptr);
}

TEST(HandleArray, SeventeenthSlotMakesItThirtyTwo) {
  void** array = nullptr;
  for (int32_t i = 0; i < 16; ++i) EXPECT_EQ(take(&array), i);
  EXPECT_EQ(capacity(array), 16);
  EXPECT_EQ(take(&array), 16);
  EXPECT_EQ(capacity(array), 32);
  EXPECT_EQ(used(array), 17);
  for (int i = 17; i < 32; ++i) EXPECT_EQ(array[i], nullptr);
  for (int32_t i = 16; i >= 0; --i) EXPECT_EQ(hFree(&array, i), i);
  EXPECT_EQ(array, nullptr);
}

TEST(HandleArray, UnfilledSlotIsFoundAgainAndCountedTwice) {
  void** array = nullptr;
  EXPECT_EQ(hAlloc(&array), 0);
  EXPECT_EQ(hAlloc(&array), 0);
  EXPECT_EQ(used(array), 2);
  EXPECT_EQ(hFree(&array, 0), 0);
  EXPECT_NE(array, nullptr);
  EXPECT_EQ(hFree(&array, 0), 0);
  EXPECT_EQ(array, nullptr);
}

TEST(HandleArray, FreeReturnsTheHighestSlotInUsePlusOne) {
  void** array = nullptr;
  for (int i = 0; i < 4; ++i) take(&array);
  EXPECT_EQ(hFree(&array, 1), 4);
  EXPECT_EQ(hFree(&array, 3), 3);
  EXPECT_EQ(hFree(&array, 2), 1);
  EXPECT_EQ(take(&array), 1);
  EXPECT_EQ(hFree(&array, 0), 2);
  EXPECT_EQ(hFree(&array, 1), 0);
}

TEST(HandleArray, FreeOfWhatIsNotThereChangesNothing) {
  void** array = nullptr;
  EXPECT_EQ(hFree(&array, 0), -1);
  EXPECT_EQ(hFree(nullptr, 0), -1);
  take(&array);
  EXPECT_EQ(hFree(&array, -1), -1);
  EXPECT_EQ(hFree(&array, 16), -1);
  EXPECT_EQ(used(array), 1);
  hFree(&array, 0);
}

TEST(HandleArray, EntryGetsAZeroedObjectAndRaisesTheBound) {
  void** array = nullptr;
  int32_t bound = 0;
  EXPECT_EQ(hAllocEntry(&array, &bound, 24), 0);
  EXPECT_EQ(bound, 1);
  const std::unique_ptr<char, FreeMemory> object(static_cast<char*>(array[0]));
  EXPECT_EQ(std::string(object.get(), 24), std::string(24, '\0'));
  EXPECT_EQ(hFree(&array, 0), 0);
}

TEST(HandleArray, EntryLeavesAHigherBound) {
  void** array = nullptr;
  int32_t bound = 9;
  EXPECT_EQ(hAllocEntry(&array, &bound, 0), 0);
  EXPECT_EQ(bound, 9);
  hFree(&array, 0);
}

TEST(HandleArray, EntryWithoutASizeLeavesTheSlotNull) {
  for (const int32_t size : {0, -5}) {
    void** array = nullptr;
    int32_t bound = 0;
    EXPECT_EQ(hAllocEntry(&array, &bound, size), 0);
    EXPECT_EQ(array[0], nullptr);
    EXPECT_EQ(bound, 1);
    hFree(&array, 0);
  }
}

// ---- Allocation names -------------------------------------------------------

TEST(AllocationName, CloseAndStatsReturnTheirArgument) {
  bopen();
  EXPECT_EQ(bclose(&g_object), &g_object);
  EXPECT_EQ(bstats(&g_object), &g_object);
}

TEST(AllocationName, BothStringCopiesAreOwnAndTakeNoTextForEmpty) {
  for (char* (*copy)(const char*) : {bstrdupNoBalloc, bstrdupANoBalloc}) {
    const char* const text = "text";
    const std::unique_ptr<char, FreeMemory> copied(copy(text));
    EXPECT_STREQ(copied.get(), "text");
    EXPECT_NE(copied.get(), text);
    const std::unique_ptr<char, FreeMemory> empty(copy(nullptr));
    EXPECT_STREQ(empty.get(), "");
  }
}

TEST(AllocationName, MemoryCopyIsZeroedWithoutData) {
  const std::unique_ptr<void, FreeMemory> copied(bmemdupNoBalloc("a\0b", 3));
  EXPECT_EQ(std::memcmp(copied.get(), "a\0b", 3), 0);
  const std::unique_ptr<void, FreeMemory> zeroed(bmemdupNoBalloc(nullptr, 3));
  EXPECT_EQ(std::memcmp(zeroed.get(), "\0\0\0", 3), 0);
  EXPECT_EQ(bmemdupNoBalloc("a", -1), nullptr);
}

// ---- No memory --------------------------------------------------------------

class WithoutMemory : public ::testing::Test {
 protected:
  void SetUp() override {
    if (kOwnAllocator) GTEST_SKIP() << "the sanitizer's allocator does not run out like this";
  }
};

TEST_F(WithoutMemory, EverythingAnswers) {
  const ChildResult child = run_in_child([] {
    void** array = nullptr;
    int32_t bound = 0;
    use_up_memory();
    EXPECT_EQ(hAlloc(&array), -1);
    EXPECT_EQ(array, nullptr);
    EXPECT_EQ(hAllocEntry(&array, &bound, 8), -1);
    EXPECT_EQ(bound, 0);
    EXPECT_EQ(symOpen(3), -1);
    EXPECT_EQ(bstrdupNoBalloc("text"), nullptr);
    EXPECT_EQ(bstrdupANoBalloc("text"), nullptr);
    EXPECT_EQ(bmemdupNoBalloc("text", 4), nullptr);
    EXPECT_EQ(text_of(valueString("text", 1)), nullptr);
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
}

TEST_F(WithoutMemory, NewNameIsNotEnteredAndAKnownOneStillReplaced) {
  const ChildResult child = run_in_child([] {
    const int32_t table = symOpen(1);
    symEnter(table, "known", valueInteger(1), 1);
    use_up_memory();
    EXPECT_EQ(symEnter(table, "new", valueInteger(2), 2), nullptr);
    EXPECT_EQ(symLookup(table, "new"), nullptr);
    EXPECT_EQ(symEnter(table, "known", valueInteger(3), 3)->arg, 3);
    EXPECT_EQ(symFirst(table)->arg, 3);
    EXPECT_EQ(symNext(table), nullptr);
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
}

TEST_F(WithoutMemory, TableThatDoesNotFitLeavesItsHandleFree) {
  const ChildResult child = run_in_child([] {
    EXPECT_EQ(symOpen(3), 0);
    const rlimit small = {std::size_t{1} << 30, std::size_t{1} << 30};
    setrlimit(RLIMIT_AS, &small);
    EXPECT_EQ(symOpen(INT32_MAX), -1);
    EXPECT_EQ(symEnter(1, "a", valueInteger(0), 0), nullptr);
    EXPECT_EQ(symOpen(3), 1);
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
}

TEST_F(WithoutMemory, EntryThatDoesNotFitLeavesItsSlotFree) {
  VEXA_NEEDS_OWN_CALLOC();
  const ChildResult child = run_in_child([] {
    void** array = nullptr;
    int32_t bound = 0;
    take(&array);
    const vexa_test::FailingCalloc none(INT32_MAX);
    EXPECT_EQ(hAllocEntry(&array, &bound, INT32_MAX), -1);
    EXPECT_EQ(used(array), 1);
    EXPECT_EQ(bound, 0);
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
}

TEST_F(WithoutMemory, ArrayThatCannotGrowStaysAsItIs) {
  const ChildResult child = run_in_child([] {
    void** array = nullptr;
    for (int i = 0; i < 16; ++i) take(&array);
    use_up_memory();
    void** const before = array;
    EXPECT_EQ(hAlloc(&array), -1);
    EXPECT_EQ(array, before);
    EXPECT_EQ(capacity(array), 16);
    EXPECT_EQ(used(array), 16);
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
}

TEST(SymbolWalk, GoesOnWhenAnotherTableIsClosed) {
  const int32_t tables = symOpen(1);
  for (const char* name : {"a", "b", "c"}) {
    const int32_t inner = symOpen(4);
    symEnter(inner, "x", valueInteger(0), 0);
    symEnter(tables, name, valueInteger(inner), 0);
  }

  std::string closed;
  for (const vexa_sym_entry* entry = symFirst(tables); entry != nullptr; entry = symNext(tables)) {
    symClose(entry->content.value.integer);
    closed += entry->name.value.string;
  }

  EXPECT_EQ(closed, "abc");
  symClose(tables);
}

TEST(SymbolWalk, EndsWhenItsTableIsClosed) {
  const int32_t table = symOpen(1);
  symEnter(table, "a", valueInteger(1), 0);
  symEnter(table, "b", valueInteger(2), 0);
  ASSERT_NE(symFirst(table), nullptr);
  symClose(table);
  const int32_t next = symOpen(1);
  symEnter(next, "c", valueInteger(3), 0);

  EXPECT_EQ(symNext(next), nullptr);
  EXPECT_NE(symFirst(next), nullptr);
  symClose(next);
}

TEST(Value, FreeingClearsTypeAndBothMarks) {
  vexa_sym_value value = valueString("text", 1);
  valueFree(&value);
  EXPECT_EQ(type_of(value), 0u);
  EXPECT_EQ(static_cast<int>(value.valid), 0);
  EXPECT_EQ(static_cast<int>(value.allocated), 0);
}

TEST(Allocation, OfACopyOfNothingIsStillABlock) {
  const std::unique_ptr<void, FreeMemory> block(bmemdupNoBalloc("a", 0));
  EXPECT_NE(block, nullptr);
}

TEST(Allocation, OfALargeCopyHoldsAllOfIt) {
  const std::string bytes(100000, 'x');
  const std::unique_ptr<void, FreeMemory> block(bmemdupNoBalloc(bytes.data(), 100000));
  EXPECT_GE(malloc_usable_size(block.get()), 100000u);
  EXPECT_EQ(memcmp(block.get(), bytes.data(), bytes.size()), 0);
}

// Memory that an array of 16 slots will be made of, so that what lies behind it is not zero.
void leave_rubbish() {
  if (kOwnAllocator) return;  // the sanitizer sees an access there by itself
  const std::size_t size = (2 + 16) * sizeof(void*) + sizeof(void*);
  void* const block = std::malloc(size);
  memset(block, 0xFF, size);
  __asm__ volatile("" : : "r"(block) : "memory");  // a store before free() counts as useless
  std::free(block);
}

TEST(HandleArray, LooksAtNoSlotBehindTheLast) {
  leave_rubbish();
  void** array = nullptr;
  for (int32_t i = 0; i < 16; ++i) {
    ASSERT_EQ(hAlloc(&array), i);
    array[i] = &array;
  }
  EXPECT_EQ(hAlloc(&array), 16);
  for (int32_t i = 0; i < 17; ++i) hFree(&array, i);
  EXPECT_EQ(array, nullptr);
}

TEST(SymbolTables, KnowNoHandleBehindTheLast) {
  leave_rubbish();
  for (int32_t i = 0; i < 16; ++i) ASSERT_EQ(symOpen(1), i);
  EXPECT_EQ(symLookup(16, "a"), nullptr);
  EXPECT_EQ(symFirst(16), nullptr);
  for (int32_t i = 0; i < 16; ++i) symClose(i);
}

TEST(SymbolTables, OfAnEarlierUserAreForgottenByTheNextFirst) {
  const ChildResult child = run_in_child([] {  // which may forget memory
    for (int32_t i = 0; i < 20; ++i) EXPECT_EQ(symOpen(1), i);
    leave_rubbish();
    symSubOpen();
    EXPECT_EQ(symOpen(1), 0);
    for (int32_t handle = 1; handle < 20; ++handle) EXPECT_EQ(symLookup(handle, "a"), nullptr) << handle;
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
}

TEST(SymbolTables, GiveAllMemoryBack) {
  if (kOwnAllocator) GTEST_SKIP() << "the sanitizer counts for itself";
  std::size_t before = 0;
  for (int round = 0; round < 1000; ++round) {
    const int32_t table = symOpen(1);
    for (const char* name : {"a", "b", "c"}) symEnter(table, name, valueString("content", 1), 0);
    symClose(table);
    if (round == 100) before = mallinfo2().uordblks;
  }
  EXPECT_EQ(mallinfo2().uordblks, before);
}

}  // namespace
