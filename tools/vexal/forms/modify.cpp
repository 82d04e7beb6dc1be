// vexal modify: change attributes of a file.
#include "base/commands.h"
#include "base/session.h"
#include "changes.h"
#include "files/files.h"
#include "images/write_options.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--set", "PATH=VALUE", "set an attribute, adding it if it is not there; values are split at \\"},
    {"--add", "PATH=VALUE", "add one value behind those that are there"},
    {"--clear", "PATH", "leave the attribute without a value"},
    {"--delete", "PATH", "take the attribute out"},
    {"--new-uid", "PATH", "give a UID attribute a new UID"},
    VEXAL_WRITE_OPTIONS,
};

int run(const Args& args) {
  std::vector<Change> changes;
  WriteOptions options;
  if (!read_changes(args, changes) || !options.read(args)) return kUsage;
  if (args.paths.empty() || args.paths.size() > 2) {
    complain("modify needs a file to read and may have one to write; --help tells more");
    return kUsage;
  }
  const std::string& in = args.paths[0];
  const std::string& out = args.paths.back();
  CurrentFile current(in);
  const Turn turn(in, out);
  DicomFile file;
  const VX_STATUS status = file.open(in, {.link_records = true});
  if (status != VX_NORMAL_COMPLETION) {
    report(in, file.problem());
    return kUsage;
  }
  if (const std::string fault = file.write_fault(file.syntax()); !fault.empty()) {
    report(in, fault);
    return kUsage;
  }
  for (const Change& change : changes) {
    if (!apply_change(file.id(), file.path(), change)) return kUsage;
  }
  if (!file.has_meta() && file.set_syntax(file.syntax()) != VX_NORMAL_COMPLETION) {
    report(in, "can not be written as a file: its transfer syntax has no UID");
    return kUsage;
  }
  bring_meta_in_line(file.id(), changes, options);
  const Written written = write_file(file, turn.path(), options);
  if (written.problem.empty()) return values_were_lost() || written.corrected ? kFindings : kSuccess;
  report(out, written.problem);
  return kUsage;
}

}  // namespace

const Command kModify = {
    "modify",
    "[OPTION...] IN [OUT]",
    "change attributes of a file",
    "Without OUT the file itself is replaced, once the new one is complete. A PATH is a keyword or\n"
    "tag, or a way through sequences: ReferencedSeriesSequence[0].SeriesInstanceUID; [*] stands for\n"
    "every item, [+] for a new one. {CREATOR}gggg,ee names a private attribute, {CREATOR}gggg,ee:VR\n"
    "adds one that no dictionary has. Changes are made in the order given; a value that breaks the\n"
    "rules of its VR is refused and nothing is written. Numbers are decimal, those of AT tags.",
    kOptions,
    run};

}  // namespace vexal
