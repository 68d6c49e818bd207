// SPDX-License-Identifier: MIT
// check: what is wrong with a store, in plain words.
#include "base/value.h"
#include "commands/rows.h"
#include "look/diagnosis.h"

namespace cli {
namespace {

using look::Diagnosis;
using look::FileReport;
using look::Finding;
using look::Health;
using look::ItemFile;

Colour colour_of(Health health) {
  if (health == Health::kHealthy) return Colour::kGood;
  return health == Health::kMissing ? Colour::kPlain : Colour::kBad;
}

Text items_of(const ItemFile& file, const char* what) {
  if (!file.report.schema_read) return Text();
  std::size_t count = 0;
  for (const look::Item& item : file.items) count += look::is_version_record(item) ? 0U : 1U;
  return textf("%zu %s", count, count == 1 ? what : textf("%ss", what).c_str());
}

Text journal_of(const Diagnosis& diagnosis) {
  const look::JournalRow& row = diagnosis.last_write;
  if (!row.found) return Text(diagnosis.journal.health == Health::kHealthy ? "no write on record" : "");
  Text text = textf("%s, ", look::state_name(row.state));
  add_name(text, row.table.view());
  text.add(' ');
  add_name(text, row.key.view());
  return text;
}

struct Line {
  const char* name;
  const Text& path;
  const FileReport& report;
  Text about;
};

void wrap(Text& out, std::string_view first, std::string_view rest, const Text& raw) {
  constexpr std::size_t kWidth = 98;
  out.add(first);
  std::size_t column = rest.size();
  // Names come from the store, and SQLite's words hold some too.
  const Text text = printable(raw.view());
  std::string_view left = text.view();
  bool start = true;
  while (!left.empty()) {
    const std::string_view word = part(left, 0, left.find(' '));
    if (!start && column + 1 + word.size() > kWidth) {
      out.add('\n').add(rest);
      column = rest.size();
    } else if (!start) {
      out.add(' ');
      ++column;
    }
    out.add(word);
    column += word.size();
    start = false;
    left.remove_prefix(word.size() == left.size() ? word.size() : word.size() + 1);
  }
  out.add('\n');
}

void print_findings(const Diagnosis& diagnosis) {
  Text out;
  std::size_t faults = 0;
  std::size_t remarks = 0;
  for (const Finding& finding : diagnosis.findings) {
    out.add('\n');
    add_coloured(out, finding.fault ? Colour::kBad : Colour::kWarning,
                 finding.fault ? "FAULT   " : "remark  ");
    wrap(out, "", "        ", finding.what);
    if (!finding.next_start.empty()) {
      wrap(out, "        next start: ", "                    ", finding.next_start);
    }
    if (!finding.person.empty()) wrap(out, "        you:        ", "                    ", finding.person);
    (finding.fault ? faults : remarks) += 1;
  }
  out.add('\n');
  if (faults == 0) {
    add_coloured(out, Colour::kGood, "no fault");
  } else {
    add_coloured(out, Colour::kBad, textf("%zu %s", faults, faults == 1 ? "fault" : "faults").view());
  }
  if (remarks > 0) out.addf(", %zu %s", remarks, remarks == 1 ? "remark" : "remarks");
  out.add('\n');
  print(out);
}

void print_report(const Diagnosis& diagnosis, const List<Line>& lines) {
  Table table(4);
  for (const Line& line : lines) {
    table.cell(line.name);
    table.cell(look::health_name(line.report.health), colour_of(line.report.health));
    table.cell(line.path.view());
    table.cell(line.about.view());
  }
  table.print();
  print_findings(diagnosis);
}

void print_json(const Diagnosis& diagnosis, const List<Line>& lines) {
  Json json;
  json.object().boolean("healthy", !diagnosis.faulty()).key("files").object();
  for (const Line& line : lines) {
    json.key(line.name).object().text("file", line.path.view());
    json.text("health", look::health_name(line.report.health)).number("size", line.report.size);
    json.boolean("open_transaction", line.report.hot_journal).key("problems").array();
    for (const Text& problem : line.report.problems) json.text(problem.view());
    if (line.report.problems.empty() && !line.report.why.empty()) json.text(line.report.why.view());
    json.end().end();
  }
  json.end().key("findings").array();
  for (const Finding& finding : diagnosis.findings) {
    json.object().boolean("fault", finding.fault).text("what", finding.what.view());
    json.text("next_start", finding.next_start.view()).text("person", finding.person.view()).end();
  }
  json.end().end();
}

int run_check(Arguments& arguments) {
  const look::Places places = arguments.places();
  const Diagnosis diagnosis = look::diagnose(places);
  List<Line> lines;
  lines.push({"primary", places.primary, diagnosis.primary.report, items_of(diagnosis.primary, "item")});
  lines.push({"backup", places.backup, diagnosis.backup.report, items_of(diagnosis.backup, "item")});
  lines.push({"journal", places.journal, diagnosis.journal, journal_of(diagnosis)});
  lines.push(
      {"defaults", places.defaults, diagnosis.defaults.report, items_of(diagnosis.defaults, "default")});
  lines.push({"factory", places.factory, diagnosis.factory.report, items_of(diagnosis.factory, "item")});
  if (arguments.json) {
    print_json(diagnosis, lines);
  } else if (!arguments.quiet) {
    print_report(diagnosis, lines);
  }
  return diagnosis.faulty() ? kFailed : kDone;
}

}  // namespace

extern const Command kCheck = {
    "check",
    "",
    "What is wrong with the store, and what can be done",
    "Looks at primary, backup, journal, stored defaults and factory copy: SQLite's quick check, every\n"
    "checksum, what primary and backup hold, versions, what lies beside them. Changes nothing. Of each\n"
    "finding it says what a program's next start will make of it, and what a person can do.\n"
    "\n"
    "Exit 1 when there is a fault. With --quiet the exit code is all.",
    "  $ vexadm check\n"
    "  primary   corrupt    /data/config.db\n"
    "  backup    healthy    /data/configbak.db         3 items\n"
    "  journal   healthy    /data/state.db             WS_BACKUP_DONE, wifi ssid\n"
    "  defaults  not there  /data/DefItems.db\n"
    "  factory   not there  /vexanvbak/data/config.db\n"
    "  \n"
    "  FAULT   The primary is corrupt: database disk image is malformed.\n"
    "          next start: copies the backup over it\n"
    "          you:        stop the router's programs, then: vexadm repair\n"
    "  \n"
    "  1 fault",
    {},
    0,
    0,
    true,
    run_check,
};

}  // namespace cli
