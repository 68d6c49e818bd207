// SPDX-License-Identifier: MIT
// repair: what the library would do to a damaged store, with a copy of everything first.
#include "commands/repair_files.h"
#include "commands/repair_keep.h"
#include "commands/repair_plan.h"
#include "commands/repair_steps.h"
#include "commands/rows.h"
#include "look/tree_path.h"
#include "store_writer.h"

namespace cli {
namespace {

using look::Diagnosis;
using look::Places;
using namespace repair;  // what a repair is made of

Places real_places(const Arguments& arguments) {
  Places places = arguments.places();
  for (Text* path : {&places.primary, &places.backup, &places.journal}) *path = real_path(*path);
  return places;
}

enum class Tense { kWould, kDid };

void tell_steps(const List<Step>& steps, const Places& named, Tense tense) {
  const bool would = tense == Tense::kWould;
  Text out;
  for (const Step& step : steps) {
    const char* file = path_of(named, step.file).c_str();
    const char* from = path_of(named, step.from).c_str();
    switch (step.action) {
      case Step::kDelete:
        out.addf("%s %s\n", would ? "would delete" : "deleted", file);
        break;
      case Step::kReplace:
        out.addf("%s %s by a copy of %s\n", would ? "would replace" : "replaced", file, from);
        break;
      case Step::kCopyItem:
        out.addf("%s the item of the last write from primary to backup\n", would ? "would copy" : "copied");
        break;
      case Step::kCopy:
        out.addf("%s %s over %s\n", would ? "would copy" : "copied", from, file);
        break;
    }
  }
  print(out);
}

// Done: no step is open, and no fault is left.
void print_json(const Text& kept_in, const List<Step>& steps, const Places& named, bool done) {
  static constexpr const char* kActions[] = {"delete", "replace", "copy_item", "copy"};
  Json json;
  json.object().key("kept_in");
  kept_in.empty() ? json.null() : json.text(kept_in.view());
  json.key("steps").array();
  for (const Step& step : steps) {
    json.object().text("action", kActions[step.action]).text("file", path_of(named, step.file).view());
    json.key("from");
    step.from == File::kNone ? json.null() : json.text(path_of(named, step.from).view());
    json.end();
  }
  json.end().boolean("done", done).end();
}

int without_a_step(const Arguments& arguments, const Places& named, bool faulty) {
  if (arguments.json) print_json(Text(), List<Step>(), named, !faulty);
  if (faulty) return fail("there are faults that no copy can mend; vexadm check tells what a person can do");
  if (!arguments.json) note(arguments, "nothing to repair");
  return kDone;
}

// Where the copies are, as the user names it: beside the primary, or the link in its place.
Text named_directory(const Arguments& arguments) {
  const std::string_view store = arguments.store != nullptr ? arguments.store : "/data/";
  if (arguments.root == nullptr) return Text(store);
  Text path(store.starts_with('/') ? "" : "/");
  path.add(store);
  return look::path_below(arguments.root, path.view());
}

int repair_store(const Arguments& arguments, const Places& named, const Text& directory) {
  const Places real = real_places(arguments);
  const Diagnosis diagnosis = look::diagnose(real);
  if (const int code = refuse_closed(diagnosis, named); code != kDone) return code;
  const List<Step> plan = plan_for(diagnosis);
  const Places entered = arguments.places();
  Keep keep(entered);
  if (const int code = keep.take(real); code != kDone) return code;
  Outcome outcome;
  const int code = carry_out(plan, real, outcome);
  Text kept_in;
  if (outcome.touched) {
    kept_in = textf("%s%s", directory.c_str(), keep.name().c_str());
  } else {
    keep.remove();
  }
  const bool healthy = code == kDone && !look::diagnose(real).faulty();
  if (arguments.json) {
    print_json(kept_in, outcome.done, named, healthy);
  } else if (outcome.touched) {
    print(textf("everything as it was is kept in %s\n", kept_in.c_str()));
    tell_steps(outcome.done, named, Tense::kDid);
  }
  if (code != kDone || healthy) return code;
  return fail("there are faults left; vexadm check tells what a person can do");
}

int run_repair(Arguments& arguments) {
  // As the user names them: with --root the tree is the root from enter_store() on.
  const Places named = arguments.places();
  {
    const Diagnosis diagnosis = look::diagnose(named);
    if (const int code = refuse_closed(diagnosis, named); code != kDone) return code;
    const List<Step> plan = plan_for(diagnosis);
    if (plan.empty()) return without_a_step(arguments, named, diagnosis.faulty());
    if (arguments.has("--dry-run")) {
      arguments.json ? print_json(Text(), plan, named, false) : tell_steps(plan, named, Tense::kWould);
      return kDone;
    }
  }
  const Text directory = named_directory(arguments);
  if (const int code = enter_store(arguments); code != kDone) return code;
  return repair_store(arguments, named, directory);
}

constexpr Option kRepairOptions[] = {{"--dry-run", nullptr, "say what would be done, and do nothing"}};

}  // namespace

extern const Command kRepair = {
    "repair",
    "",
    "Mends a store as the library would, after a copy of everything",
    "A primary that is corrupt, no database, missing or empty is made from the backup, or else from the\n"
    "factory copy; a backup that is damaged or stale from the primary; an item whose write was cut at\n"
    "its end is copied; a journal that is no database, or too corrupt to give its row, is deleted.\n"
    "Values are never guessed. A file that cannot be read stops it: that may hold all that is left.\n"
    "\n"
    "Before that, primary, backup and journal go byte for byte into a directory beside them whose name\n"
    "has date and time. Stop the router's programs first.",
    "  $ vexadm repair\n"
    "  everything as it was is kept in /data/vexadm-repair_2026-11-02_08_15_00\n"
    "  replaced /data/config.db by a copy of /data/configbak.db",
    kRepairOptions,
    0,
    0,
    true,
    run_repair,
};

}  // namespace cli
