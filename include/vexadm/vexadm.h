/* SPDX-License-Identifier: MIT */
/**
 * @file vexadm.h
 * The whole public interface of libvexadm.
 *
 * Each family has a header of its own; a program that uses one family only may
 * include that header alone.
 */
#ifndef VEXADM_VEXADM_H
#define VEXADM_VEXADM_H

#include "address.h"
#include "at_command.h"
#include "clock.h"
#include "command_data.h"
#include "data_manager.h"
#include "device.h"
#include "export.h"
#include "gsm_text.h"
#include "identity.h"
#include "list.h"
#include "log.h"
#include "netlink.h"
#include "param_db.h"
#include "process.h"
#include "queue.h"
#include "semaphore.h"
#include "storage.h"
#include "strings.h"
#include "symtab.h"
#include "types.h"
#include "unicode.h"
#include "version.h"
#include "watch_log.h"

#endif
