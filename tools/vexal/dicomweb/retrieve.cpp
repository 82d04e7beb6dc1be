#include "retrieve.h"

#include <algorithm>

#include "base/names.h"
#include "base/object_values.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/values.h"
#include "forms/bulk_files.h"
#include "frames.h"
#include "http/multipart.h"
#include "images/frame_form.h"
#include "stored_object.h"

namespace vexal {
namespace {

// Syntaxes that the client takes in one form of answer, best first.
struct Wanted {
  bool parts = true;
  bool any_syntax = false;
  std::vector<VX_TRANSFER_SYNTAX> syntaxes{};

  // What an object goes out in: 0 as it is stored, -1 not at all.
  VX_TRANSFER_SYNTAX choose(VX_TRANSFER_SYNTAX stored) const {
    if (any_syntax || std::find(syntaxes.begin(), syntaxes.end(), stored) != syntaxes.end()) return 0;
    const auto found = std::find_if(syntaxes.begin(), syntaxes.end(),
                                    [&](VX_TRANSFER_SYNTAX one) { return can_become(stored, one); });
    return found != syntaxes.end() ? *found : kNone;
  }
  static constexpr VX_TRANSFER_SYNTAX kNone = -1;
};

// Without a transfer syntax it is explicit VR little endian (PS3.18 section 8.7.3.5.2); what takes anything
// gets what is there.
void add_syntax(const MediaRange& range, Wanted& wanted) {
  VX_TRANSFER_SYNTAX syntax = EXPLICIT_LITTLE_ENDIAN;
  if (range.syntax == "*" || range.type == "*/*") {
    wanted.any_syntax = true;
  } else if (range.syntax.empty() || (range.syntax.find_first_not_of("0123456789.") == std::string::npos &&
                                      find_syntax(range.syntax, syntax))) {
    wanted.syntaxes.push_back(syntax);
  }
}

// The best form, with all syntaxes that the client takes in it.
bool choose_form(const std::vector<MediaRange>& ranges, bool one, Wanted& wanted) {
  bool chosen = false;
  for (const MediaRange& range : ranges) {
    if (!range.takes(kDicom)) continue;
    const bool parts = range.parts || range.type != kDicom;
    if (!parts && !one) continue;
    if (chosen && parts != wanted.parts) continue;
    wanted.parts = parts;
    chosen = true;
    add_syntax(range, wanted);
  }
  return chosen && (wanted.any_syntax || !wanted.syntaxes.empty());
}

struct Item {
  ObjectFile object;
  VX_TRANSFER_SYNTAX syntax;
};

std::string type_of_part(const Item& item) {
  return std::string(kDicom) +
         "; transfer-syntax=" + uid_of_syntax(item.syntax == 0 ? item.object.syntax : item.syntax);
}

}  // namespace

// --- Metadata ---

namespace {

constexpr std::size_t kMostInline = 1024;  // bytes of a bulk value that stands in the text

// The text of one object after the other; what of it is large lies in a file.
class MetadataSource {
 public:
  MetadataSource(Holdings& holdings, std::vector<ObjectFile> objects, std::string root)
      : holdings_(holdings), objects_(std::move(objects)), root_(std::move(root)) {}

  // 1: there is text; 0: that was the last; -1: it can not be had.
  int next(bool xml, std::shared_ptr<Spill>& text) {
    if (at_ == objects_.size()) return 0;
    const ObjectFile& object = objects_[at_++];
    std::string bytes;
    std::string problem = read(object, xml, bytes);
    text = std::make_shared<Spill>();
    if (problem.empty()) problem = text->append(bytes.data(), bytes.size());
    if (!problem.empty()) report(object.path, problem);
    return problem.empty() ? 1 : -1;
  }

 private:
  std::string read(const ObjectFile& object, bool xml, std::string& text) {
    const CurrentFile current(object.path);
    LocalObject local;
    BoundedFile bounds;
    DicomFile file;
    std::string problem = holdings_.fetch(object, local);
    if (problem.empty()) bounds.open(file, local.file().path, problem);
    if (!problem.empty()) return problem;
    const int32_t id = file.id();
    problem = xml ? native_xml_of(id, text) : json_of(id, text);
    while (text.ends_with(' ')) text.pop_back();
    if (!problem.empty() || xml) return problem;
    const std::string path = instance_path(text_of(id, tags::kStudyInstanceUID),
                                           text_of(id, tags::kSeriesInstanceUID), object.instance);
    return refer_to_bulk(file, root_ + path + "/bulkdata/", kMostInline, text);
  }

  Holdings& holdings_;
  std::vector<ObjectFile> objects_;
  std::string root_;
  std::size_t at_ = 0;
};

// `first`: of the first object.
HttpBody json_array(const std::shared_ptr<MetadataSource>& source, std::shared_ptr<Spill> first) {
  HttpBody body;
  // Text between objects, an object, text, and so on.
  body.read = [source, text = HttpBody::of_text("["), object = body_of(std::move(first)), ended = false](
                  char* buffer, std::size_t size) mutable -> int64_t {
    for (;;) {
      if (const int64_t got = text.read(buffer, size); got != 0 || ended) return got;
      if (const int64_t got = object.read(buffer, size); got != 0) return got;
      std::shared_ptr<Spill> next;
      const int result = source->next(false, next);
      if (result < 0) return -1;
      ended = result == 0;
      text = HttpBody::of_text(ended ? "]\n" : ",\n");
      if (!ended) object = body_of(next);
    }
  };
  return body;
}

}  // namespace

HttpResponse retrieve_objects(const WebContext& context) {
  std::vector<ObjectFile> objects;
  HttpResponse response;
  if (!find_objects(context, objects, response)) return response;
  Wanted wanted;
  if (!choose_form(accepted_by(context.request), objects.size() == 1, wanted))
    return HttpResponse::problem(406,
                                 "Objects go out as multipart/related of application/dicom, one of them "
                                 "as application/dicom, in transfer syntaxes that are known here.");
  const auto items = std::make_shared<std::vector<Item>>();
  const std::size_t there = objects.size();
  for (ObjectFile& object : objects) {
    const VX_TRANSFER_SYNTAX syntax = wanted.choose(object.syntax);
    if (syntax != Wanted::kNone) items->push_back({std::move(object), syntax});
  }
  if (items->empty())
    return HttpResponse::problem(406, "The objects can not be converted into these transfer syntaxes.");
  if (items->size() < there) response.status = 206;
  Holdings& holdings = context.holdings;
  if (!wanted.parts) {
    const std::string problem =
        object_body(holdings, items->front().object, items->front().syntax, response.body);
    if (problem.empty()) return std::move(response.with("Content-Type", type_of_part(items->front())));
    report(items->front().object.path, problem);
    return HttpResponse::problem(500, "The object can not be read or converted.");
  }
  const unsigned status = response.status;
  response = answer_of_parts(kDicom, [items, &holdings, at = std::size_t{0}](BodyPart& part) mutable {
    if (at == items->size()) return 0;
    const Item& item = (*items)[at++];
    const std::string problem = object_body(holdings, item.object, item.syntax, part.body);
    if (!problem.empty()) report(item.object.path, problem);
    part.headers = {{"Content-Type", type_of_part(item)}};
    return problem.empty() ? 1 : -1;
  });
  if (response.status == 200) response.status = status;
  return response;
}

HttpResponse retrieve_metadata(const WebContext& context) {
  const std::vector<MediaRange> ranges = accepted_by(context.request);
  const auto found = std::find_if(ranges.begin(), ranges.end(), takes_text);
  if (found == ranges.end())
    return HttpResponse::problem(406, "Metadata is application/dicom+json, or multipart/related of XML.");
  std::vector<ObjectFile> objects;
  HttpResponse response;
  if (!find_objects(context, objects, response)) return response;
  const auto source = std::make_shared<MetadataSource>(context.holdings, std::move(objects), context.root);
  if (wants_xml(*found)) {
    return answer_of_parts(kDicomXml, [source](BodyPart& part) {
      std::shared_ptr<Spill> text;
      const int result = source->next(true, text);
      if (result > 0) part = {{{"Content-Type", kDicomXml}}, body_of(text)};
      return result;
    });
  }
  std::shared_ptr<Spill> first;
  if (source->next(false, first) < 0) return HttpResponse::problem(500, "It can not be read.");
  response.with("Content-Type", kDicomJson);
  response.body = json_array(source, first);
  return response;
}

// --- Bulk data ---

namespace {

// A value of an object that is open as long as this lives.
struct OpenValue {
  LocalObject local;
  BoundedFile bounds;
  DicomFile file;
  StoredValue value;

  // Along "00400275.1.00091010", with items counted from 1. An error text, empty on success.
  std::string find(const std::string& place) {
    int32_t object = file.id();
    for (std::size_t start = 0;;) {
      const std::size_t dot = place.find('.', start);
      uint32_t tag = 0;
      if (!parse_tag(place.substr(start, dot - start), tag)) return "no tag";
      if (dot == std::string::npos) return value.open(file, object, tag);
      const std::size_t next = place.find('.', dot + 1);
      uint64_t number = 0;
      if (next == std::string::npos || !read_count(place.substr(dot + 1, next - dot - 1), number))
        return "no item";
      object = item_of(object, tag, static_cast<uint32_t>(number - 1));
      if (object < 0) return "no such item";
      start = next + 1;
    }
  }
};

}  // namespace

HttpResponse retrieve_bulk(const WebContext& context) {
  std::vector<ObjectFile> objects;
  HttpResponse response;
  if (!find_objects(context, objects, response)) return response;
  const ObjectFile& object = objects.front();
  if (context.target.bulk == "7FE00010" && !is_uncompressed(object.syntax)) return retrieve_frames(context);
  const std::vector<MediaRange> ranges = accepted_by(context.request);
  const auto range =
      std::find_if(ranges.begin(), ranges.end(), [](const MediaRange& one) { return one.takes(kOctets); });
  if (range == ranges.end()) return HttpResponse::problem(406, "Bulk data is application/octet-stream.");
  const auto open = std::make_shared<OpenValue>();
  std::string problem = context.holdings.fetch(object, open->local);
  if (problem.empty()) open->bounds.open(open->file, open->local.file().path, problem);
  if (!problem.empty()) {
    report(object.path, problem);
    return HttpResponse::problem(500, "The object can not be read.");
  }
  if (!open->find(context.target.bulk).empty() || open->value.size() == 0)
    return HttpResponse::problem(404, "The object has no such value.");
  HttpBody body;
  body.length = open->value.size();
  body.read = [open, at = uint64_t{0}](char* buffer, std::size_t size) mutable -> int64_t {
    const auto count = static_cast<std::size_t>(std::min<uint64_t>(size, open->value.size() - at));
    if (!open->value.read_at(at, buffer, count)) return -1;
    at += count;
    return static_cast<int64_t>(count);
  };
  return as_parts(range->parts, kOctets, {{{"Content-Type", kOctets}}, std::move(body)});
}

}  // namespace vexal
