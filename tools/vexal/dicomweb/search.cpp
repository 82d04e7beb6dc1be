#include "search.h"

#include <algorithm>
#include <charconv>

#include "base/names.h"
#include "base/session.h"
#include "base/tags.h"
#include "network/network.h"

namespace vexal {
namespace {

constexpr uint64_t kMostAnswers = 50000;  // of one request; the client asks for the rest with an offset
constexpr uint64_t kMostPassedOver = 1U << 30;
constexpr std::size_t kMostKeys = 256;
constexpr std::size_t kLongestValue = 1024;
constexpr std::size_t kLongestUidList = 64 * 1024;

constexpr uint32_t kInstanceAvailability = 0x00080056;
constexpr uint32_t kRetrieveURL = 0x00081190;

// What the index keeps of each level, and whether it is given without being asked for (PS3.18 tables 10.6.3-3
// to 10.6.3-5). Counts belong to their level alone, the others to those below it too.
struct Kept {
  uint32_t tag;
  Level level;
  bool usual = true;
  bool count = false;
};
constexpr Kept kKept[] = {
    {0x00080016, Level::Image},
    {0x00080018, Level::Image},
    {0x00080020, Level::Study},
    {0x00080021, Level::Series, false},
    {0x00080030, Level::Study},
    {0x00080050, Level::Study},
    {0x00080060, Level::Series},
    {0x00080061, Level::Study, true, true},
    {0x00080062, Level::Study, false, true},
    {0x00080080, Level::Series, false},
    {0x00080090, Level::Study},
    {0x00081010, Level::Series, false},
    {0x00081030, Level::Study},
    {0x0008103E, Level::Series},
    {0x00100010, Level::Study},
    {0x00100020, Level::Study},
    {0x00100030, Level::Study},
    {0x00100040, Level::Study},
    {0x00180015, Level::Series, false},
    {0x0020000D, Level::Study},
    {0x0020000E, Level::Series},
    {0x00200010, Level::Study},
    {0x00200011, Level::Series},
    {0x00200013, Level::Image},
    {0x00201206, Level::Study, true, true},
    {0x00201208, Level::Study, true, true},
    {0x00201209, Level::Series, true, true},
    {0x00280008, Level::Image},
    {0x00280010, Level::Image},
    {0x00280011, Level::Image},
};

bool belongs_to(const Kept& row, Level level) {
  return row.count ? row.level == level : row.level <= level;
}

bool is_kept(uint32_t tag, Level level) {
  return std::any_of(std::begin(kKept), std::end(kKept),
                     [&](const Kept& row) { return row.tag == tag && belongs_to(row, level); });
}

// The VR that the library gives an attribute of this tag.
VX_VR vr_of(uint32_t tag) {
  Message scratch;
  VX_VR vr = VX_VR_UN;
  int32_t count = 0;
  if (VX_Open_Empty_Message(&scratch.id) == VX_NORMAL_COMPLETION &&
      VX_Add_Standard_Attribute(scratch.id, tag) == VX_NORMAL_COMPLETION)
    VX_Get_Attribute_Info(scratch.id, tag, &vr, &count);
  return vr;
}

bool read_number(const std::string& text, uint64_t& number) {
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

// One answer as text, in JSON or XML.
class Answers {
 public:
  Answers(const WebContext& context, const WebSearch& search, bool xml)
      : context_(context), search_(search), xml_(xml), boundary_(new_boundary()) {}

  // False if it can not be had.
  bool add(const std::vector<std::string>& values, const std::string& charset) {
    Message object;
    if (VX_Open_Empty_Message(&object.id) != VX_NORMAL_COMPLETION) return false;
    if (!charset.empty()) set_all_text(object.id, tags::kSpecificCharacterSet, charset);
    for (std::size_t i = 0; i < values.size(); ++i) set_all_text(object.id, search_.keys[i].tag, values[i]);
    set_all_text(object.id, kInstanceAvailability, "ONLINE");
    set_all_text(object.id, kRetrieveURL, url_of(values));
    std::string text;
    problem_ = xml_ ? native_xml_of(object.id, text) : json_of(object.id, text);
    if (!problem_.empty()) return false;
    while (!text.empty() && text.back() == ' ') text.pop_back();
    const std::string between = xml_ ? "--" + boundary_ + "\r\nContent-Type: " + kDicomXml + "\r\n\r\n"
                                : count_ == 0 ? "["
                                              : ",\n";
    if (xml_) text += "\r\n";
    problem_ = spill_->append(between.data(), between.size());
    if (problem_.empty()) problem_ = spill_->append(text.data(), text.size());
    ++count_;
    return problem_.empty();
  }
  HttpResponse finish() {
    HttpResponse response;
    if (count_ == 0) response.status = 204;
    if (count_ == 0) return response;
    const std::string end = xml_ ? "--" + boundary_ + "--\r\n" : "]\n";
    problem_ = spill_->append(end.data(), end.size());
    response.with("Content-Type", xml_ ? multipart_type(kDicomXml, boundary_) : kDicomJson);
    response.body = body_of(spill_);
    return response;
  }
  uint64_t count() const { return count_; }
  const std::string& problem() const { return problem_; }

 private:
  std::string url_of(const std::vector<std::string>& values) const {
    const auto value = [&](uint32_t tag) {
      for (std::size_t i = 0; i < values.size(); ++i) {
        if (search_.keys[i].tag == tag) return values[i];
      }
      return std::string();
    };
    std::string url = context_.root + "/studies/" + value(tags::kStudyInstanceUID);
    if (search_.level != Level::Study) url += "/series/" + value(tags::kSeriesInstanceUID);
    if (search_.level == Level::Image) url += "/instances/" + value(tags::kSOPInstanceUID);
    return url;
  }

  const WebContext& context_;
  const WebSearch& search_;
  bool xml_;
  std::string boundary_;
  std::shared_ptr<Spill> spill_ = std::make_shared<Spill>();
  uint64_t count_ = 0;
  std::string problem_;
};

}  // namespace

CatalogKey& WebSearch::key(uint32_t tag) {
  const auto found =
      std::find_if(keys.begin(), keys.end(), [&](const CatalogKey& row) { return row.tag == tag; });
  if (found != keys.end()) return *found;
  keys.push_back({tag, vr_of(tag), ""});
  return keys.back();
}

std::string WebSearch::add_key(const std::string& name, std::string value) {
  uint32_t tag = 0;
  if (!parse_tag(name, tag)) return name + ": is no attribute that can be searched by";
  if (!is_kept(tag, level)) return name + ": is not in the index of this level and can not be searched by";
  CatalogKey& row = key(tag);
  // UIDs in a list are parted by commas here, and by backslashes as everywhere.
  if (row.vr == VX_VR_UI) std::replace(value.begin(), value.end(), ',', '\\');
  if (value.size() > (row.vr == VX_VR_UI ? kLongestUidList : kLongestValue)) return name + ": is too long";
  if (!row.value.empty() && row.value != value) return name + ": is there twice";
  row.value = std::move(value);
  return keys.size() > kMostKeys ? "too many keys" : "";
}

// What the index lacks is not returned (PS3.18 section 8.3.4.3).
std::string WebSearch::include(const std::string& names) {
  for (std::size_t start = 0; start <= names.size();) {
    const std::size_t end = std::min(names.find(',', start), names.size());
    const std::string name = names.substr(start, end - start);
    start = end + 1;
    uint32_t tag = 0;
    if (name == "all") {
      add_kept(Level::Patient, true);
    } else if (parse_tag(name.substr(0, name.find('.')), tag)) {
      if (is_kept(tag, level)) key(tag);
    } else {
      return "includefield " + name + ": is no attribute";
    }
    if (keys.size() > kMostKeys) return "too many keys";
  }
  return "";
}

std::string WebSearch::add_parameter(const std::string& name, const std::string& value) {
  if (name == "accept" || name == "charset") return "";
  if (name == "limit") return read_number(value, limit) ? "" : "limit: is no number";
  if (name == "offset") return read_number(value, offset) ? "" : "offset: is no number";
  if (name == "includefield") return include(value);
  if (name == "fuzzymatching")
    return value == "true" || value == "false" ? "" : "fuzzymatching: give true or false";
  return add_key(name, value);
}

void WebSearch::add_kept(Level above, bool all) {
  for (const Kept& row : kKept) {
    if (row.level > above && belongs_to(row, level) && (all || row.usual)) key(row.tag);
  }
  // For the URL of what is found.
  key(tags::kStudyInstanceUID);
  if (level != Level::Study) key(tags::kSeriesInstanceUID);
}

std::string WebSearch::read(const WebTarget& target, const HttpFields& query) {
  level = target.resource == WebResource::Studies  ? Level::Study
          : target.resource == WebResource::Series ? Level::Series
                                                   : Level::Image;
  // What the path names need not be told again, but for its UIDs.
  const Level above = !target.series.empty()  ? Level::Series
                      : !target.study.empty() ? Level::Study
                                              : Level::Patient;
  add_kept(above, false);
  for (const CatalogKey& named : keys_of(target)) key(named.tag).value = named.value;
  for (const auto& [name, value] : query) {
    const std::string error = add_parameter(name, value);
    if (!error.empty()) return error;
  }
  return "";
}

HttpResponse search(const WebContext& context) {
  const std::vector<MediaRange> ranges = accepted_by(context.request);
  const auto found = std::find_if(ranges.begin(), ranges.end(), takes_text);
  if (found == ranges.end())
    return HttpResponse::problem(406, "Answers are application/dicom+json, or multipart/related of XML.");
  WebSearch asked;
  if (const std::string error = asked.read(context.target, context.request.query); !error.empty())
    return HttpResponse::problem(400, error);
  Answers answers(context, asked, wants_xml(*found));
  const uint64_t most = asked.limit != 0 ? std::min(asked.limit, kMostAnswers) : kMostAnswers;
  uint64_t passed = 0;
  bool more = false;
  const std::string error =
      context.holdings.find(asked.level, asked.keys, nullptr,
                            [&](const std::vector<std::string>& values, const std::string& charset) {
                              if (passed < asked.offset) return ++passed <= kMostPassedOver;
                              more = answers.count() == most;
                              return !more && answers.add(values, charset);
                            });
  HttpResponse response = answers.finish();
  if (!error.empty() || !answers.problem().empty()) {
    report("web", error.empty() ? answers.problem() : error);
    return HttpResponse::problem(500, "The search came to no end.");
  }
  if (more) response.with("Warning", "299 vexal \"There are further results that can be requested\"");
  const std::string* fuzzy = context.request.parameter("fuzzymatching");
  if (fuzzy != nullptr && *fuzzy == "true")
    response.with("Warning",
                  "299 vexal \"The fuzzymatching parameter is not supported. Only literal matching "
                  "has been performed.\"");
  return response;
}

}  // namespace vexal
