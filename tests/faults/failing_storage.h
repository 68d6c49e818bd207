// SPDX-License-Identifier: MIT
// Small storages of the device's own: memory, or a real file system on a loop device.
#ifndef VEXADM_TESTS_FAULTS_FAILING_STORAGE_H
#define VEXADM_TESTS_FAULTS_FAILING_STORAGE_H

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace vexa_test {

inline std::string refused_by(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

// Why it cannot be had; empty when it is mounted.
inline std::string mount_memory(const char* place) {
  return mount("small", place, "tmpfs", 0, "size=640k") == 0 ? "" : refused_by("tmpfs");
}

// The loop device ends with the mount, also when the process is killed.
inline std::string mount_loop(const char* place) {
  const char* const make =
      "PATH=$PATH:/usr/sbin:/sbin; rm -f /tmp/image; truncate -s 2M /tmp/image && "
      "mkfs.ext4 -q -b 1024 -m 0 -O ^has_journal,^resize_inode -E lazy_itable_init=0 /tmp/image "
      ">/tmp/mkfs.log 2>&1";
  if (std::system(make) != 0) return "mkfs.ext4 failed or is not installed (e2fsprogs)";
  const int image = open("/tmp/image", O_RDWR | O_CLOEXEC);
  const int control = open("/dev/loop-control", O_RDWR | O_CLOEXEC);
  if (control < 0) return refused_by("/dev/loop-control");
  std::string reason = "no free loop device";
  // Others may take the device that was free a moment ago.
  for (int attempt = 0; attempt < 16 && !reason.empty(); ++attempt) {
    const std::string path = "/dev/loop" + std::to_string(ioctl(control, LOOP_CTL_GET_FREE));
    const int device = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (device < 0) {
      reason = refused_by(path.c_str());
      break;
    }
    loop_config config = {};
    config.fd = static_cast<std::uint32_t>(image);
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
    if (ioctl(device, LOOP_CONFIGURE, &config) != 0) {
      reason = refused_by("LOOP_CONFIGURE");
    } else {
      reason = mount(path.c_str(), place, "ext4", 0, nullptr) == 0 ? "" : refused_by("mount of ext4");
    }
    close(device);
  }
  close(control);
  close(image);
  return reason;
}

}  // namespace vexa_test

#endif
