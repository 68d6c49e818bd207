// SPDX-License-Identifier: MIT
// Growing text and lists. Memory that runs out ends the program: it has nothing to undo.
#ifndef VEXADM_CLI_TEXT_H
#define VEXADM_CLI_TEXT_H

#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <string_view>
#include <utility>

namespace cli {

// Ends the program with a message, exit 1.
[[noreturn]] void out_of_memory();

// Memory of count times size bytes, never null.
void* checked_alloc(std::size_t count, std::size_t size);

// What string_view's substr() gives, for a place within the text: that one can throw, and so needs the
// C++ run-time library.
inline std::string_view part(std::string_view text, std::size_t at,
                             std::size_t count = std::string_view::npos) {
  text.remove_prefix(at < text.size() ? at : text.size());
  return {text.data(), count < text.size() ? count : text.size()};
}

// Text or bytes. Always terminated, so that c_str() of a text is a C string.
class Text {
 public:
  Text() = default;
  explicit Text(std::string_view text) { add(text); }
  Text(Text&& other) noexcept
      : data_(std::exchange(other.data_, nullptr)),
        size_(std::exchange(other.size_, 0)),
        room_(std::exchange(other.room_, 0)) {}
  Text& operator=(Text&& other) noexcept {
    if (this != &other) {
      std::free(data_);
      data_ = std::exchange(other.data_, nullptr);
      size_ = std::exchange(other.size_, 0);
      room_ = std::exchange(other.room_, 0);
    }
    return *this;
  }
  Text(const Text&) = delete;
  Text& operator=(const Text&) = delete;
  ~Text() { std::free(data_); }

  Text& add(std::string_view text);
  Text& add(char character) { return add(std::string_view(&character, 1)); }
  Text& addf(const char* format, ...) __attribute__((format(printf, 2, 3)));
  Text& vaddf(const char* format, std::va_list arguments) __attribute__((format(printf, 2, 0)));
  // Makes the text longer by count bytes and gives where they begin.
  char* grow(std::size_t count);
  void shorten(std::size_t size);

  const char* c_str() const { return data_ != nullptr ? data_ : ""; }
  char* data() { return data_; }
  std::string_view view() const { return {c_str(), size_}; }
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

 private:
  char* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t room_ = 0;  // without the terminator
};

Text textf(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The unit's local time now: "2026-11-02 08:15:00", and as names of files have it: "2026-11-02_08_15_00".
Text local_time();
Text local_time_in_names();

// Items one after the other, moved when the list grows.
template <typename T>
class List {
 public:
  List() = default;
  List(List&& other) noexcept
      : items_(std::exchange(other.items_, nullptr)),
        size_(std::exchange(other.size_, 0)),
        room_(std::exchange(other.room_, 0)) {}
  List& operator=(List&& other) noexcept {
    std::swap(items_, other.items_);
    std::swap(size_, other.size_);
    std::swap(room_, other.room_);
    return *this;
  }
  List(const List&) = delete;
  List& operator=(const List&) = delete;
  ~List() {
    for (T& item : *this) item.~T();
    std::free(items_);
  }

  T& push(T item) {
    if (size_ == room_) make_room();
    return *new (items_ + size_++) T(std::move(item));
  }
  T* begin() { return items_; }
  T* end() { return items_ + size_; }
  const T* begin() const { return items_; }
  const T* end() const { return items_ + size_; }
  T& operator[](std::size_t index) { return items_[index]; }
  const T& operator[](std::size_t index) const { return items_[index]; }
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

 private:
  void make_room() {
    const std::size_t room = room_ == 0 ? 8 : room_ * 2;
    T* items = static_cast<T*>(checked_alloc(room, sizeof(T)));
    for (std::size_t i = 0; i < size_; ++i) {
      new (items + i) T(std::move(items_[i]));
      items_[i].~T();
    }
    std::free(items_);
    items_ = items;
    room_ = room;
  }

  T* items_ = nullptr;
  std::size_t size_ = 0;
  std::size_t room_ = 0;
};

}  // namespace cli

#endif
