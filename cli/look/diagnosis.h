// SPDX-License-Identifier: MIT
// What is wrong with a store, what the library will do about it, and what a person can.
#ifndef VEXADM_CLI_DIAGNOSIS_H
#define VEXADM_CLI_DIAGNOSIS_H

#include "base/text.h"
#include "look/database.h"
#include "look/items.h"
#include "look/journal.h"
#include "look/places.h"

namespace cli::look {

struct Finding {
  bool fault = false;        // else a remark: worth knowing, nothing is lost
  bool write_loses = false;  // the next write, or the start before it, loses what is still there
  Text what;
  Text next_start;  // of a program that uses the library; empty: nothing
  Text person;      // empty: nothing to do
};

struct ItemFile {
  FileReport report;
  List<Item> items;
  bool whole = false;  // every row could be read
  bool has_rows() const { return !items.empty(); }
  bool healthy() const { return report.health == Health::kHealthy; }
};

struct Diagnosis {
  ItemFile primary;
  ItemFile backup;
  ItemFile defaults;
  ItemFile factory;
  FileReport journal;
  JournalRow last_write;
  List<Finding> findings;
  bool cut_write_told = false;  // which item a cut write left different is among them

  // The first finding for which nobody should write before a repair; null when there is none.
  const Finding* against_writing() const {
    for (const Finding& finding : findings) {
      if (finding.write_loses) return &finding;
    }
    return nullptr;
  }

  bool faulty() const {
    for (const Finding& finding : findings) {
      if (finding.fault) return true;
    }
    return false;
  }
};

Diagnosis diagnose(const Places& places);

// One word or two for a file's health.
const char* health_name(Health health);

}  // namespace cli::look

#endif
