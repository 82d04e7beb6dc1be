#include "deidentifier.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iterator>

#include "base/attributes.h"
#include "base/hex.h"
#include "base/json.h"
#include "base/names.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "base/uid.h"
#include "base/values.h"
#include "comments.h"
#include "images/recode.h"

namespace vexal {
namespace {

constexpr std::size_t kShortestSecret = 16;
constexpr std::size_t kLongestSecret = 4096;
constexpr std::size_t kNewSecret = 32;  // random bytes

struct ProfileOption {
  const char* name;
  uint32_t bit;
};
constexpr ProfileOption kProfileOptions[] = {
    {"--retain-safe-private", VX_RETAIN_SAFE_PRIVATE},
    {"--retain-uids", VX_RETAIN_UIDS},
    {"--retain-device-identity", VX_RETAIN_DEVICE_IDENTITY},
    {"--retain-institution-identity", VX_RETAIN_INSTITUTION_IDENTITY},
    {"--retain-patient-characteristics", VX_RETAIN_PATIENT_CHARACTERISTICS},
    {"--retain-full-dates", VX_RETAIN_FULL_DATES},
    {"--retain-modified-dates", VX_RETAIN_MODIFIED_DATES},
    {"--shift-dates", VX_RETAIN_MODIFIED_DATES},
    {"--clean-descriptors", VX_CLEAN_DESCRIPTORS},
    {"--clean-structured-content", VX_CLEAN_STRUCTURED_CONTENT},
    {"--clean-graphics", VX_CLEAN_GRAPHICS}};

// A new key file, for its owner alone. An error text, empty on success.
std::string make_key(const std::string& path) {
  std::string text;
  append_bytes(text, random_bytes(kNewSecret));
  text += '\n';
  FileSink sink;
  std::string error = sink.open(path, FileSink::kPrivateMode);
  if (error.empty() && !sink.write(text.data(), text.size())) error = sink.problem();
  return error.empty() ? sink.commit(true) : error;
}

// What stands in a key file, but for a line end. An error text, empty on success.
std::string read_key(const std::string& path, std::string& key) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::strerror(errno);
  struct stat status {};
  key.resize(kLongestSecret + 1);
  const int64_t got =
      ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) ? read_whole(fd, 0, key.data(), key.size()) : -1;
  ::close(fd);
  if (got < 0) return "can not be read";
  if (static_cast<std::size_t>(got) > kLongestSecret) return "is too long to be a key";
  key.resize(static_cast<std::size_t>(got));
  while (!key.empty() && (key.back() == '\n' || key.back() == '\r')) key.pop_back();
  if (key.size() < kShortestSecret) return "is too short: a key has 16 bytes or more";
  if ((status.st_mode & 077) != 0) complain("--key %s: others may read it", path.c_str());
  return "";
}

// One of those that stand in bits that the pixels do not use (PS3.3 section C.9.2, as it was until 2004).
bool has_overlay_in_pixels(int32_t object) {
  for (uint32_t group = 0; group < 0x20; group += 2) {
    const uint32_t shift = group << 16;
    if (has_attribute(object, tags::kOverlayRows + shift) &&
        !has_attribute(object, tags::kOverlayData + shift))
      return true;
  }
  return false;
}

VX_STATUS note_change(int32_t object, uint32_t tag, const char* path, char action, void* user) {
  auto& notes = *static_cast<ChangeNotes*>(user);
  notes.lines += notes.head + ",\"path\":\"" + path + "\",\"action\":\"" + action + '"';
  VX_VR vr = 0;
  const bool shown = notes.values &&
                     VX_Get_Attribute_Info(object, tag, &vr, nullptr) == VX_NORMAL_COMPLETION &&
                     vr < VX_VR_UN;
  if (shown) {
    notes.lines += ",\"value\":";
    append_json(notes.lines, all_text_of(object, tag));
  }
  notes.lines += "}\n";
  return VX_NORMAL_COMPLETION;
}

}  // namespace

bool Deidentifier::read_secret(const Args& args) {
  if (args.has("--key") && args.has("--secret")) {
    complain("--key and --secret do not go together");
    return false;
  }
  secret_ = args.has("--secret") ? args.get("--secret") : random_bytes(kNewSecret);
  if (args.has("--key")) {
    const std::string path = args.get("--key");
    std::string error = ::access(path.c_str(), F_OK) != 0 ? make_key(path) : "";
    if (error.empty()) error = read_key(path, secret_);
    if (!error.empty()) complain("--key %s: %s", path.c_str(), error.c_str());
    if (!error.empty()) return false;
  }
  if (secret_.size() < kShortestSecret) {
    complain("--secret: give 16 characters or more");
    return false;
  }
  return true;
}

bool Deidentifier::read_choices(const Args& args) {
  const struct {
    const char* option;
    const char* word;
    const char* otherwise;
  } kChoices[] = {{"--unknown-class", "by-table", "refuse"},
                  {"--documents", "replace", "refuse"},
                  {"--burned-in", "keep", "refuse"}};
  bool chosen[std::size(kChoices)] = {};
  for (std::size_t i = 0; i < std::size(kChoices); ++i) {
    const std::string word = args.get(kChoices[i].option, kChoices[i].otherwise);
    chosen[i] = word == kChoices[i].word;
    if (chosen[i] || word == kChoices[i].otherwise) continue;
    complain("%s %s: give %s or %s", kChoices[i].option, word.c_str(), kChoices[i].otherwise,
             kChoices[i].word);
    return false;
  }
  if (chosen[0]) options_ |= VX_ANY_CLASS;
  if (chosen[1]) options_ |= VX_REPLACE_DOCUMENTS;
  keeps_burned_in_ = chosen[2];
  return true;
}

bool Deidentifier::read(const Args& args) {
  for (const ProfileOption& option : kProfileOptions) {
    if (args.has(option.name)) options_ |= option.bit;
  }
  constexpr uint32_t kBothDates = VX_RETAIN_FULL_DATES | VX_RETAIN_MODIFIED_DATES;
  if ((options_ & kBothDates) == kBothDates) {
    complain("dates can be kept or moved, not both");
    return false;
  }
  long days = 0;
  if (!args.number("--shift-dates", -36525, 36525, days)) return false;
  if (args.has("--shift-dates") && days == 0) {
    complain("--shift-dates 0: that keeps the dates, which --retain-full-dates asks for");
    return false;
  }
  shift_ = static_cast<int32_t>(days);
  return read_choices(args) && blanking_.read(args) && read_secret(args);
}

bool Deidentifier::read_if_asked(const Args& args, std::unique_ptr<Deidentifier>& out) {
  if (args.has("--deidentify")) {
    out = std::make_unique<Deidentifier>();
    return out->read(args);
  }
  // Nothing goes out as it is because one word was forgotten.
  constexpr Option kRows[] = {VEXAL_DEIDENTIFY_OPTIONS};
  for (const Option& row : kRows) {
    if (!args.has(row.name)) continue;
    complain("%s needs --deidentify", row.name);
    return false;
  }
  return true;
}

VX_DEIDENTIFICATION Deidentifier::how(uint32_t more) const {
  return {options_ | more, shift_, secret_.data(), static_cast<uint32_t>(secret_.size()), nullptr, nullptr};
}

std::string Deidentifier::uid(const std::string& old) const {
  char uid[65] = "";
  const VX_DEIDENTIFICATION same = how(0);
  return VX_Deidentified_UID(&same, old.c_str(), uid) == VX_NORMAL_COMPLETION ? uid : "";
}

VX_TRANSFER_SYNTAX Deidentifier::own_syntax(const DicomFile& file) const {
  if (file.syntax() == JPEG_XL_RECOMPRESSION) return EXPLICIT_LITTLE_ENDIAN;  // nobody sees its comments
  const bool stays = !blanking_.concerns(file.id()) || is_uncompressed(file.syntax()) ||
                     compressor_of(file.syntax()) != nullptr;
  return stays ? file.syntax() : EXPLICIT_LITTLE_ENDIAN;
}

std::string Deidentifier::change(DicomFile& file, const Target& target, const Blanking::Taker& take) const {
  const bool blanked = blanking_.concerns(file.id());
  const auto finish = [&](DicomFile& object, RecodedPixels& pixels) {
    const std::string problem = apply(object.id(), blanked, target.notes);
    if (!problem.empty()) return problem;
    // What the object has is written there.
    for (const auto& pair : tags::kNamesInMeta) VX_Set_Value_To_Empty(object.id(), pair.meta);
    return take(object, pixels);
  };
  if (blanked) return blanking_.apply(file, target.syntax, target.beside, target.threads, finish);
  RecodedPixels pixels;
  std::string problem = file.write_fault(target.syntax);
  // The streams would be taken from the file as it is, or stay it.
  const bool recompressed = file.syntax() == JPEG_XL_RECOMPRESSION && target.syntax == file.syntax();
  if (problem.empty() && (recompressed || FrameForm(file.syntax(), target.syntax).keeps_streams))
    problem = "its JPEG streams would keep comments that nobody sees: another transfer syntax does without";
  if (problem.empty()) problem = cover_comments(file);
  if (problem.empty() && RecodedPixels::needed(file, target.syntax))
    problem = pixels.attach(file, target.syntax, target.threads, RecodedPixels::When::Ahead);
  if (problem.empty() && (!file.has_meta() || file.syntax() != target.syntax) &&
      file.set_syntax(target.syntax) != VX_NORMAL_COMPLETION)
    problem = "can not be written: its transfer syntax has no UID";
  return problem.empty() ? finish(file, pixels) : problem;
}

std::string Deidentifier::apply(int32_t object, bool blanked, ChangeNotes* notes) const {
  const bool has_pixels = has_attribute(object, tags::kPixelData);
  if (has_pixels && !keeps_burned_in_ && has_overlay_in_pixels(object))
    return "it has an overlay among the bits of its pixels: --burned-in keep takes it";
  if (has_pixels && !blanked && !keeps_burned_in_ && text_of(object, tags::kBurnedInAnnotation) == "YES")
    return "it says that its pixels identify the patient: --blank what does, or --burned-in keep";
  VX_DEIDENTIFICATION wanted = how(blanked ? VX_CLEAN_PIXEL_DATA : 0);
  if (notes != nullptr) {
    wanted.Report = guarded<note_change>;
    wanted.UserInfo = notes;
  }
  const VX_STATUS status = VX_Deidentify_Message(object, &wanted);
  switch (status) {
    case VX_NORMAL_COMPLETION:
      return "";
    case VX_INVALID_SOP_CLASS_UID:
      return "there are no rules for its SOP class " + describe_uid(text_of(object, tags::kSOPClassUID)) +
             ": --unknown-class by-table goes without";
    case VX_VALUE_NOT_ALLOWED:
      return "it holds a document, which nobody looks into: --documents replace puts a dummy there";
    default:
      return std::string("can not be de-identified: ") + VX_Error_Message(status);
  }
}

}  // namespace vexal
