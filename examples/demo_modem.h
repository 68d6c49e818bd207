// SPDX-License-Identifier: MIT
// A modem for the time of a step: the simulator, started and stopped.
#ifndef VEXADM_EXAMPLES_DEMO_MODEM_H
#define VEXADM_EXAMPLES_DEMO_MODEM_H

#include <sys/types.h>

namespace demo {

class Modem {
 public:
  Modem();
  Modem(const Modem&) = delete;
  Modem& operator=(const Modem&) = delete;
  ~Modem();

  // True once it answers on its port.
  bool ready() const { return ready_; }

 private:
  pid_t pid_ = -1;
  bool ready_ = false;
};

}  // namespace demo

#endif
