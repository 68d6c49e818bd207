// SPDX-License-Identifier: MIT
// Streams read to their end, also in a host whose signal handlers interrupt the wait for them.
#ifndef VEXADM_OS_STREAM_H
#define VEXADM_OS_STREAM_H

#include <cstddef>
#include <cstdio>
#include <span>

namespace vexa {

// One character, or EOF at the end. An interrupted wait is no end: the output of a command would
// be cut without anyone noticing.
int read_character(std::FILE* stream);

// Fills the buffer as far as the stream goes. Bytes read.
std::size_t read_bytes(std::FILE* stream, std::span<char> buffer);

// One line with its line feed, or as much of it as fits with a terminator. False when nothing came
// before the end, or when the buffer has no room for a character.
bool read_line(std::FILE* stream, std::span<char> buffer);

}  // namespace vexa

#endif
