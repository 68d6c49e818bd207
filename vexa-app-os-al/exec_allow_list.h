// SPDX-License-Identifier: MIT
// Which programs run without a shell.
#ifndef VEXADM_OS_EXEC_ALLOW_LIST_H
#define VEXADM_OS_EXEC_ALLOW_LIST_H

namespace vexa {

// The program that the first word of a command line stands for: one of the list, or the word itself
// where it names a program's directory. NULL when it may not run.
const char* allowed_program(const char* word);

}  // namespace vexa

#endif
