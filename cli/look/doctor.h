// SPDX-License-Identifier: MIT
// What the parts of a diagnosis share: the files, and the findings that they add.
#ifndef VEXADM_CLI_DOCTOR_H
#define VEXADM_CLI_DOCTOR_H

#include "look/diagnosis.h"

namespace cli::look {

constexpr char kRepair[] = "stop the router's programs, then: vexadm repair";

// "wifi ssid"
Text name_of(const Item& item);
// "wifi ssid, wifi channel and 3 more"
Text names_of(const List<const Item*>& items);

class Doctor {
 protected:
  Doctor(const Places& places, Diagnosis& out) : places_(places), out_(out) {}

  Finding& fault(Text what);
  Finding& remark(Text what);

  static bool is_empty(const ItemFile& file) {
    return file.report.health == Health::kMissing || (file.healthy() && !file.has_rows());
  }
  // Files that somebody else has to make readable first. False for all others.
  bool unreadable(const char* name, const Text& path, const FileReport& report);

  const Places& places_;
  Diagnosis& out_;
};

// In the order in which they are told.
void look_at_files(const Places& places, Diagnosis& out);
void look_at_items(const Places& places, Diagnosis& out);
void look_at_records(const Places& places, Diagnosis& out);

}  // namespace cli::look

#endif
