#include "dictionary.h"

#include <algorithm>

#include "bytes.h"

namespace vxdata {
namespace {

constexpr uint32_t kSignature = 0xF006F006;
constexpr const char* kSignatureName = "VexalKit data dictionary";
constexpr size_t kNameLimit = 99;
constexpr size_t kCreatorField = 513;
constexpr const char* kUnnamed = "Unknown";

std::string key_of(uint32_t tag, std::string_view creator) {
  return format("%08X", tag).append(creator);
}

// The first of the VRs that a column such as "US/SS" names.
std::optional<int> first_vr(const std::string& column) {
  return vr_code(std::string_view(column).substr(0, column.find('/')));
}

std::string check_name(const std::string& name) {
  if (name.size() > kNameLimit) return format("name of %zu bytes; at most %zu fit", name.size(), kNameLimit);
  if (printable(name) != name) return "name holds characters outside the default repertoire";
  return {};
}

}  // namespace

void Dictionary::read_public_line(const Line& line, const std::string& path, uint32_t& previous,
                                  Problems& problems) {
  const auto fields = split(line.text, '\t');
  if (fields.size() != 5 && fields.size() != 6) {
    problems.error(path, line.number, "expected tag, VR, VM, keyword, name and perhaps \"retired\"");
    return;
  }
  const auto tag = parse_tag(fields[0]);
  const auto vr = first_vr(fields[1]);
  const auto vm = parse_vm(fields[2]);
  if (!tag || tag->block_free || is_private(tag->tag)) {
    problems.error(path, line.number, "not the tag of a public attribute: " + fields[0]);
    return;
  }
  if (!vr) problems.error(path, line.number, "unknown VR: " + fields[1]);
  if (!vm) problems.error(path, line.number, "VM not understood: " + fields[2]);
  if (const auto fault = check_name(fields[4]); !fault.empty()) problems.error(path, line.number, fault);
  if (fields.size() == 6 && fields[5] != "retired") {
    problems.error(path, line.number, "the last column may only say \"retired\"");
  }
  if (tag->tag <= previous && previous != UINT32_MAX) {
    problems.error(path, line.number, fields[0] + " follows " + tag_text(previous) + ": tags must rise");
  }
  previous = tag->tag;
  if (!vr || !vm) return;
  DictionaryEntry entry{
      tag->tag,       *vr,        *vm, fields[4], fields[3] == "-" ? "" : fields[3], {}, fields.size() == 6,
      &files_.back(), line.number};
  if (entry.name == "-") entry.name = kUnnamed;
  entries_.push_back(std::move(entry));
}

void Dictionary::read_private_line(const Line& line, const std::string& path, const std::string& creator,
                                   uint32_t& previous, Problems& problems) {
  const auto fields = split(line.text, '\t');
  if (fields.size() != 4) {
    problems.error(path, line.number, "expected tag, VR, VM and name");
    return;
  }
  const auto tag = parse_tag(fields[0]);
  const auto vr = vr_code(fields[1]);
  const auto vm = parse_vm(fields[2]);
  if (!tag || !tag->block_free || !is_private(tag->tag)) {
    problems.error(path, line.number, "not the tag of a private attribute (gggg,xxee): " + fields[0]);
    return;
  }
  if (!vr) problems.error(path, line.number, "unknown VR: " + fields[1]);
  if (!vm) problems.error(path, line.number, "VM not understood: " + fields[2]);
  if (const auto fault = check_name(fields[3]); !fault.empty()) problems.error(path, line.number, fault);
  if (tag->tag <= previous && previous != UINT32_MAX) {
    problems.error(path, line.number, fields[0] + ": tags must rise within a creator's block");
  }
  previous = tag->tag;
  if (!vr || !vm) return;
  const std::string name = fields[3] == "-" ? kUnnamed : fields[3];
  entries_.push_back({tag->tag, *vr, *vm, name, {}, creator, false, &files_.back(), line.number});
}

void Dictionary::read_text(const std::string& path, Problems& problems) {
  files_.push_back(path);
  std::string creator;
  uint32_t previous = UINT32_MAX;
  for (const Line& line : read_lines(path)) {
    if (line.text.rfind("@ ", 0) == 0) {
      creator = trim(line.text.substr(2));
      previous = UINT32_MAX;
      if (creator.empty() || creator.size() >= kCreatorField) {
        problems.error(path, line.number, "a creator code has from 1 to 512 characters");
      }
    } else if (creator.empty()) {
      read_public_line(line, path, previous, problems);
    } else {
      read_private_line(line, path, creator, previous, problems);
    }
  }
}

void Dictionary::sort(Problems& problems) {
  std::stable_sort(entries_.begin(), entries_.end(), [](const auto& a, const auto& b) {
    return a.tag != b.tag ? a.tag < b.tag : a.creator < b.creator;
  });
  index_.clear();
  index_.reserve(entries_.size());
  for (size_t i = 0; i < entries_.size(); ++i) {
    const auto& entry = entries_[i];
    if (!index_.emplace(key_of(entry.tag, entry.creator), i).second && entry.file != nullptr) {
      problems.error(*entry.file, entry.line,
                     tag_text(entry.tag) + (entry.creator.empty() ? "" : " of " + entry.creator) +
                         " has an entry already");
    }
  }
}

const DictionaryEntry* Dictionary::find(uint32_t tag, std::string_view creator) const {
  const uint32_t family = tag >> 24;
  if (is_private(tag)) {
    tag &= 0xFFFF00FF;
  } else if (family == 0x50 || family == 0x60) {
    tag &= 0xFF00FFFF;
  }
  const auto at = index_.find(key_of(tag, creator));
  return at == index_.end() ? nullptr : &entries_[at->second];
}

std::string Dictionary::to_binary() const {
  Writer out;
  const auto record = [&out](uint32_t tag, int vr, Multiplicity vm, const std::string& name) {
    out.u32(tag);
    out.u16(static_cast<unsigned>(vr));
    out.u8(vm.low);
    out.u8(vm.high);
    out.text(name);
    out.u8(0);
  };
  record(kSignature, 0, {0, 0}, kSignatureName);
  for (const auto& entry : entries_) {
    record(entry.tag, entry.vr, entry.vm, entry.name);
    if (is_private(entry.tag)) {
      out.text(entry.creator);
      out.fill(kCreatorField - entry.creator.size());
    }
  }
  return out.bytes();
}

void Dictionary::from_binary(const std::string& path, std::string_view bytes) {
  Reader in(bytes);
  bool first = true;
  bool fixed_names = false;
  while (!in.at_end()) {
    const size_t start = in.position();
    DictionaryEntry entry;
    entry.tag = in.u32();
    entry.vr = static_cast<int>(in.u16());
    entry.vm.low = static_cast<uint8_t>(in.u8());
    entry.vm.high = static_cast<uint8_t>(in.u8());
    if (first) {
      if (entry.tag != kSignature && entry.tag != 0xF005F005) throw Unusable{path + ": no data dictionary"};
      fixed_names = entry.tag == 0xF005F005;
    }
    std::string_view name = fixed_names ? in.take(64) : in.up_to_nul();
    entry.name = name.substr(0, name.find('\0'));
    if (is_private(entry.tag) && !first) {
      const std::string_view creator = in.take(kCreatorField);
      entry.creator = creator.substr(0, creator.find('\0'));
    }
    if (in.failed()) throw Unusable{path + format(": cut off in the record at byte %zu", start)};
    if (!first && (entry.vr > kVrSq))
      throw Unusable{path + format(": VR code %d at byte %zu", entry.vr, start)};
    if (!first) entries_.push_back(std::move(entry));
    first = false;
  }
}

std::string Dictionary::to_text() const {
  std::string text;
  std::string creator;
  std::vector<const DictionaryEntry*> privates;
  for (const auto& entry : entries_) {
    if (is_private(entry.tag)) {
      privates.push_back(&entry);
      continue;
    }
    text += tag_text(entry.tag) + "\t" + std::string(vr_letters(entry.vr)) + "\t" + vm_text(entry.vm) + "\t" +
            (entry.keyword.empty() ? "-" : entry.keyword) + "\t" + entry.name +
            (entry.retired ? "\tretired" : "") + "\n";
  }
  std::stable_sort(privates.begin(), privates.end(),
                   [](const auto* a, const auto* b) { return a->creator < b->creator; });
  for (const auto* entry : privates) {
    if (entry->creator != creator) text += "\n@ " + (creator = entry->creator) + "\n";
    text += format("%04X,xx%02X\t", entry->tag >> 16, entry->tag & 0xFF) +
            std::string(vr_letters(entry->vr)) + "\t" + vm_text(entry->vm) + "\t" + entry->name + "\n";
  }
  return text;
}

}  // namespace vxdata
