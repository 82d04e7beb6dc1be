#include "set_checks.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <span>
#include <string_view>
#include <tuple>

#include "base/attributes.h"
#include "base/hex.h"
#include "base/names.h"
#include "base/printable.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"
#include "files/charset.h"
#include "files/head_scan.h"

namespace vexal {
namespace {

// What is broken.
constexpr char kDiffers[] = "Value differs between objects";
constexpr char kLacks[] = "Value is missing beside other objects";
constexpr char kNotUnique[] = "UID is not unique";
constexpr char kMisleads[] = "Reference does not fit its object";
constexpr char kLeadsNowhere[] = "Reference leads to no object";

constexpr int kNothing = -1;
constexpr std::string_view kStandardRoot = "1.2.840.10008.";
constexpr std::string_view kStorageRoot = "1.2.840.10008.5.1.4.1.1.";

// How grave it is where values differ, and where some objects have none.
constexpr struct {
  const char* word;
  int differs, lacks;
} kEntityRows[kEntityCount] = {
    {"patient", 0, 1},
    {"study", 0, 1},
    {"series", 0, 1},
    {"the equipment of series", 1, kNothing},
    {"frame of reference", 0, kNothing},
    {"the images of series", 2, kNothing},
};

constexpr struct Row {
  Entity entity;
  uint32_t tag;
} kRows[] = {
#include "set_attributes.inc"
};

// The table goes by entity.
constexpr std::size_t first_row(Entity entity) {
  std::size_t row = 0;
  while (kRows[row].entity != entity) ++row;
  return row;
}
constexpr std::span<const Row> rows_of(Entity entity) {
  const std::size_t first = first_row(entity);
  std::size_t end = first;
  while (end < std::size(kRows) && kRows[end].entity == entity) ++end;
  return {kRows + first, end - first};
}

constexpr std::size_t index_of(Entity entity) {
  return static_cast<std::size_t>(entity);
}

// Numbers by what they are, names without empty components at their end.
std::string comparable(std::string text, VX_VR vr) {
  if (vr == VX_VR_PN) {
    text.erase(text.find_last_not_of("^= ") + 1);
  } else if (vr == VX_VR_DS || vr == VX_VR_IS) {
    std::string numbers;
    for (std::size_t at = 0; at <= text.size();) {
      const std::size_t end = std::min(text.find('\\', at), text.size());
      char number[32];
      std::snprintf(number, sizeof number, "%s%.8g", at == 0 ? "" : "\\",
                    std::strtod(text.substr(at, end - at).c_str(), nullptr));
      numbers += number;
      at = end + 1;
    }
    if (!text.empty()) return numbers;
  }
  return text;
}

// All that an item holds, as a text that is the same for equal items.
std::string content_of(int32_t object) {
  std::vector<std::pair<uint32_t, VX_VR>> attributes;
  for_each_attribute(object, [&](uint32_t tag, VX_VR vr, int32_t) { attributes.emplace_back(tag, vr); });
  std::string text;
  for (const auto& [tag, vr] : attributes) {
    text += hex_of(tag, 8);
    if (vr != VX_VR_SQ) {
      text += "=" + comparable(utf8_text_of(object, tag), vr);
    } else {
      for (const int32_t item : sequence_items(object, tag)) text += "{" + content_of(item) + "}";
    }
    text += ';';
  }
  return text;
}

std::string value_of(int32_t object, uint32_t tag) {
  VX_VR vr = 0;
  if (VX_Get_Attribute_Info(object, tag, &vr, nullptr) != VX_NORMAL_COMPLETION) return "";
  if (vr != VX_VR_SQ) return comparable(utf8_text_of(object, tag), vr);
  std::string text;
  for (const int32_t item : sequence_items(object, tag)) text += "{" + content_of(item) + "}";
  return text;
}

bool is_shown(const std::string& value) {
  return !value.empty() && value.front() != '{';
}

std::string quoted(const std::string& value) {
  return is_shown(value) ? "\"" + shown(value) + "\"" : std::string("another");
}

// `study`, `series`: what is said around the object.
void collect(int32_t object, const std::string& path, const std::string& study, const std::string& series,
             std::map<SetReference, std::string>& references) {
  const auto said = [object](uint32_t tag, const std::string& around) {
    const std::string here = text_of(object, tag);
    return here.empty() ? around : here;
  };
  const bool top = path.empty();  // what stands there is of the object itself
  const std::string of_study = top ? "" : said(tags::kStudyInstanceUID, study);
  const std::string of_series = top ? "" : said(tags::kSeriesInstanceUID, series);
  const std::string instance = text_of(object, tags::kReferencedSOPInstanceUID);
  if (!instance.empty()) {
    references.try_emplace({text_of(object, tags::kReferencedSOPClassUID), instance, of_study, of_series},
                           path + tag_name(tags::kReferencedSOPInstanceUID));
  }
  for (const uint32_t sequence : sequences_of(object)) {
    const std::vector<int32_t> items = sequence_items(object, sequence);
    for (std::size_t i = 0; i < items.size(); ++i)
      collect(items[i], path + tag_name(sequence) + "[" + std::to_string(i) + "].", of_study, of_series,
              references);
  }
}

}  // namespace

SetObject read_set_object(const DicomFile& file) {
  const int32_t root = file.id();
  SetObject object{text_of(root, tags::kSOPClassUID),
                   text_of(root, tags::kSOPInstanceUID),
                   text_of(root, tags::kStudyInstanceUID),
                   text_of(root, tags::kSeriesInstanceUID),
                   text_of(root, tags::kFrameOfReferenceUID),
                   {},
                   {},
                   file.syntax(),
                   {}};
  const std::string patient = utf8_text_of(root, tags::kPatientID);
  if (!patient.empty())
    object.keys[index_of(Entity::kPatient)] = patient + "\n" + utf8_text_of(root, tags::kIssuerOfPatientID);
  object.keys[index_of(Entity::kStudy)] = object.study;
  object.keys[index_of(Entity::kSeries)] = object.series;
  object.keys[index_of(Entity::kEquipment)] = object.series;
  // Those that the standard itself has defined are of no patient.
  if (!object.frame.starts_with(kStandardRoot)) object.keys[index_of(Entity::kFrame)] = object.frame;
  if (!object.frame.empty()) object.keys[index_of(Entity::kGeometry)] = object.series;
  for (const Row& row : kRows) object.values.push_back(value_of(root, row.tag));
  collect(root, "", "", "", object.references);
  return object;
}

void ObjectSet::note(Attribute& attribute, std::size_t file, std::string& text) {
  if (text.empty()) {
    attribute.first_lacking = attribute.lacking == 0 ? file : std::min(attribute.first_lacking, file);
    ++attribute.lacking;
    return;
  }
  const auto at =
      std::lower_bound(attribute.values.begin(), attribute.values.end(), text,
                       [](const Value& value, const std::string& other) { return value.text < other; });
  if (at != attribute.values.end() && at->text == text) {
    at->first = std::min(at->first, file);
    ++at->files;
  } else {
    attribute.values.insert(at, {std::move(text), file, 1});
  }
}

void ObjectSet::add(std::size_t file, SetObject object) {
  for (std::size_t i = 0; i < std::size(kRows); ++i) {
    const std::size_t entity = index_of(kRows[i].entity);
    const std::string& key = object.keys[entity];
    if (key.empty()) continue;
    Attributes& attributes = entities_[entity][key];
    if (attributes.empty()) attributes.resize(rows_of(kRows[i].entity).size());
    note(attributes[i - first_row(kRows[i].entity)], file, object.values[i]);
  }
  for (auto& [reference, path] : object.references) {
    const auto [at, fresh] = references_.try_emplace(reference, Use{file, path, 1});
    if (fresh) continue;
    ++at->second.files;
    if (file < at->second.file) {
      at->second.file = file;
      at->second.path = path;
    }
  }
  if (object.instance.empty()) return;
  Instance& instance = instances_[object.instance];
  if (instance.files.empty() || file < instance.files.front().first) {
    instance.sop_class = object.sop_class;
    instance.study = object.study;
    instance.series = object.series;
    instance.frame = object.frame;
    instance.files.emplace(instance.files.begin(), file, object.syntax);
  } else {
    instance.files.emplace_back(file, object.syntax);
  }
}

// The value that most objects have stands for the entity.
void ObjectSet::compare(Entity entity, const std::string& key, const Attributes& attributes,
                        const std::vector<std::string>& paths, std::vector<SetFinding>& found) const {
  const auto& kind = kEntityRows[index_of(entity)];
  for (std::size_t i = 0; i < attributes.size(); ++i) {
    const Attribute& attribute = attributes[i];
    const uint32_t tag = rows_of(entity)[i].tag;
    const auto usual = std::max_element(
        attribute.values.begin(), attribute.values.end(), [](const Value& a, const Value& b) {
          return a.files < b.files || (a.files == b.files && a.first > b.first);
        });
    if (usual == attribute.values.end()) continue;
    std::string reason = std::string("of ") + kind.word + " " + shown(key.substr(0, key.find('\n'))) +
                         " it is " + quoted(usual->text) + " in " + shown(paths[usual->first]);
    if (usual->files > 1) reason += " and " + std::to_string(usual->files - 1) + " more";
    for (auto value = attribute.values.begin(); value != attribute.values.end(); ++value) {
      if (value == usual) continue;
      found.push_back({value->first, kind.differs, tag, kDiffers, "",
                       is_shown(value->text) ? value->text : "", reason, value->files});
    }
    if (attribute.lacking != 0 && kind.lacks != kNothing)
      found.push_back({attribute.first_lacking, kind.lacks, tag, kLacks, "", "", reason, attribute.lacking});
  }
}

// Objects that bear the UID of another. What is in two transfer syntaxes may well be the same.
void ObjectSet::check_twins(const std::vector<std::string>& paths, std::vector<SetFinding>& found) const {
  for (const auto& [uid, instance] : instances_) {
    const auto& [first, syntax] = instance.files.front();
    for (std::size_t i = 1; i < instance.files.size(); ++i) {
      const auto& [file, other_syntax] = instance.files[i];
      const bool encoded = syntax != other_syntax;
      const bool same = !encoded && same_data_set(paths[first], paths[file]);
      const char* what = encoded ? "an object in another transfer syntax, "
                         : same  ? "the same object, "
                                 : "another object, ";
      found.push_back({file, encoded || same ? 1 : 0, tags::kSOPInstanceUID, kNotUnique, "", uid,
                       what + shown(paths[first]) + ", has it"});
    }
  }
}

// One that leads out of the set is right where it names a study that is not in it. Where it names none nobody
// can tell.
void ObjectSet::check_reference(const SetReference& reference, const Use& use,
                                const std::vector<std::string>& paths, std::vector<SetFinding>& found) const {
  const auto add = [&](int severity, const char* rule, std::string reason) {
    found.push_back({use.file, severity, tags::kReferencedSOPInstanceUID, rule, use.path, reference.instance,
                     std::move(reason), use.files});
  };
  const auto target = instances_.find(reference.instance);
  if (target != instances_.end()) {
    const Instance& object = target->second;
    const std::string where = " in " + shown(paths[object.files.front().first]);
    const struct {
      const std::string &said, &is;
      const char* word;
    } rows[] = {{reference.sop_class, object.sop_class, "class "},
                {reference.study, object.study, "study "},
                {reference.series, object.series, "series "}};
    for (const auto& row : rows) {
      if (!row.said.empty() && row.said != row.is)
        add(0, kMisleads,
            std::string("the object") + where + " is of " + row.word + shown(row.is) + ", not " +
                shown(row.said));
    }
    return;
  }
  if (!reference.sop_class.starts_with(kStorageRoot)) return;  // not what files hold
  const bool has_study = entities_[index_of(Entity::kStudy)].contains(reference.study);
  const bool has_series = entities_[index_of(Entity::kSeries)].contains(reference.series);
  add(has_study || has_series ? 1 : 2, kLeadsNowhere,
      has_series                ? "its series is in the set, the object is not"
      : has_study               ? "its study is in the set, the object is not"
      : reference.study.empty() ? "the object is not in the set"
                                : "its study is not in the set");
}

// What one UID names is one thing.
void ObjectSet::check_levels(std::vector<SetFinding>& found) const {
  std::unordered_map<std::string, std::map<uint32_t, std::size_t>> uses;  // by tag the first file
  for (const auto& [uid, instance] : instances_) {
    const std::pair<uint32_t, const std::string&> named[] = {{tags::kSOPInstanceUID, uid},
                                                             {tags::kStudyInstanceUID, instance.study},
                                                             {tags::kSeriesInstanceUID, instance.series},
                                                             {tags::kFrameOfReferenceUID, instance.frame}};
    for (const auto& [tag, name] : named) {
      if (name.empty()) continue;
      const auto [at, fresh] = uses[name].try_emplace(tag, instance.files.front().first);
      if (!fresh) at->second = std::min(at->second, instance.files.front().first);
    }
  }
  for (const auto& [uid, by_tag] : uses) {
    for (auto use = std::next(by_tag.begin()); use != by_tag.end(); ++use)
      found.push_back({use->second, 0, use->first, kNotUnique, "", uid,
                       "the same UID as a " + describe_tag(by_tag.begin()->first) + " of the set"});
  }
}

std::vector<SetFinding> ObjectSet::findings(const std::vector<std::string>& paths) const {
  std::vector<SetFinding> found;
  for (std::size_t entity = 0; entity < kEntityCount; ++entity) {
    for (const auto& [key, attributes] : entities_[entity])
      compare(static_cast<Entity>(entity), key, attributes, paths, found);
  }
  check_twins(paths, found);
  for (const auto& [reference, use] : references_) check_reference(reference, use, paths, found);
  check_levels(found);
  const auto rank = [](const SetFinding& one) {
    return std::tie(one.file, one.severity, one.tag, one.path, one.value, one.reason, one.files);
  };
  std::sort(found.begin(), found.end(),
            [&](const SetFinding& a, const SetFinding& b) { return rank(a) < rank(b); });
  return found;
}

}  // namespace vexal
