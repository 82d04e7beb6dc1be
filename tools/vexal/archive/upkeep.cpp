// vexal archive: what an archive holds, checked, moved, exported, deleted.
#include "upkeep.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "base/commands.h"
#include "base/json.h"
#include "base/names.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/values.h"
#include "identifier.h"
#include "images/bounded_file.h"

namespace vexal {

bool read_study_keys(const Args& args, bool may_be_none, std::vector<CatalogKey>& keys) {
  Message identifier;
  if (VX_Open_Empty_Message(&identifier.id) != VX_NORMAL_COMPLETION) return false;
  set_all_text(identifier.id, tags::kQueryRetrieveLevel, "STUDY");
  for (const std::string& text : args.all("-k")) {
    const std::size_t equals = std::min(text.find('='), text.size());
    uint32_t tag = 0;
    if (!parse_tag(text.substr(0, equals), tag) || !Catalog::keeps(tag)) {
      complain("-k %s: the index does not keep that", text.c_str());
      return false;
    }
    set_all_text(identifier.id, tag, text.substr(std::min(equals + 1, text.size())));
  }
  Level level = Level::Study;
  if (!read_identifier(identifier.id, false, level, keys)) {
    complain("the keys are too many or too long");
    return false;
  }
  // What would be all is not asked for by leaving something out.
  if (may_be_none || std::any_of(keys.begin(), keys.end(), narrows)) return true;
  complain("name the studies: -k PatientID=..., -k StudyInstanceUID=... and the like");
  return false;
}

std::string each_study(Holdings& holdings, const std::vector<CatalogKey>& keys,
                       const std::function<std::string(FoundStudy&)>& take) {
  std::vector<CatalogKey> asked = keys;
  for (const uint32_t tag : {tags::kPatientID, tags::kStudyDate, tags::kStudyInstanceUID})
    asked.push_back({tag, VX_VR_UI, ""});
  std::string failure;
  const std::string error = holdings.find(
      Level::Study, asked, nullptr, [&](const std::vector<std::string>& values, const std::string&) {
        FoundStudy study{values[keys.size()], values[keys.size() + 1], values[keys.size() + 2], {}, 0};
        failure = holdings.objects({{tags::kStudyInstanceUID, VX_VR_UI, study.uid}}, nullptr, study.objects);
        for (const ObjectFile& object : study.objects) study.bytes += object.size;
        if (failure.empty()) failure = take(study);
        return failure.empty();
      });
  return error.empty() ? failure : error;
}

std::string each_row(Catalog& catalog, const std::function<std::string(const ObjectFile&)>& take) {
  constexpr std::size_t kPage = 1000;
  std::vector<ObjectFile> page;
  std::string last;
  do {
    std::string error = catalog.rows_behind(last, kPage, page);
    for (std::size_t i = 0; i < page.size() && error.empty(); ++i) error = take(page[i]);
    if (!error.empty()) return error;
    if (!page.empty()) last = page.back().instance;
  } while (page.size() == kPage);
  return "";
}

std::string copy_file(const std::string& from, FileSink& sink) {
  constexpr std::size_t kBlock = 1U << 20;
  FileSource source;
  std::string error = source.open(from);
  std::string block(kBlock, '\0');
  for (uint64_t at = 0; error.empty() && at < source.size();) {
    const int64_t got = source.read_at(at, block.data(), block.size());
    if (got <= 0) return "can not be read to its end";
    if (!sink.write(block.data(), static_cast<std::size_t>(got))) return sink.problem();
    at += static_cast<uint64_t>(got);
  }
  return error;
}

void print_cells(const Upkeep& upkeep, const Cells& cells) {
  std::string line;
  for (const auto& [name, text] : cells) {
    if (upkeep.json) {
      line += line.empty() ? "{\"" : ",\"";
      (line += name) += "\":";
      append_json(line, text);
    } else if (!text.empty()) {
      if (!line.empty()) line += "  ";
      line += text;
    }
  }
  if (upkeep.json) line += '}';
  say("%s", line.c_str());
}

namespace {

constexpr Option kOptions[] = {
    {"--dir", "DIR", "folder of the objects and their index (default: this one)"},
    VEXAL_HOLDINGS_OPTIONS,
    {"-k", "KEY=VALUE", "export, delete: of the studies that match, as for vexal find; may be repeated"},
    {"--repair", nullptr, "check: mend what is found"},
    {"--deep", nullptr, "check, move: read every object to its end"},
    {"--grace", "S", "check: leave objects alone that are younger than this many seconds (default 3600)"},
    {"--to-store", "DIR|s3://BUCKET/PREFIX", "move: copy all objects there"},
    {"--out", "DIR", "export: the folder to write into"},
    {"--dicomdir", nullptr, "export: a file-set with a DICOMDIR"},
    {"--by", "patient|study|modality", "usage: what is counted (default patient)"},
    {"--quota", "BYTES", "quota: the oldest studies go until all that is held is no more than this"},
    {"--keep-days", "N", "quota: studies with an older date go"},
    {"--yes", nullptr, "delete, quota: do it; without it, what would go is listed"},
    {"--fsync", nullptr, "have on the disk what is written before the next thing is done"},
    {"--mode", "OCTAL", "access to files that are made (default 0640, less what the umask takes away)"},
    {"--json", nullptr, "a line of JSON for each thing that is found or done"},
};

struct Action {
  const char* name;
  int (*run)(Upkeep& upkeep);
};
constexpr Action kActions[] = {
    {"check", check_archive},   {"move", move_archive}, {"export", export_studies},
    {"delete", delete_studies}, {"usage", show_usage},  {"quota", apply_quota},
};

int run(const Args& args) {
  const auto* action = std::find_if(std::begin(kActions), std::end(kActions), [&](const Action& a) {
    return args.paths.size() == 1 && args.paths[0] == a.name;
  });
  if (action == std::end(kActions)) {
    std::string names;
    for (const Action& a : kActions) names += (names.empty() ? "" : ", ") + std::string(a.name);
    complain("archive needs one of: %s; --help tells more", names.c_str());
    return kUsage;
  }
  if (std::error_code none; !std::filesystem::is_directory(args.get("--dir", "."), none)) {
    complain("--dir %s: is no folder", args.get("--dir").c_str());
    return kUsage;
  }
  Upkeep upkeep(args);
  if (!upkeep.storage.read(args, true)) return kUsage;
  prepare_bounded_files();
  if (const std::string error = upkeep.holdings.open(args, upkeep.storage, true); !error.empty()) {
    complain("%s", error.c_str());
    return kUsage;
  }
  return action->run(upkeep);
}

}  // namespace

const Command kArchive = {
    "archive",
    "check|move|export|delete|usage|quota --dir DIR [OPTION...]",
    "look after what vexal serve holds: check and repair, move, export, delete, quotas",
    "check compares index and objects: rows without objects, objects without rows, other sizes, and with\n"
    "--deep objects that can not be read. --repair enters an object that has no row, drops a row that has\n"
    "no object, takes away what is there twice, and moves what else is wrong into the folder lost+found\n"
    "below --dir. move copies all objects to --to-store, under the same keys, and reads them back; it goes\n"
    "on where it was broken off. export writes studies into a folder, delete takes them away. usage tells\n"
    "what takes how much room; quota takes the oldest studies away. All but move may run beside servers.",
    kOptions,
    run};

}  // namespace vexal
