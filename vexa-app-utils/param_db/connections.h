// SPDX-License-Identifier: MIT
// The connections of the parameter database, kept between calls.
#ifndef VEXADM_PARAM_DB_CONNECTIONS_H
#define VEXADM_PARAM_DB_CONNECTIONS_H

#include <pthread.h>
#include <sqlite3.h>

#include <cstdint>

namespace vexa::param_db {

inline constexpr const char* kUserPath = "/data/vexa-resource/sqlite3/user_info.db";
inline constexpr const char* kFactoryPath = "/data/vexa-resource/sqlite3/factory_info.db";

// Held by every public operation that does not run the host's own SQL.
extern pthread_mutex_t operations;

// The connection to a database, opened where it is not, with the other one closed. Null when it
// cannot be had, which is logged.
sqlite3* open(uint32_t which);

// SQLite's code; 0 when the user connection is not open.
int close_user();

// Asks for a copy of the factory database over the user database, as a command that the shell
// runner refuses. What the runner answers.
int32_t copy_factory_to_user();

}  // namespace vexa::param_db

#endif
