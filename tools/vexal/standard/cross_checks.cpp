#include "cross_checks.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <set>

#include "base/attributes.h"
#include "base/names.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"
#include "files/charset.h"

namespace vexal {
namespace {

// Attributes for which the standard gives a choice of VR, by the choice.
constexpr uint32_t kSignedOrNot[] = {0x00189810, 0x00221452, 0x00280071, 0x00280104, 0x00280105, 0x00280106,
                                     0x00280107, 0x00280108, 0x00280109, 0x00280110, 0x00280111, 0x00280120,
                                     0x00280121, 0x00281100, 0x00281101, 0x00281102, 0x00281103, 0x00281111,
                                     0x00281112, 0x00281113, 0x00281200, 0x00283002, 0x00283006, 0x00409211,
                                     0x00409216, 0x00603004, 0x00603006};
constexpr uint32_t kBytesOrWords[] = {0x00143050, 0x00143070, 0x00281200, 0x00283006, 0x5000200C, 0x50003000,
                                      0x54000110, 0x54000112, 0x5400100A, 0x54001010, 0x60003000, 0x7FE00010};

constexpr uint32_t kSingleItem[] = {
#include "single_items.inc"
};

// Classes of one frame, by what stands behind the root of the storage classes.
constexpr std::string_view kStorageRoot = "1.2.840.10008.5.1.4.1.1.";
constexpr std::string_view kReports = "1.2.840.10008.5.1.4.1.1.88.";
constexpr std::string_view kPresentationStates = "1.2.840.10008.5.1.4.1.1.11.";
constexpr std::string_view kSingleFrame[] = {"1",      "1.1",    "1.1.1",  "1.2", "1.2.1", "1.3",
                                             "1.3.1",  "2",      "4",      "6.1", "7",     "77.1.1",
                                             "77.1.2", "77.1.3", "77.1.4", "128"};
constexpr std::string_view kPrimaryOnly[] = {"2.1",   "2.2",    "4.1",    "4.2",    "4.3",  "4.4",  "130",
                                             "128.1", "13.1.1", "13.1.2", "13.1.3", "66.4", "66.7", "30"};
constexpr std::string_view kThreeValues[] = {"2", "4", "12.1", "12.2", "481.1"};  // of Image Type
constexpr std::string_view kFourValues[] = {"2.1",    "4.1",    "4.3",  "6.2",  "12.1.1", "12.2.1", "13.1.1",
                                            "13.1.2", "13.1.3", "14.1", "14.2", "20",     "30",     "130"};
constexpr std::string_view kDerivedOnly[] = {"66.4", "66.7", "30"};
constexpr std::string_view kSegmentations[] = {"66.4", "66.5", "66.7"};
constexpr std::string_view kAlwaysWithRatio[] = {"81.1", "82.1"};  // the ratio of pixels is of type 1

// Values that go through as they are: no other intercept and slope than 0 and 1, or no other intercept.
constexpr std::string_view kIdentityRescale[] = {"1.1", "1.1.1", "1.2", "1.2.1",  "1.3",    "1.3.1",
                                                 "6.2", "7.2",   "30",  "13.1.3", "13.1.4", "13.1.5"};
constexpr std::string_view kZeroIntercept[] = {"128"};
// X-ray images whose shape of the presentation LUT follows from what their pixels stand for.
constexpr std::string_view kShapeOfPixels[] = {"1.1",   "1.1.1",  "1.2",    "1.2.1",  "1.3",
                                               "1.3.1", "12.1.1", "12.2.1", "13.1.4", "13.1.5"};

// Sequences that are nothing with a single item.
constexpr uint32_t kTwoItems[] = {0x00700402, 0x30080160, 0x300A0111, 0x300A02D0, 0x300A03A8};

// What pixels may stand for in the syntaxes that say so (PS3.5 section 8.2).
constexpr struct {
  std::string_view syntax, interpretations;
} kInterpretations[] = {
    {"1.2.840.10008.1.2.4.50", "MONOCHROME1|MONOCHROME2|YBR_FULL_422|RGB"},
    {"1.2.840.10008.1.2.4.51", "MONOCHROME1|MONOCHROME2|YBR_FULL_422|RGB"},
    {"1.2.840.10008.1.2.4.57", "MONOCHROME1|MONOCHROME2|PALETTE COLOR|YBR_FULL|RGB"},
    {"1.2.840.10008.1.2.4.70", "MONOCHROME1|MONOCHROME2|PALETTE COLOR|YBR_FULL|RGB"},
    {"1.2.840.10008.1.2.4.80", "MONOCHROME1|MONOCHROME2|PALETTE COLOR|YBR_FULL|RGB"},
    {"1.2.840.10008.1.2.4.81", "MONOCHROME1|MONOCHROME2|YBR_FULL|RGB"},
    {"1.2.840.10008.1.2.4.90", "MONOCHROME1|MONOCHROME2|PALETTE COLOR|YBR_RCT|YBR_FULL|RGB"},
    {"1.2.840.10008.1.2.4.91", "MONOCHROME1|MONOCHROME2|YBR_RCT|YBR_ICT|YBR_FULL|RGB"},
    {"1.2.840.10008.1.2.4.110", "MONOCHROME1|MONOCHROME2|PALETTE COLOR|YBR_FULL|RGB|XYB"},
    {"1.2.840.10008.1.2.4.111", "MONOCHROME1|MONOCHROME2|YBR_FULL_422|RGB"},
    {"1.2.840.10008.1.2.4.112", "MONOCHROME1|MONOCHROME2|YBR_FULL|RGB|XYB"},
    {"1.2.840.10008.1.2.4.201", "MONOCHROME1|MONOCHROME2|PALETTE COLOR|YBR_RCT|YBR_FULL|RGB"},
    {"1.2.840.10008.1.2.4.202", "MONOCHROME1|MONOCHROME2|PALETTE COLOR|YBR_RCT|YBR_FULL|RGB"},
    {"1.2.840.10008.1.2.4.203", "MONOCHROME1|MONOCHROME2|YBR_RCT|YBR_ICT|YBR_FULL|RGB"},
};

template <typename List>
bool contains(const List& list, uint32_t tag) {
  return std::find(std::begin(list), std::end(list), tag) != std::end(list);
}

uint32_t base_tag(uint32_t tag) {
  const uint32_t high = tag >> 24;
  return high == 0x50 || high == 0x60 ? tag & 0xFF00FFFFU : tag;
}

// Whether a UID is one of these classes.
template <typename List>
bool is_class(std::string_view uid, const List& endings) {
  if (!uid.starts_with(kStorageRoot)) return false;
  return std::find(std::begin(endings), std::end(endings), uid.substr(kStorageRoot.size())) !=
         std::end(endings);
}

bool may_have_vr(uint32_t tag, std::string_view wanted, std::string_view given) {
  if (wanted == given || wanted == "UN" || given == "UN" || wanted.empty()) return true;
  if ((wanted == "UT" && given == "UR") || (wanted == "UR" && given == "UT")) return true;  // it has changed
  const bool numbers = given == "US" || given == "SS";
  const bool bulk = given == "OB" || given == "OW";
  return (numbers && contains(kSignedOrNot, base_tag(tag))) ||
         (bulk && contains(kBytesOrWords, base_tag(tag)));
}

// By the library's dictionary, which is loaded; UN for what it does not know.
std::string_view dictionary_vr(uint32_t tag) {
  char name[128];
  VX_VR vr = VX_VR_UN;
  uint16_t low = 0;
  uint16_t high = 0;
  VX_Get_Tags_Dict_Info(tag, name, sizeof name, &vr, &low, &high);
  return vr_letters(vr);
}

bool number_of(int32_t object, uint32_t tag, int32_t& value) {
  return VX_Get_Value_To_Int(object, tag, &value) == VX_NORMAL_COMPLETION;
}

// Up to `limit` values; fewer where one can not be read.
std::vector<double> numbers_of(int32_t object, uint32_t tag, std::size_t limit) {
  std::vector<double> values;
  double value = 0;
  VX_STATUS status = VX_Get_Value_To_Double(object, tag, &value);
  for (; status == VX_NORMAL_COMPLETION && values.size() < limit;
       status = VX_Get_Next_Value_To_Double(object, tag, &value)) {
    values.push_back(value);
  }
  return values;
}

// ---- Values by themselves ----

// YYYYMMDD, a day that there is.
bool is_date(std::string_view text) {
  constexpr int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (text.size() != 8 || text.find_first_not_of("0123456789") != std::string_view::npos) return false;
  const int month = (text[4] - '0') * 10 + text[5] - '0';
  const int day = (text[6] - '0') * 10 + text[7] - '0';
  return month >= 1 && month <= 12 && day >= 1 && day <= kDays[month - 1];
}

// What is wrong with a UID of the right characters; null if nothing is.
const char* uid_fault(std::string_view uid) {
  if (uid.find_first_not_of("0123456789.") != std::string_view::npos)
    return nullptr;  // the library's finding
  const std::size_t end = uid.find('.');
  if (end == std::string_view::npos) return "a UID has more than one component";
  if (end != 1 || uid[0] > '2') return "the first component of a UID is 0, 1 or 2";
  for (std::size_t start = 0; start <= uid.size();) {
    const std::size_t dot = std::min(uid.find('.', start), uid.size());
    if (dot == start) return "a component of a UID may not be empty";
    if (uid[start] == '0' && dot > start + 1) return "a component of a UID has no leading zeros";
    start = dot + 1;
  }
  if (uid.find_first_not_of("0.") == std::string_view::npos) return "a UID is not made of zeros";
  const std::string_view second = uid.substr(2, uid.find('.', 2) - 2);
  const bool small = second.size() == 1 || (second.size() == 2 && second[0] < '4');
  return uid[0] < '2' && !small ? "the second component of a UID is below 40 where the first is 0 or 1"
                                : nullptr;
}

class Checker {
 public:
  Checker(const DicomFile& file, bool query) : file_(file), query_(query) {}

  std::vector<CrossFinding> run() {
    const int32_t root = file_.id();
    if (file_.has_meta() && !query_) meta_group(root);
    object(root, names_charset(root));
    if (!query_) {
      identifiers(root);
      image_type(root);
      frames(root);
      evidence(root);
    }
    return std::move(findings_);
  }

 private:
  void add(int32_t object, uint32_t tag, VX_STATUS status, std::string reason, int32_t number = 0) {
    findings_.push_back({{tag, object, number, status}, std::move(reason)});
  }

  // ---- The walk ----

  // Whether text may hold more than ASCII: an empty set is none, and so is a word that names none.
  static bool names_charset(int32_t id) {
    if (!has_attribute(id, tags::kSpecificCharacterSet)) return false;
    int32_t count = 0;
    VX_Get_Value_Count(id, tags::kSpecificCharacterSet, &count);
    const std::string first = text_of(id, tags::kSpecificCharacterSet);
    return count > 1 || first.starts_with("ISO") || first.starts_with("GB");
  }

  void object(int32_t id, bool charset_named) {
    struct Attribute {
      uint32_t tag;
      VX_VR vr;
      int32_t count;
    };
    std::vector<Attribute> attributes;
    for_each_attribute(id, [&](uint32_t tag, VX_VR vr, int32_t count) {
      attributes.push_back({tag, vr, count});
    });
    for (const auto& [tag, vr, count] : attributes) attribute(id, tag, vr, count, charset_named);
    if (!query_) {
      lookup_table(id);
      directions(id);
      output_values(id);
      reference(id);
      sizes(id);
      if (has_attribute(id, tags::kPixelData)) pixels(id);
    }
  }

  void attribute(int32_t id, uint32_t tag, VX_VR vr, int32_t count, bool charset_named) {
    if (tag < tags::kFirstOfDataSet) return meta_value(id, tag, vr, count);
    if (!is_private(tag)) {
      const std::string_view wanted = dictionary_vr(tag);
      if (!may_have_vr(tag, wanted, vr_letters(vr))) {
        add(id, tag, VX_INVALID_VR_CODE, "VR " + std::string(wanted) + ", not " + vr_letters(vr));
      }
    }
    if (vr == VX_VR_SQ) {
      const std::vector<int32_t> items = sequence_items(id, tag);
      if (items.size() > 1 && !query_ && contains(kSingleItem, tag))
        add(id, tag, VX_TOO_MANY_VALUES, std::to_string(items.size()) + " items where there is one");
      if (items.size() == 1 && !query_ && contains(kTwoItems, tag))
        add(id, tag, VX_TOO_FEW_VALUES, "one item where there are two or more");
      for (const int32_t item : items) object(item, charset_named || names_charset(item));
    } else if (vr == VX_VR_UI || (vr == VX_VR_DA && !query_) || (has_charset(vr) && !charset_named)) {
      text_values(id, tag, vr, count);
    }
  }

  void text_values(int32_t id, uint32_t tag, VX_VR vr, int32_t count) {
    std::vector<TextValue> values;
    if (read_texts(id, tag, count, false, values) != VX_NORMAL_COMPLETION) return;
    for (std::size_t i = 0; i < values.size(); ++i) {
      const std::string& text = values[i].bytes;
      const auto number = static_cast<int32_t>(i) + 1;
      if (text.empty()) continue;
      if (vr == VX_VR_UI) {
        if (const char* fault = uid_fault(text)) add(id, tag, VX_INVALID_VALUE_FOR_VR, fault, number);
      } else if (vr == VX_VR_DA) {
        if (!is_date(text)) add(id, tag, VX_INVALID_VALUE_FOR_VR, "a date is YYYYMMDD", number);
      } else if (std::any_of(text.begin(), text.end(),
                             [](char c) { return static_cast<signed char>(c) < 0; })) {
        add(id, tag, VX_INVALID_CHARS_IN_VALUE, "without Specific Character Set (0008,0005) text is ASCII",
            number);
      }
    }
  }

  void meta_value(int32_t id, uint32_t tag, VX_VR vr, int32_t count) {
    if (tag >> 16 != 2 || count != 1) return;
    if (vr == VX_VR_UI) text_values(id, tag, vr, count);
    if (vr != VX_VR_AE) return;
    const std::string title = text_of(id, tag);
    const auto bad = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F || c == '\\'; };
    if (std::any_of(title.begin(), title.end(), bad))
      add(id, tag, VX_INVALID_CHARS_IN_VALUE, "an application entity title has no control characters", 1);
  }

  // ---- The object as a whole ----

  void meta_group(int32_t root) {
    if (has_attribute(root, tags::kDirectoryRecordSequence)) return;  // a directory has neither
    for (const auto& pair : tags::kNamesInMeta) {
      const std::string meta = text_of(root, pair.meta);
      const std::string own = text_of(root, pair.own);
      if (meta.empty())
        add(root, pair.meta, VX_REQUIRED_ATTRIBUTE_MISSING, "type 1 of the file meta information");
      if (meta.empty() || meta == own) continue;
      add(root, pair.meta, VX_INCOMPATIBLE_VALUE,
          "the data set has " + (own.empty() ? "no " + describe_tag(pair.own) : own));
    }
  }

  // What identifies different things is different.
  void identifiers(int32_t root) {
    constexpr uint32_t kIdentifiers[] = {tags::kSOPInstanceUID, tags::kStudyInstanceUID,
                                         tags::kSeriesInstanceUID, tags::kFrameOfReferenceUID};
    std::map<std::string, uint32_t> seen;
    for (const uint32_t tag : kIdentifiers) {
      const std::string uid = text_of(root, tag);
      if (uid.empty()) continue;
      const auto [at, fresh] = seen.emplace(uid, tag);
      if (!fresh) add(root, at->second, VX_INCOMPATIBLE_VALUE, "the same UID as in " + describe_tag(tag));
    }
  }

  // Values 1 and 2 are the same for all images (PS3.3 section C.7.6.1.1.2); some classes ask for more of
  // them.
  void image_type(int32_t root) {
    std::vector<TextValue> values;
    int32_t count = 0;
    if (VX_Get_Value_Count(root, tags::kImageType, &count) != VX_NORMAL_COMPLETION ||
        read_texts(root, tags::kImageType, count, false, values) != VX_NORMAL_COMPLETION) {
      return;
    }
    const std::string& kind = values[0].bytes;
    if (kind != "ORIGINAL" && kind != "DERIVED" && kind != "MIXED" && !kind.empty())
      add(root, tags::kImageType, VX_NOT_ONE_OF_ENUMERATED_VALUES, "ORIGINAL | DERIVED | MIXED", 1);
    if (count > 1 && values[1].bytes != "PRIMARY" && values[1].bytes != "SECONDARY" &&
        !values[1].bytes.empty())
      add(root, tags::kImageType, VX_NOT_ONE_OF_ENUMERATED_VALUES, "PRIMARY | SECONDARY", 2);
    const std::string sop_class = text_of(root, tags::kSOPClassUID);
    if (kind != "DERIVED" && !kind.empty() && is_class(sop_class, kDerivedOnly))
      add(root, tags::kImageType, VX_NOT_ONE_OF_ENUMERATED_VALUES, "DERIVED", 1);
    if (count > 1 && values[1].bytes == "SECONDARY" && is_class(sop_class, kPrimaryOnly))
      add(root, tags::kImageType, VX_NOT_ONE_OF_ENUMERATED_VALUES, "PRIMARY", 2);
    const int32_t wanted = is_class(sop_class, kFourValues) ? 4 : is_class(sop_class, kThreeValues) ? 3 : 0;
    if (count < wanted)
      add(root, tags::kImageType, VX_TOO_FEW_VALUES, std::to_string(wanted) + " values in this class");
  }

  void frames(int32_t root) {
    const std::vector<int32_t> items = sequence_items(root, tags::kPerFrameFunctionalGroupsSequence);
    int32_t count = 0;
    if (number_of(root, tags::kNumberOfFrames, count) && count > 1 &&
        is_class(text_of(root, tags::kSOPClassUID), kSingleFrame))
      add(root, tags::kNumberOfFrames, VX_INCOMPATIBLE_VALUE, "images of this class have one frame", 1);
    if (!items.empty() && number_of(root, tags::kNumberOfFrames, count) && count >= 0 &&
        static_cast<std::size_t>(count) != items.size()) {
      add(root, tags::kPerFrameFunctionalGroupsSequence, VX_INCOMPATIBLE_VALUE,
          std::to_string(items.size()) + " items for " + std::to_string(count) + " frames");
    }
    const std::size_t dimensions = sequence_items(root, tags::kDimensionIndexSequence).size();
    for (const int32_t item : items) {
      for (const int32_t content : sequence_items(item, tags::kFrameContentSequence)) {
        int32_t values = 0;
        if (VX_Get_Value_Count(content, tags::kDimensionIndexValues, &values) != VX_NORMAL_COMPLETION)
          continue;
        if (dimensions != 0 && static_cast<std::size_t>(values) != dimensions)
          add(content, tags::kDimensionIndexValues, VX_INCOMPATIBLE_VALUE,
              std::to_string(values) + " values for " + std::to_string(dimensions) + " dimensions");
      }
    }
  }

  // A reference to frames or segments needs an instance that has them; a long code has no room in a short
  // one.
  void reference(int32_t id) {
    const std::string sop_class = text_of(id, tags::kReferencedSOPClassUID);
    const bool no_image = sop_class.starts_with("1.2.840.10008.3.") || sop_class.starts_with(kReports) ||
                          sop_class.starts_with(kPresentationStates);
    if (has_attribute(id, tags::kReferencedFrameNumber) && (no_image || is_class(sop_class, kSingleFrame)))
      add(id, tags::kReferencedFrameNumber, VX_VALUE_NOT_ALLOWED,
          "instances of " + sop_class + " have no frames to choose from");
    if (has_attribute(id, tags::kReferencedSegmentNumber) && sop_class.starts_with("1.2.840.10008.") &&
        !is_class(sop_class, kSegmentations))
      add(id, tags::kReferencedSegmentNumber, VX_VALUE_NOT_ALLOWED,
          "instances of " + sop_class + " have no segments");
    const std::string kind = text_of(id, tags::kFrameType);
    if (!kind.empty() && kind != "ORIGINAL" && kind != "DERIVED" && kind != "MIXED")
      add(id, tags::kFrameType, VX_NOT_ONE_OF_ENUMERATED_VALUES, "ORIGINAL | DERIVED | MIXED", 1);
    const std::string code = text_of(id, tags::kLongCodeValue);
    if (!code.empty() && code.size() <= 16)
      add(id, tags::kLongCodeValue, VX_INCOMPATIBLE_VALUE,
          "up to 16 characters are a Code Value (0008,0100)");
  }

  // What is above zero, and a ratio of pixels only where no spacing gives it (PS3.3 sections 10.7.1.3,
  // C.7.6.3, C.11.2.1.2).
  void sizes(int32_t id) {
    for (const uint32_t tag :
         {tags::kPixelSpacing, tags::kImagerPixelSpacing, tags::kNominalScannedPixelSpacing,
          tags::kWindowWidth, tags::kOverlayRows, tags::kOverlayColumns}) {
      if (!has_attribute(id, tag)) continue;
      const std::vector<double> values = numbers_of(id, tag, 2);
      for (std::size_t i = 0; i < values.size(); ++i) {
        if (values[i] <= 0) add(id, tag, VX_VALUE_OUT_OF_RANGE, "is above 0", static_cast<int32_t>(i) + 1);
      }
    }
    if (!has_attribute(id, tags::kPixelAspectRatio) ||
        is_class(text_of(id, tags::kSOPClassUID), kAlwaysWithRatio))
      return;
    for (const uint32_t spacing :
         {tags::kPixelSpacing, tags::kImagerPixelSpacing, tags::kNominalScannedPixelSpacing}) {
      if (has_attribute(id, spacing))
        return add(id, tags::kPixelAspectRatio, VX_VALUE_NOT_ALLOWED, "beside " + describe_tag(spacing));
    }
    const std::vector<double> ratio = numbers_of(id, tags::kPixelAspectRatio, 2);
    if (ratio.size() == 2 && ratio[0] == ratio[1])
      add(id, tags::kPixelAspectRatio, VX_VALUE_NOT_ALLOWED, "a ratio of 1:1 is not given");
  }

  // Every instance that a report's content refers to is listed as evidence (PS3.3 section C.17.2.3).
  void evidence(int32_t root) {
    if (!has_attribute(root, tags::kContentSequence)) return;
    std::set<std::string> listed;
    for (const uint32_t tag :
         {tags::kCurrentRequestedProcedureEvidenceSequence, tags::kPertinentOtherEvidenceSequence}) {
      for (const int32_t study : sequence_items(root, tag)) {
        for (const int32_t series : sequence_items(study, tags::kReferencedSeriesSequence)) {
          for (const int32_t instance : sequence_items(series, tags::kReferencedSOPSequence))
            listed.insert(text_of(instance, tags::kReferencedSOPInstanceUID));
        }
      }
    }
    content(root, listed);
  }

  void content(int32_t node, const std::set<std::string>& listed) {
    for (const int32_t reference : sequence_items(node, tags::kReferencedSOPSequence))
      referenced(reference, listed);
    for (const int32_t child : sequence_items(node, tags::kContentSequence)) content(child, listed);
  }

  void referenced(int32_t reference, const std::set<std::string>& listed) {
    const std::string uid = text_of(reference, tags::kReferencedSOPInstanceUID);
    if (!uid.empty() && !listed.contains(uid))
      add(reference, tags::kReferencedSOPInstanceUID, VX_INCOMPATIBLE_VALUE,
          "is in no item of the evidence sequences", 1);
    for (const int32_t state : sequence_items(reference, tags::kReferencedSOPSequence))
      referenced(state, listed);
  }

  // ---- Lengths ----

  // Bytes of a value; false where they can not be told, or are those of fragments.
  bool length_of(int32_t id, uint32_t tag, uint64_t& length) const {
    if (const KeptValue* kept = file_.kept(id, tag)) {
      length = kept->length;
      return kept->length != kUndefinedLength;
    }
    uint32_t bytes = 0;
    if (VX_Get_Value_Length(id, tag, 1, &bytes) != VX_NORMAL_COMPLETION) return false;
    length = bytes;
    return true;
  }

  void pixels(int32_t id) {
    int32_t rows = 0;
    int32_t columns = 0;
    int32_t samples = 0;
    int32_t allocated = 0;
    int32_t stored = 0;
    int32_t high = 0;
    int32_t frames = 1;
    number_of(id, tags::kNumberOfFrames, frames);
    const bool depth =
        number_of(id, tags::kBitsAllocated, allocated) && number_of(id, tags::kBitsStored, stored);
    if (depth && stored > allocated)
      add(id, tags::kBitsStored, VX_INCOMPATIBLE_VALUE, "more bits stored than allocated");
    if (depth && number_of(id, tags::kHighBit, high) && high != stored - 1)
      add(id, tags::kHighBit, VX_INCOMPATIBLE_VALUE,
          "is one less than Bits Stored, " + std::to_string(stored - 1));
    const bool has_size = number_of(id, tags::kRows, rows) && number_of(id, tags::kColumns, columns);
    if (has_size && rows == 0) add(id, tags::kRows, VX_VALUE_OUT_OF_RANGE, "no image has 0 rows");
    if (has_size && columns == 0) add(id, tags::kColumns, VX_VALUE_OUT_OF_RANGE, "no image has 0 columns");
    const std::string interpretation = text_of(id, tags::kPhotometricInterpretation);
    const bool has_samples = number_of(id, tags::kSamplesPerPixel, samples);
    if (has_samples) kinds_of_pixels(id, samples, interpretation);
    uint64_t length = 0;
    const bool measured = length_of(id, tags::kPixelData, length);
    if (!is_uncompressed(file_.syntax())) {
      if (measured && length == 0) add(id, tags::kPixelData, VX_VALUE_MAY_NOT_BE_NULL, "has fragments");
      return;
    }
    if (!measured || !depth || !has_size || !has_samples || frames <= 0 || allocated <= 0) return;
    uint64_t count =
        static_cast<uint64_t>(rows) * static_cast<uint64_t>(columns) * static_cast<uint64_t>(frames);
    count =
        samples == 3 && interpretation == "YBR_FULL_422" ? count * 2 : count * static_cast<uint64_t>(samples);
    const uint64_t bytes = (count * static_cast<uint64_t>(allocated) + 7) / 8;
    if (length != bytes + bytes % 2)
      add(id, tags::kPixelData, VX_INVALID_LENGTH_FOR_VR,
          std::to_string(length) + " bytes, not the " + std::to_string(bytes + bytes % 2) +
              " of its description");
  }

  // What a pixel consists of.
  void kinds_of_pixels(int32_t id, int32_t samples, const std::string& interpretation) {
    const bool single = interpretation.starts_with("MONOCHROME") || interpretation == "PALETTE COLOR";
    const bool three = interpretation == "RGB" || interpretation.starts_with("YBR_");
    if ((samples != 1 && samples != 3 && samples != 4) || (single && samples != 1) || (three && samples != 3))
      add(id, tags::kSamplesPerPixel, VX_NOT_ONE_OF_ENUMERATED_VALUES,
          single  ? "1"
          : three ? "3"
                  : "1 | 3",
          1);
    const std::string syntax = id == file_.id() ? text_of(id, tags::kTransferSyntaxUID) : "";
    for (const auto& row : kInterpretations) {
      if (syntax != row.syntax || interpretation.empty()) continue;
      if (("|" + std::string(row.interpretations) + "|").find("|" + interpretation + "|") ==
          std::string::npos)
        add(id, tags::kPhotometricInterpretation, VX_NOT_ONE_OF_ENUMERATED_VALUES,
            "in this transfer syntax " + std::string(row.interpretations), 1);
    }
  }

  void lookup_table(int32_t id) {
    constexpr struct {
      uint32_t descriptor, data;
    } kTables[] = {{tags::kLUTDescriptor, tags::kLUTData},
                   {tags::kRedPaletteColorLookupTableDescriptor, tags::kRedPaletteColorLookupTableData},
                   {tags::kGreenPaletteColorLookupTableDescriptor, tags::kGreenPaletteColorLookupTableData},
                   {tags::kBluePaletteColorLookupTableDescriptor, tags::kBluePaletteColorLookupTableData}};
    for (const auto& table : kTables) {
      const std::vector<double> described = numbers_of(id, table.descriptor, 3);
      const bool palette = table.descriptor != tags::kLUTDescriptor;
      if (described.size() == 3 &&
          (palette ? described[2] != 8 && described[2] != 16 : described[2] < 8 || described[2] > 16))
        add(id, table.descriptor, VX_NOT_ONE_OF_ENUMERATED_VALUES, palette ? "8 | 16" : "8 to 16", 3);
      uint64_t length = 0;
      if (described.size() != 3 || !has_attribute(id, table.data) || !table_length(id, table.data, length))
        continue;
      const auto entries = static_cast<uint64_t>(described[0] == 0  ? 65536
                                                 : described[0] < 0 ? described[0] + 65536
                                                                    : described[0]);
      // Entries of 8 bits lie in bytes, padded to an even length; others in words.
      const uint64_t wanted = described[2] == 8 ? entries + entries % 2 : entries * 2;
      if (length != wanted)
        add(id, table.data, VX_INVALID_LENGTH_FOR_VR,
            std::to_string(length) + " bytes for " + std::to_string(entries) + " entries");
    }
  }

  bool table_length(int32_t id, uint32_t tag, uint64_t& length) const {
    VX_VR vr = 0;
    int32_t count = 0;
    if (VX_Get_Attribute_Info(id, tag, &vr, &count) != VX_NORMAL_COMPLETION) return false;
    if (vr == VX_VR_US || vr == VX_VR_SS) {
      length = static_cast<uint64_t>(count) * 2;
      return true;
    }
    return length_of(id, tag, length);
  }

  // Where the class leaves no choice (PS3.3 sections C.8.11.3, C.8.9.4, C.7.6.16.2.9).
  void output_values(int32_t id) {
    const std::string sop_class = text_of(file_.id(), tags::kSOPClassUID);
    const auto fixed = [&](uint32_t tag, double wanted) {
      if (!has_attribute(id, tag)) return;
      const std::vector<double> value = numbers_of(id, tag, 1);
      if (!value.empty() && value[0] != wanted)
        add(id, tag, VX_NOT_ONE_OF_ENUMERATED_VALUES, wanted == 0 ? "0" : "1", 1);
    };
    const bool identity = is_class(sop_class, kIdentityRescale);
    if (identity || is_class(sop_class, kZeroIntercept)) fixed(tags::kRescaleIntercept, 0);
    if (identity) fixed(tags::kRescaleSlope, 1);
    if (id != file_.id()) return;
    if (text_of(id, tags::kSegmentationType) == "BINARY") fixed(tags::kBitsAllocated, 1);
    if (!is_class(sop_class, kShapeOfPixels)) return;
    const std::string shape = text_of(id, tags::kPresentationLUTShape);
    const std::string pixels = text_of(id, tags::kPhotometricInterpretation);
    if ((shape == "IDENTITY" && pixels == "MONOCHROME1") || (shape == "INVERSE" && pixels == "MONOCHROME2"))
      add(id, tags::kPresentationLUTShape, VX_NOT_ONE_OF_ENUMERATED_VALUES,
          std::string(shape == "INVERSE" ? "IDENTITY" : "INVERSE") + " for " + pixels, 1);
  }

  // ---- Geometry ----

  void directions(int32_t id) {
    constexpr double kTolerance = 0.01;
    if (has_attribute(id, tags::kPatientOrientation)) {
      std::vector<TextValue> ways;
      read_texts(id, tags::kPatientOrientation, 2, false, ways);
      if (ways.size() == 2 && ways[0].bytes == ways[1].bytes && !ways[0].bytes.empty())
        add(id, tags::kPatientOrientation, VX_INCOMPATIBLE_VALUE, "rows and columns point the same way");
    }
    for (const uint32_t tag :
         {tags::kImageOrientationPatient, tags::kImageOrientationSlide, tags::kSlabOrientation,
          tags::kDiffusionGradientOrientation, tags::kVelocityEncodingDirection}) {
      if (!has_attribute(id, tag)) continue;
      const std::vector<double> v = numbers_of(id, tag, 6);
      for (std::size_t i = 0; i + 3 <= v.size(); i += 3) {
        const double size = std::sqrt(v[i] * v[i] + v[i + 1] * v[i + 1] + v[i + 2] * v[i + 2]);
        if (std::abs(size - 1) < kTolerance) continue;
        add(id, tag, VX_VALUE_OUT_OF_RANGE, "direction cosines have length 1", static_cast<int32_t>(i) + 1);
      }
      if (v.size() == 6 && std::abs(v[0] * v[3] + v[1] * v[4] + v[2] * v[5]) > kTolerance)
        add(id, tag, VX_VALUE_OUT_OF_RANGE, "rows and columns are orthogonal");
    }
  }

  const DicomFile& file_;
  bool query_;
  std::vector<CrossFinding> findings_;
};

}  // namespace

std::vector<CrossFinding> cross_check(const DicomFile& file, bool query) {
  return Checker(file, query).run();
}

}  // namespace vexal
