// SPDX-License-Identifier: MIT
// In which order the storage has served the calls of this process.
#ifndef VEXADM_OS_TURN_H
#define VEXADM_OS_TURN_H

#include <cstdint>

namespace vexa {

// A place in that order, for those who keep copies: whoever has a later turn holds what the storage
// holds. A backend may have no turns to tell.
class Turn {
 public:
  Turn() = default;

  // The backend's side, while it holds the lock under which it serves one call after the other.
  static void take();

  // The caller's side: around one call of the backend, by the same thread.
  static void forget();
  static Turn taken();

  // False also where either is not known.
  bool is_before(Turn other) const {
    return number_ != 0 && other.number_ != 0 && static_cast<int32_t>(number_ - other.number_) < 0;
  }
  explicit operator bool() const { return number_ != 0; }

 private:
  explicit Turn(uint32_t number) : number_(number) {}

  uint32_t number_ = 0;  // 0: not known
};

}  // namespace vexa

#endif
