// vexal dump: what is in a file, for people or as JSON.

#include "base/commands.h"
#include "base/json.h"
#include "base/names.h"
#include "base/parallel.h"
#include "base/printable.h"
#include "base/session.h"
#include "dumper.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--tag", "PATH", "show this attribute only, also inside sequences (may be repeated)"},
    {"--json", nullptr, "one JSON object a file, one line each"},
    {"--width", "N", "show at most N characters of a value, 0 for all (default 64)"},
    {"--threads", "N", "files read at once (default: the processors)"},
};

// The attributes that --tag names; a file without them is no fault.
void dump_selection(Dumper& dumper, const DicomFile& file, const DumpSettings& settings) {
  bool first = true;
  for (const auto& path : settings.paths) {
    std::vector<Place> places;
    resolve_path(file.id(), path, false, places);
    for (const Place& place : places) {
      VX_VR vr = 0;
      int32_t count = 0;
      if (VX_Get_Attribute_Info(place.object, place.tag, &vr, &count) != VX_NORMAL_COMPLETION) continue;
      dumper.single(file.id(), place.object, place.tag, vr, count, first);
      first = false;
    }
  }
}

FileResult dump_file(const std::string& path, const DumpSettings& settings, bool many) {
  CurrentFile current(path);
  FileResult result;
  DicomFile file;
  const VX_STATUS status = file.open(path, {});
  if (status != VX_NORMAL_COMPLETION) {
    report(path, file.problem());
    result.exit = kUsage;
    if (!file.readable()) return result;
  }
  std::string& out = result.output;
  if (settings.json) {
    out += "{\"file\":";
    append_json(out, path);
    char uid[65];
    if (VX_Get_Transfer_Syntax_From_Enum(file.syntax(), uid, sizeof uid) == VX_NORMAL_COMPLETION) {
      out += ",\"transferSyntax\":";
      append_json(out, std::string_view(uid));
    }
    if (status != VX_NORMAL_COMPLETION) {
      out += ",\"problem\":";
      append_json(out, file.problem());
    }
    out += ",\"elements\":[";
  } else if (many) {
    out += "# " + shown(path) + "\n";
  }
  Dumper dumper(file, settings, out, !many);
  if (settings.paths.empty()) {
    dumper.object(file.id(), 0);
  } else {
    dump_selection(dumper, file, settings);
  }
  if (settings.json) out += "]}\n";
  return result;
}

int run(const Args& args) {
  DumpSettings settings;
  settings.json = args.has("--json");
  long width = 64;
  long threads = default_threads();
  if (!args.number("--width", 0, 1000000, width) || !args.number("--threads", 1, 256, threads)) return kUsage;
  settings.width = static_cast<std::size_t>(width);
  if (!read_paths(args, "--tag", settings.paths)) return kUsage;
  if (args.paths.empty()) {
    complain("dump needs a file or folder; --help tells more");
    return kUsage;
  }
  bool failed = false;
  const std::vector<std::string> files = expand_paths(args.paths, failed);
  const bool many = files.size() > 1;
  const int worst = for_each_file(files, static_cast<unsigned>(threads),
                                  [&](const std::string& path) { return dump_file(path, settings, many); });
  return failed ? static_cast<int>(kUsage) : worst;
}

}  // namespace

const Command kDump = {
    "dump",
    "[OPTION...] PATH...",
    "list the attributes of files and folders",
    "A line is: tag, VR, length in bytes, keyword (or the name in a private dictionary), value.\n"
    "A large value stays in the file; its place is shown. A file that breaks off is listed as far\n"
    "as it could be read, with exit status 2.",
    kOptions,
    run};

}  // namespace vexal
