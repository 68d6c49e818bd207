// SPDX-License-Identifier: MIT
// Mutations that know where a SQLite file keeps what matters. Only libFuzzer calls this.
#include <array>
#include <cstring>
#include <random>

#include "fuzz_target.h"

namespace {

constexpr std::size_t kFileHeader = 100;
constexpr std::size_t kLeafHeader = 8;

// Numbers at which sizes, counts and types change their meaning.
constexpr std::array<unsigned char, 14> kTelling = {0, 1, 2, 5, 7, 8, 9, 10, 12, 13, 0x7f, 0x80, 0x81, 0xff};

class Mutation {
 public:
  Mutation(std::string& bytes, unsigned seed) : bytes_(bytes), random_(seed) {
    const std::size_t size = byte(16) << 8 | byte(17);
    page_size_ = size >= 512 ? size : 512;
  }

  void run() {
    switch (below(6)) {
      case 0:
        set(below(kFileHeader));
        break;
      case 1:
        set(page() + below(kLeafHeader));
        break;
      case 2:
        set(page() + kLeafHeader + below(16));
        break;  // where the cells begin
      case 3:
        set(cell() + below(16));
        break;  // sizes, row id and types of a row
      case 4:
        set(cell() + below(80));
        break;
      default:
        copy_page();
        break;
    }
  }

 private:
  std::size_t below(std::size_t limit) { return random_() % limit; }
  std::size_t byte(std::size_t at) const {
    return at < bytes_.size() ? static_cast<unsigned char>(bytes_[at]) : 0;
  }
  void set(std::size_t at) {
    if (at >= bytes_.size()) return;
    const bool telling = below(2) == 0;
    bytes_[at] = static_cast<char>(telling ? kTelling[below(kTelling.size())] : random_());
  }

  // The tree header of a page.
  std::size_t page() {
    const std::size_t at = below(bytes_.size() / page_size_ + 1) * page_size_;
    return at == 0 ? kFileHeader : at;
  }
  std::size_t cell() {
    const std::size_t header = page();
    const std::size_t cells = std::max<std::size_t>(byte(header + 3) << 8 | byte(header + 4), 1);
    const std::size_t pointer = header + kLeafHeader + 2 * below(cells);
    const std::size_t start = header == kFileHeader ? 0 : header;
    return start + (byte(pointer) << 8 | byte(pointer + 1));
  }
  void copy_page() {
    const std::size_t pages = bytes_.size() / page_size_;
    if (pages < 2) return;
    const std::string from = bytes_.substr(below(pages) * page_size_, page_size_);
    bytes_.replace(below(pages) * page_size_, page_size_, from);
  }

  std::string& bytes_;
  std::mt19937 random_;
  std::size_t page_size_;
};

}  // namespace

std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t capacity,
                                    unsigned seed) {
  if (seed % 4 == 0 || size < 512) return LLVMFuzzerMutate(data, size, capacity);
  std::string bytes(reinterpret_cast<const char*>(data), size);
  Mutation(bytes, seed / 4).run();
  const std::size_t count = std::min(bytes.size(), capacity);
  std::memcpy(data, bytes.data(), count);
  return count;
}
