// vexal archive export, delete, usage and quota: what is done with whole studies.
#include <algorithm>
#include <ctime>
#include <filesystem>
#include <map>

#include "base/session.h"
#include "base/tags.h"
#include "base/values.h"
#include "directories/dir.h"
#include "upkeep.h"

namespace vexal {
namespace {

int complain_of(const std::string& error) {
  if (error.empty()) return kSuccess;
  complain("%s", error.c_str());
  return kUsage;
}

Cells cells_of(const FoundStudy& study) {
  return {{"patient", study.patient},
          {"date", study.date},
          {"study", study.uid},
          {"objects", std::to_string(study.objects.size())},
          {"bytes", std::to_string(study.bytes)}};
}

// ---- Export ----

struct Export {
  Upkeep& upkeep;
  std::string out;
  bool file_set;  // of names that media may have
  std::vector<std::string> paths{};
  std::size_t studies = 0;
  std::size_t failed = 0;

  std::string name_of(const ObjectFile& object, std::size_t number) const;
  std::string write(const ObjectFile& object, std::size_t number);
};

std::string Export::name_of(const ObjectFile& object, std::size_t number) const {
  if (!file_set) return std::filesystem::path(object.path).parent_path() / (object.instance + ".dcm");
  char name[40];
  std::snprintf(name, sizeof name, "DICOM/S%07zu/I%07zu", studies, number);
  return name;
}

std::string Export::write(const ObjectFile& object, std::size_t number) {
  LocalObject local;
  std::string error = upkeep.holdings.fetch(object, local);
  if (!error.empty()) return error;
  const std::string name = name_of(object, number);
  const std::string path = out + "/" + name;
  std::error_code failure;
  const bool there = std::filesystem::exists(std::filesystem::symlink_status(path, failure));
  if (there && !same_data_set(local.file().path, path)) return path + ": is there with other content";
  FileSink sink;
  if (!there) error = make_folders_of(out, name, 0);
  if (error.empty() && !there) error = sink.open(path);
  if (error.empty() && !there) error = copy_file(local.file().path, sink);
  if (error.empty() && !there) error = sink.commit();
  if (error.empty() && file_set) paths.push_back(path);
  return error;
}

}  // namespace

int export_studies(Upkeep& upkeep) {
  Export work{upkeep, upkeep.args.get("--out"), upkeep.args.has("--dicomdir")};
  std::vector<CatalogKey> keys;
  if (!read_study_keys(upkeep.args, false, keys)) return kUsage;
  if (work.out.empty()) {
    complain("export needs --out");
    return kUsage;
  }
  std::error_code failure;
  std::filesystem::create_directories(work.out, failure);
  if (failure) return complain_of("--out " + work.out + ": " + failure.message());
  const std::string index = work.out + "/DICOMDIR";
  if (work.file_set && std::filesystem::exists(index, failure)) return complain_of(index + ": is there");
  const std::string error = each_study(upkeep.holdings, keys, [&](FoundStudy& study) {
    ++work.studies;
    for (std::size_t i = 0; i < study.objects.size(); ++i) {
      const std::string fault = work.write(study.objects[i], i + 1);
      if (fault.empty()) continue;
      report(study.objects[i].instance, fault);
      ++work.failed;
    }
    print_cells(upkeep, cells_of(study));
    return std::string();
  });
  if (!error.empty()) return complain_of(error);
  int exit = work.failed == 0 ? kSuccess : kFindings;
  if (work.file_set) {
    Directory directory;
    if (!directory.make(index, "")) return kUsage;
    exit = std::max(exit, add_files(directory, work.paths, false));
  }
  return exit;
}

// ---- Delete ----

namespace {

// Objects that can not be removed keep their rows, and are told. The number of these.
std::size_t remove_study(Upkeep& upkeep, const FoundStudy& study) {
  std::size_t left = 0;
  for (const ObjectFile& object : study.objects) {
    const std::string error = upkeep.holdings.remove(object);
    if (error.empty()) continue;
    report(object.instance, error);
    ++left;
  }
  return left;
}

}  // namespace

int delete_studies(Upkeep& upkeep) {
  std::vector<CatalogKey> keys;
  if (!read_study_keys(upkeep.args, false, keys)) return kUsage;
  const bool really = upkeep.args.has("--yes");
  std::size_t left = 0;
  const std::string error = each_study(upkeep.holdings, keys, [&](FoundStudy& study) {
    if (really) left += remove_study(upkeep, study);
    print_cells(upkeep, cells_of(study));
    return std::string();
  });
  if (!error.empty()) return complain_of(error);
  if (!really && !upkeep.json) say("nothing is deleted without --yes");
  return left == 0 ? kSuccess : kFindings;
}

// ---- Usage and quota ----

namespace {

struct Sum {
  std::size_t objects = 0;
  uint64_t bytes = 0;

  void add(const std::vector<ObjectFile>& more) {
    objects += more.size();
    for (const ObjectFile& object : more) bytes += object.size;
  }
};

std::string sum_modalities(Holdings& holdings, std::map<std::string, Sum>& sums) {
  std::string failure;
  const std::string error = holdings.find(
      Level::Series, {{tags::kModality, VX_VR_CS, ""}, {tags::kSeriesInstanceUID, VX_VR_UI, ""}}, nullptr,
      [&](const std::vector<std::string>& values, const std::string&) {
        std::vector<ObjectFile> objects;
        failure = holdings.objects({{tags::kSeriesInstanceUID, VX_VR_UI, values[1]}}, nullptr, objects);
        sums[values[0]].add(objects);
        return failure.empty();
      });
  return error.empty() ? failure : error;
}

// "20260131" of so many days ago.
std::string date_before(long days) {
  const std::time_t then = std::time(nullptr) - days * 86400;
  std::tm parts{};
  char text[16];
  ::gmtime_r(&then, &parts);
  std::strftime(text, sizeof text, "%Y%m%d", &parts);
  return text;
}

bool is_date(const std::string& text) {
  return text.size() == 8 && text.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

int show_usage(Upkeep& upkeep) {
  const std::string by = upkeep.args.get("--by", "patient");
  std::map<std::string, Sum> sums;
  std::string error;
  if (by == "modality") {
    error = sum_modalities(upkeep.holdings, sums);
  } else if (by == "patient" || by == "study") {
    error = each_study(upkeep.holdings, {}, [&](FoundStudy& study) {
      sums[by == "patient" ? study.patient : study.uid].add(study.objects);
      return std::string();
    });
  } else {
    error = "--by " + by + ": give patient, study or modality";
  }
  if (!error.empty()) return complain_of(error);
  Sum all;
  for (const auto& [name, sum] : sums) {
    all.objects += sum.objects;
    all.bytes += sum.bytes;
    print_cells(upkeep, {{by.c_str(), name.empty() ? "-" : name},
                         {"objects", std::to_string(sum.objects)},
                         {"bytes", std::to_string(sum.bytes)}});
  }
  if (!upkeep.json) say("%zu objects, %llu bytes", all.objects, static_cast<unsigned long long>(all.bytes));
  return kSuccess;
}

int apply_quota(Upkeep& upkeep) {
  long quota = -1;
  long days = -1;
  if (!upkeep.args.number("--quota", 0, 0x7FFFFFFFFFFFFFFFL, quota) ||
      !upkeep.args.number("--keep-days", 1, 1000000, days))
    return kUsage;
  if (quota < 0 && days < 0) return complain_of("quota needs --quota, --keep-days or both");
  struct Study {
    std::string date;
    std::string uid;
    uint64_t bytes;
  };
  std::vector<Study> studies;
  uint64_t all = 0;
  std::string error = each_study(upkeep.holdings, {}, [&](FoundStudy& study) {
    all += study.bytes;
    // One without a date is as old as anybody likes: it stays.
    if (is_date(study.date)) studies.push_back({study.date, study.uid, study.bytes});
    return std::string();
  });
  if (!error.empty()) return complain_of(error);
  std::sort(studies.begin(), studies.end(),
            [](const Study& a, const Study& b) { return std::tie(a.date, a.uid) < std::tie(b.date, b.uid); });
  const std::string oldest = days < 0 ? "" : date_before(days);
  const bool really = upkeep.args.has("--yes");
  std::size_t left = 0;
  for (const Study& study : studies) {
    const bool over = quota >= 0 && all > static_cast<uint64_t>(quota);
    if (study.date >= oldest && !over) break;
    error =
        each_study(upkeep.holdings, {{tags::kStudyInstanceUID, VX_VR_UI, study.uid}}, [&](FoundStudy& found) {
          if (really) left += remove_study(upkeep, found);
          print_cells(upkeep, cells_of(found));
          return std::string();
        });
    if (!error.empty()) return complain_of(error);
    all -= std::min(all, study.bytes);
  }
  if (!really && !upkeep.json) say("nothing is deleted without --yes");
  if (quota >= 0 && all > static_cast<uint64_t>(quota)) {
    complain("what has no date takes more room than the quota leaves: %llu bytes",
             static_cast<unsigned long long>(all));
    return kFindings;
  }
  return left == 0 ? kSuccess : kFindings;
}

}  // namespace vexal
