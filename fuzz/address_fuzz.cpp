// SPDX-License-Identifier: MIT
// Addresses of any content: what the checks take, what conversions write and where they stop are
// those of a model that shares no code with them.
#include <arpa/inet.h>
#include <vexadm/address.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "fuzz_target.h"

using vexa_fuzz::check;

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_hex(char c) { return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

// ---- Checks ----

// Four numbers without leading zeros. The number they make, or -1.
std::int64_t ipv4_of(const std::string& text) {
  std::int64_t number = 0;
  std::size_t at = 0;
  for (int part = 0; part < 4; ++part) {
    if (part > 0 && (at >= text.size() || text[at++] != '.')) return -1;
    const std::size_t begin = at;
    int value = 0;
    while (at < text.size() && is_digit(text[at]) && at - begin < 4) value = value * 10 + (text[at++] - '0');
    if (at == begin || value > 255 || (text[begin] == '0' && at - begin > 1)) return -1;
    number = number * 256 + value;
  }
  return at == text.size() ? number : -1;
}

bool is_mask(std::int64_t number) {
  for (int length = 0; length <= 32; ++length) {
    if (number == ((std::int64_t{0xFFFFFFFF} << (32 - length)) & 0xFFFFFFFF)) return true;
  }
  return false;
}

bool is_mac(const std::string& text) {
  if (text.size() != 17) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (i % 3 == 2 ? c != ':' && c != '\\' && c != 's' : !is_hex(c)) return false;
  }
  return true;
}

std::uint32_t hex_number(const std::string& text) {
  std::uint32_t value = 0;
  const bool prefixed = text.starts_with("0x") || text.starts_with("0X");
  for (std::size_t at = prefixed ? 2 : 0; at < text.size(); ++at) {
    const char c = text[at];
    unsigned digit = 0;
    if (is_digit(c)) {
      digit = static_cast<unsigned>(c) - '0';
    } else if (c >= 'a' && c <= 'z') {
      digit = static_cast<unsigned>(c) - 87;
    } else if (c >= 'A' && c <= 'Z') {
      digit = static_cast<unsigned>(c) + 32 - 87;
    } else {
      break;
    }
    value = value * 16 + digit;
  }
  return value;
}

void check_text(const std::string& raw) {
  // In memory of exactly its size.
  const std::size_t size = std::strlen(raw.c_str()) + 1;
  const auto text = std::make_unique<char[]>(size);
  std::memcpy(text.get(), raw.c_str(), size);
  const std::string model = text.get();

  const std::int64_t number = ipv4_of(model);
  check(vexa_check_v4_ip(text.get()) == (number >= 0), "an IPv4 address is judged differently");
  check(is_valid_ip(text.get()) == (number >= 0), "the second check of IPv4 addresses differs");
  check(Is_valid_SubnetMask(text.get()) == (number >= 0 && is_mask(number)), "a mask is judged differently");
  in6_addr address = {};
  check(is_valid_ipv6(text.get()) == (inet_pton(AF_INET6, model.c_str(), &address) == 1),
        "an IPv6 address is judged differently");
  check(Is_valid_Mac(text.get()) == is_mac(model), "a MAC address is judged differently");
  check(htoi(text.get()) == hex_number(model), "a hexadecimal number is read differently");
}

// ---- Conversions ----

// A buffer of exactly the size, full of a mark.
class Buffer {
 public:
  explicit Buffer(std::uint32_t size) : size_(size), bytes_(std::make_unique<char[]>(size)) {
    std::memset(bytes_.get(), '#', size);
  }
  char* get() const { return bytes_.get(); }
  std::uint32_t size() const { return size_; }
  bool is(const std::string& text, char rest) const {
    return std::string(bytes_.get(), size_) == text + '\0' + std::string(size_ - text.size() - 1, rest);
  }
  bool is_untouched() const { return std::string(bytes_.get(), size_) == std::string(size_, '#'); }

 private:
  std::uint32_t size_;
  std::unique_ptr<char[]> bytes_;
};

std::string dotted(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes)
    text += (text.empty() ? "" : ".") + std::to_string(static_cast<unsigned char>(byte));
  return text;
}

void convert_ipv4(const std::string& bytes, std::uint32_t size) {
  const auto* const ip = reinterpret_cast<const std::uint8_t*>(bytes.data());
  const std::uint32_t number = std::uint32_t{ip[0]} << 24 | std::uint32_t{ip[1]} << 16 |
                               std::uint32_t{ip[2]} << 8 | std::uint32_t{ip[3]};
  const Buffer array(size);
  const Buffer word(size);
  const std::int32_t expected = size < 16 ? -1 : 0;
  check(ConvertIPv4ArrayToStr(ip, array.get(), size) == expected, "IPv4 bytes: another result");
  check(ConvertIPv4NumToStr(number, word.get(), size) == expected, "an IPv4 number: another result");
  check(size < 16 ? array.is_untouched() : array.is(dotted(bytes), '\0'), "IPv4 bytes: another text");
  check(size < 16 ? word.is_untouched() : word.is(dotted(bytes), '#'), "an IPv4 number: another text");
}

void convert_ipv6(const std::string& bytes, std::uint32_t size) {
  const auto* const ip = reinterpret_cast<const std::uint8_t*>(bytes.data());
  const Buffer out(size);
  check(ConvertIPv6NumToStr(ip, out.get(), size) == (size < 46 ? -1 : 0), "IPv6 bytes: another result");
  if (size < 46) {
    check(out.is_untouched(), "a refused buffer is written to");
    return;
  }
  const std::string text = out.get();
  std::string back(16, '\0');
  check(inet_pton(AF_INET6, text.c_str(), back.data()) == 1 && back == bytes, "IPv6 bytes: another address");
  check(text.size() < 46 && out.is(text, '\0'), "the buffer behind the text is not cleared");
}

void convert_hex(const std::string& bytes, std::uint32_t size) {
  const auto memory = std::make_unique<std::uint8_t[]>(bytes.size());
  std::memcpy(memory.get(), bytes.data(), bytes.size());
  std::string digits;
  for (const char byte : bytes) {
    char pair[3];
    std::snprintf(pair, sizeof pair, "%02X", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    digits += pair;
  }
  const Buffer out(size);
  const std::int32_t result =
      hex_BinaryToString(memory.get(), static_cast<std::uint32_t>(bytes.size()), out.get(), size);
  if (digits.size() + 1 > size) {
    check(result == -1 && out.is_untouched(), "digits that do not fit are written");
  } else {
    check(result == static_cast<std::int32_t>(digits.size()) && out.is(digits, '#'), "other digits");
  }
}

}  // namespace

void vexa_fuzz::set_up() {}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const vexa_fuzz::Watch watch;
  vexa_fuzz::Source source(data, size);
  const unsigned kind = source.byte();
  const std::uint32_t capacity = source.below(64);
  switch (kind % 4) {
    case 0:
      check_text(source.bytes(200));
      break;
    case 1: {
      std::string bytes = source.bytes(4);
      bytes.resize(4);
      convert_ipv4(bytes, capacity);
      break;
    }
    case 2: {
      std::string bytes = source.bytes(16);
      bytes.resize(16);
      convert_ipv6(bytes, capacity);
      break;
    }
    default:
      convert_hex(source.bytes(40), capacity);
      break;
  }
  const unsigned nibble = source.word();
  check(DecToHex(nibble) == (nibble < 16 ? "0123456789ABCDEF"[nibble] : '\0'), "another digit");
  return 0;
}
