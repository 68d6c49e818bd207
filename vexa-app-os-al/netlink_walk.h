// SPDX-License-Identifier: MIT
// The messages of a datagram and the attributes of a message. Both walks follow the lengths that
// stand in the bytes themselves and end where one leads out of them.
#ifndef VEXADM_OS_NETLINK_WALK_H
#define VEXADM_OS_NETLINK_WALK_H

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vexa::netlink {

// Header says nlmsghdr or rtattr: how long is the one at hand, its header included?
inline int64_t length_of(const nlmsghdr& message) { return message.nlmsg_len; }
inline int64_t length_of(const rtattr& attribute) { return attribute.rta_len; }

template <typename Header>
class Walk {
 public:
  Walk(Header* first, int64_t size) : at_(first), left_(size) {}

  // False at the end, and at a header that is cut or too long for what is left.
  explicit operator bool() const {
    return at_ && left_ >= kHeader && length_of(*at_) >= kHeader && length_of(*at_) <= left_;
  }
  Header* get() const { return at_; }
  Header* operator->() const { return at_; }
  void advance() {
    const int64_t step = (length_of(*at_) + 3) & ~int64_t{3};
    left_ -= step;
    if (left_ > 0) at_ = behind(at_, static_cast<std::size_t>(step));
  }

 private:
  static constexpr int64_t kHeader = sizeof(Header);
  static Header* behind(const void* header, std::size_t step) {
    const void* const next = static_cast<const char*>(header) + step;
    return static_cast<Header*>(const_cast<void*>(next));
  }

  Header* at_;
  int64_t left_;
};

using Messages = Walk<const nlmsghdr>;
using Attributes = Walk<rtattr>;

// The header of the message's family, which the caller has found to be there.
template <typename Family>
const Family& family_header(const nlmsghdr& message) {
  const void* const behind = &message + 1;
  return *static_cast<const Family*>(behind);
}

// The attributes of a message, behind its own header and that of its family.
inline Attributes attributes_of(const nlmsghdr& message, std::size_t headers) {
  const void* const first = reinterpret_cast<const char*>(&message) + headers;
  return Attributes(static_cast<rtattr*>(const_cast<void*>(first)),
                    int64_t{message.nlmsg_len} - static_cast<int64_t>(headers));
}

// False for no attribute and for one too short to hold the value: what lies behind it is not its own.
template <typename Value>
bool read_value(const rtattr* attribute, Value& value) {
  if (!attribute || attribute->rta_len < sizeof(rtattr) + sizeof value) return false;
  std::memcpy(&value, attribute + 1, sizeof value);
  return true;
}

}  // namespace vexa::netlink

#endif
