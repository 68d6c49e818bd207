// SPDX-License-Identifier: MIT
// What this build of the router does not have.
#include "vexadm/device.h"

int32_t vexa_support_PRIMARY_INTERFACE() { return 0; }
int32_t vexa_support_SECONDARY_INTERFACE() { return 0; }
int32_t vexa_support_USB_DETECT() { return 0; }
