// SPDX-License-Identifier: MIT
#include "faults/file_recorder_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>

namespace vexa_test::recorder {
namespace {

constexpr char kLogVariable[] = "VEXA_FILE_RECORDER_LOG";

int log_fd = -1;
unsigned left_to_live = 0;  // operations; 0: for good

void open_log(const char* log) {
  // Not a number that a program could expect for its own first file.
  const int fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, log, O_WRONLY | O_CREAT | O_APPEND, 0644));
  if (fd < 0) std::abort();
  log_fd = fcntl(fd, F_DUPFD_CLOEXEC, 500);
  syscall(SYS_close, fd);
  if (log_fd < 0) std::abort();
}

__attribute__((constructor)) void start_in_a_started_program() {
  const char* log = std::getenv(kLogVariable);
  if (log != nullptr) open_log(log);
}

std::size_t path_of(int fd, char* text, std::size_t size) {
  std::array<char, 32> link;
  std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", fd);
  const ssize_t length = readlink(link.data(), text, size);
  return length > 0 ? static_cast<std::size_t>(length) : 0;
}

}  // namespace

void start(const char* log) {
  setenv(kLogVariable, log, 1);
  open_log(log);
}

bool is_on() { return log_fd >= 0; }

void die_after(unsigned operations) { left_to_live = operations; }

std::uint64_t log_size() {
  struct stat status = {};
  fstat(log_fd, &status);
  return static_cast<std::uint64_t>(status.st_size);
}

// One call for the whole record: several processes append to one log. A record that is lost
// would let the test claim what it has not seen, so that ends the program.
void record(FileOp op, std::uint64_t file, std::uint64_t offset, std::string_view path,
            std::string_view other, std::string_view data) {
  FileRecord head = {op,
                     static_cast<std::uint32_t>(path.size()),
                     static_cast<std::uint32_t>(other.size()),
                     static_cast<std::uint32_t>(data.size()),
                     file,
                     offset};
  const auto part = [](std::string_view text) { return iovec{const_cast<char*>(text.data()), text.size()}; };
  const std::array<iovec, 4> parts = {iovec{&head, sizeof head}, part(path), part(other), part(data)};
  const std::size_t size = sizeof head + path.size() + other.size() + data.size();
  if (syscall(SYS_writev, log_fd, parts.data(), parts.size()) != static_cast<long>(size)) std::abort();
  if (left_to_live > 0 && --left_to_live == 0) kill(getpid(), SIGKILL);
}

void record_unmodelled(const char* call, std::string_view path) {
  const KeepErrno keep;
  if (is_on() && !recorded_place(path).empty()) record(FileOp::kUnmodelled, 0, 0, path, {}, call);
}

void record_unmodelled(const char* call, int fd) {
  const KeepErrno keep;
  if (is_on()) record_unmodelled(call, OpenedPath(fd).path());
}

FullPath::FullPath(int directory, const char* path) {
  if (!is_on()) return;
  const KeepErrno keep;
  if (path[0] != '/') {
    if (directory != AT_FDCWD) {
      size_ = path_of(directory, text_.data(), text_.size());
    } else if (getcwd(text_.data(), text_.size()) != nullptr) {
      size_ = std::strlen(text_.data());
    }
    if (size_ > 0 && size_ < text_.size() && text_[size_ - 1] != '/') text_[size_++] = '/';
  }
  const std::size_t length = std::strlen(path);
  if (size_ + length >= text_.size()) std::abort();
  std::memcpy(text_.data() + size_, path, length);
  size_ += length;
  while (size_ > 1 && text_[size_ - 1] == '/') --size_;
  // Two spellings of one name would be two names to the replay.
  if (is_recorded() && (this->path().find("//") != std::string_view::npos ||
                        this->path().find("/.") != this->path().find("/.vexadm-copy"))) {
    std::abort();
  }
}

OpenedPath::OpenedPath(int fd) {
  if (!is_on()) return;
  size_ = path_of(fd, text_.data(), text_.size());
  struct stat status = {};
  if (fstat(fd, &status) == 0) file_ = status.st_ino;
}

}  // namespace vexa_test::recorder
