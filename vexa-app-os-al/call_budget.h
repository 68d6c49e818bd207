// SPDX-License-Identifier: MIT
// How long one call of a host may wait for other processes' locks.
#ifndef VEXADM_OS_CALL_BUDGET_H
#define VEXADM_OS_CALL_BUDGET_H

namespace vexa {

// Opens the budget of the calling thread's outermost library call. Nested scopes share
// the outermost one, so a write that takes many statements and copies still answers
// within one bound. The clock starts at the first wait: a call that finds everything free
// never reads it.
class CallBudget {
 public:
  // Inlined, as MutexLock is: the object has nothing in it and shall need no address.
  [[gnu::always_inline]] CallBudget() { open(); }
  CallBudget(const CallBudget&) = delete;
  CallBudget& operator=(const CallBudget&) = delete;
  [[gnu::always_inline]] ~CallBudget() { close(); }

  // Bounds the waits of a step that must not use up what more important steps may need.
  class Share {
   public:
    explicit Share(int most_ms);
    Share(const Share&) = delete;
    Share& operator=(const Share&) = delete;
    ~Share();
  };

  // Waits a moment for a lock of another process; the attempt counts from 0.
  // False when the budget, or the share of it, is spent.
  static bool wait(int attempt);

  // Something that was asked for cannot be looked at for another reason than a lock.
  static void give_up();
  // True when a wait has been refused since the outermost call began, or give_up() was called: what
  // was not found may be there.
  static bool gave_up();

 private:
  static void open();
  static void close();
};

}  // namespace vexa

#endif
