// SPDX-License-Identifier: MIT
#include "base/text.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace cli {

void out_of_memory() {
  static constexpr char kMessage[] = "vexadm: out of memory\n";
  // What standard output holds so far is not the answer: it is left behind.
  if (write(STDERR_FILENO, kMessage, sizeof kMessage - 1) < 0) _exit(1);
  _exit(1);
}

void* checked_alloc(std::size_t count, std::size_t size) {
  if (count > SIZE_MAX / 2 / size) out_of_memory();
  void* memory = std::malloc(count * size);
  if (memory == nullptr) out_of_memory();
  return memory;
}

char* Text::grow(std::size_t count) {
  if (count > SIZE_MAX / 4 - size_) out_of_memory();
  if (size_ + count > room_) {
    const std::size_t room = (size_ + count) * 2;
    char* data = static_cast<char*>(std::realloc(data_, room + 1));
    if (data == nullptr) out_of_memory();
    data_ = data;
    room_ = room;
  }
  char* place = data_ == nullptr ? nullptr : data_ + size_;
  size_ += count;
  if (data_ != nullptr) data_[size_] = '\0';
  return place;
}

void Text::shorten(std::size_t size) {
  if (size >= size_) return;
  size_ = size;
  data_[size_] = '\0';
}

Text& Text::add(std::string_view text) {
  if (!text.empty()) std::memcpy(grow(text.size()), text.data(), text.size());
  return *this;
}

Text& Text::vaddf(const char* format, std::va_list arguments) {
  std::va_list again;
  va_copy(again, arguments);
  const int size = std::vsnprintf(nullptr, 0, format, arguments);
  if (size < 0) out_of_memory();
  const auto count = static_cast<std::size_t>(size);
  if (char* place = grow(count)) std::vsnprintf(place, count + 1, format, again);
  va_end(again);
  return *this;
}

Text& Text::addf(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  vaddf(format, arguments);
  va_end(arguments);
  return *this;
}

Text textf(const char* format, ...) {
  Text text;
  std::va_list arguments;
  va_start(arguments, format);
  text.vaddf(format, arguments);
  va_end(arguments);
  return text;
}

Text local_time() {
  const time_t now = time(nullptr);
  tm local = {};
  localtime_r(&now, &local);
  char text[32] = {};
  strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  return Text(text);
}

Text local_time_in_names() {
  Text text = local_time();
  std::replace(text.data(), text.data() + text.size(), ' ', '_');
  std::replace(text.data(), text.data() + text.size(), ':', '_');
  return text;
}

}  // namespace cli
