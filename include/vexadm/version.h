/* SPDX-License-Identifier: MIT */
/**
 * @file version.h
 * The version of the headers that a program is compiled with.
 *
 * Semantic versioning: until 1.0.0 a new minor version may ask for changes in a
 * program's source, a patch version never does. What is built keeps running: the
 * number in the file name of the library (libvexadm.so.0) counts breaks of the binary
 * interface, and stays 0.
 */
#ifndef VEXADM_VERSION_H
#define VEXADM_VERSION_H

#define VEXADM_VERSION_MAJOR 0 /**< first part of the version */
#define VEXADM_VERSION_MINOR 1 /**< second part of the version */
#define VEXADM_VERSION_PATCH 0 /**< third part of the version */

/** The same as text. */
#define VEXADM_VERSION "0.1.0"

/** A version as one number that grows with it; parts up to 255. */
#define VEXADM_MAKE_VERSION(major, minor, patch) ((major)*0x10000 + (minor)*0x100 + (patch))

/** The version as one number: #if VEXADM_VERSION_NUMBER >= VEXADM_MAKE_VERSION(0, 2, 0) */
#define VEXADM_VERSION_NUMBER \
  VEXADM_MAKE_VERSION(VEXADM_VERSION_MAJOR, VEXADM_VERSION_MINOR, VEXADM_VERSION_PATCH)

#endif
