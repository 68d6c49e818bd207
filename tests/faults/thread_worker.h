// SPDX-License-Identifier: MIT
// One of several threads that use the whole library over one store.
#ifndef VEXADM_TESTS_FAULTS_THREAD_WORKER_H
#define VEXADM_TESTS_FAULTS_THREAD_WORKER_H

#include <pthread.h>
#include <vexadm/vexadm.h>

#include <array>
#include <atomic>
#include <barrier>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "faults/store_user.h"
#include "support/storage_fixture.h"

namespace vexa_test {

inline constexpr std::int32_t kCachedId = 1000;  // no item: it is in the cache alone

struct Job {
  q_link_node link = {};
  std::atomic<unsigned> taken{0};
};

// What the threads of a process share.
struct Shared {
  Shared(Board& the_board, unsigned count, unsigned seed)
      : board(the_board),
        first_kind(seed),
        all_alike(seed % 2 == 0),
        start(static_cast<std::ptrdiff_t>(count)),
        own_jobs(count) {
    q_init(&jobs);
    q_init(&moved);
  }

  Board& board;
  unsigned first_kind;
  bool all_alike;  // all begin with the same kind of operation, else each with another
  std::barrier<> start;
  std::array<std::atomic<bool>, kItems + 1> written = {};  // by one thread at a time
  std::vector<std::deque<Job>> own_jobs;                   // of each thread; stay until all have ended
  q_queue jobs = {};
  q_queue moved = {};  // into the other, never back: that direction is the caller's to keep
  std::atomic<unsigned> put{0};
  std::atomic<unsigned> taken{0};
};

// The logger holds its mutex while a line is printed: two at once would be its fault.
class Lines {
 public:
  static void print(const char* line) {
    if (printing_.fetch_add(1) != 0 || std::strstr(line, " | ") == nullptr) mixed_ = true;
    printing_.fetch_sub(1);
  }
  static void print_too(const char* line) { print(line); }
  static bool mixed() { return mixed_; }

 private:
  static inline std::atomic<unsigned> printing_{0};
  static inline std::atomic<bool> mixed_{false};
};

class Worker {
 public:
  Worker(Shared& shared, unsigned number, unsigned seed)
      : shared_(shared), number_(number), handle_(begin()), user_(shared.board, handle_, seed) {}
  ~Worker() { vexa_dm_unreg(handle_); }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  // All threads begin at the same moment.
  void run(unsigned operations) {
    shared_.start.arrive_and_wait();
    operate((shared_.first_kind / 2 + (shared_.all_alike ? 0 : number_)) % kKinds);
    for (unsigned i = 1; i < operations; ++i) operate(user_.below(kKinds));
    shared_.start.arrive_and_wait();
    q_m_put(&shared_.jobs, &shared_.moved);
    while (q_link_node* const link = q_get(&shared_.jobs)) take(link);
  }

  std::string complaints() const { return complaints_ + user_.complaints(); }

 private:
  static constexpr unsigned kKinds = 13;

  // Logger, thread name and registration, at the same moment too.
  vexa_dm_handle* begin() {
    pthread_setname_np(pthread_self(), ("worker " + std::to_string(number_)).c_str());
    shared_.start.arrive_and_wait();
    log();
    shared_.board.add(kStarts);
    return vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
  }

  void operate(unsigned kind) {
    const unsigned item = 1 + user_.below(kItems);
    switch (kind) {
      case 0:
      case 1:
        user_.read(item, From::kCache);
        break;
      case 2:
        user_.refresh(item);
        break;
      case 3:
        user_.read_file(item);
        break;
      case 4:
      case 5:
        write(item);
        break;
      case 6:
        use_cache();
        break;
      case 7:
        put();
        break;
      case 8:
        get();
        break;
      case 9:
        log();
        break;
      case 10:
        look_at_store();
        break;
      case 11:
        use_another_handle();
        break;
      default:
        user_.build_defaults();
        break;
    }
    shared_.board.add(kOperations);
  }

  void write(unsigned item) {
    if (shared_.written[item].exchange(true)) return user_.read(item, From::kCache);
    user_.write_next(item);
    user_.read(item, From::kCache);
    if (user_.below(3) == 0) user_.write_same(item);
    if (user_.below(3) == 0) user_.expect_stored(item);
    shared_.written[item] = false;
  }

  // Every value of this id is one letter, so often that lengths differ.
  void use_cache() {
    const std::string value(1 + user_.below(60), static_cast<char>('a' + number_));
    const auto length = static_cast<std::int32_t>(value.size());
    expect(vexa_dm_cache_write(kCachedId, value.data(), length) == length, "the cache refuses a value");
    std::array<char, 64> found = {};
    const std::int32_t got =
        vexa_dm_cache_read(kCachedId, reinterpret_cast<std::uint8_t*>(found.data()), found.size());
    const std::string bytes(found.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
    expect(!bytes.empty() && bytes == std::string(bytes.size(), bytes[0]), "the cache mixes two values");
  }

  void put() {
    Job& job = shared_.own_jobs[number_].emplace_back();
    ++shared_.put;
    q_put(user_.below(3) == 0 ? &shared_.moved : &shared_.jobs, q_link(&job, &job.link));
    expect(q_cnt(&shared_.jobs) >= 0, "a negative count");
  }

  void get() {
    if (user_.below(4) == 0) q_m_put(&shared_.jobs, &shared_.moved);
    if (q_link_node* const link = q_get(&shared_.jobs)) take(link);
  }

  void take(q_link_node* link) {
    expect(++reinterpret_cast<Job*>(link)->taken == 1, "an element came twice");
    ++shared_.taken;
  }

  void log() {
    set_print_interface(user_below(2) == 0 ? Lines::print : Lines::print_too);
    vexa_set_log_level(3);
    expect(vexa_get_log_level() == 3, "another level");
    std::array<char, VEXA_LOG_MESSAGE_SIZE> message = {};
    vexa_log_printf(3, message.data(), "worker", __LINE__, "thread %d\n", get_tid());
    expect(std::string(message.data()) == "thread " + std::to_string(get_tid()) + "\n", "another's message");
  }

  void look_at_store() {
    switch (user_.below(3)) {
      case 0:
        expect(check_database_health(kPrimary.c_str()) == 0, "the primary is not healthy");
        break;
      case 1:
        expect(check_database_health(kBackup.c_str()) == 0, "the backup is not healthy");
        break;
      default: {
        std::uint32_t version = 0;
        const std::uint32_t got = handle_->ops.read_cfg_db_version(reinterpret_cast<std::uint8_t*>(&version));
        expect(got == 4 && version == VEXA_SCHEMA_VERSION, "no version");
        std::uint8_t match = 0;
        vexa_dm_check_db_version_match(VEXA_DM_BACKEND_SQLITE, &match);
      }
    }
  }

  void use_another_handle() {
    vexa_dm_handle* const handle = vexa_dm_reg(VEXA_DM_BACKEND_SQLITE);
    expect(std::memcmp(&handle->ops, &handle_->ops, sizeof handle->ops) == 0, "other slots");
    vexa_dm_unreg(handle);
  }

  // Also before there is a user.
  unsigned user_below(unsigned end) { return ++turn_ % end; }

  void expect(bool condition, const char* otherwise) {
    if (!condition) complaints_ += "thread " + std::to_string(number_) + ": " + otherwise + "\n";
  }

  Shared& shared_;
  unsigned number_;
  unsigned turn_ = 0;
  std::string complaints_;
  vexa_dm_handle* handle_;
  StoreUser user_;
};

}  // namespace vexa_test

#endif
