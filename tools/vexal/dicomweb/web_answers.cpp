#include "web_answers.h"

#include <algorithm>
#include <charconv>

#include "base/byte_stream.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "base/uid.h"

namespace vexal {

std::vector<MediaRange> accepted_by(const HttpRequest& request) {
  const std::string* parameter = request.parameter("accept");
  return parse_accept(parameter != nullptr ? *parameter : request.header("Accept"));
}

std::string json_of(int32_t object, std::string& text) {
  const VX_STATUS status = VX_Message_To_Json(object, &text, VX_JSON_STANDARD, guarded<append_to_string>);
  return status == VX_NORMAL_COMPLETION ? "" : VX_Error_Message(status);
}

std::string native_xml_of(int32_t object, std::string& text) {
  const VX_STATUS status = VX_Message_To_XML_Native(object, &text, 0, guarded<append_to_string>);
  return status == VX_NORMAL_COMPLETION ? "" : VX_Error_Message(status);
}

HttpBody body_of(std::shared_ptr<Spill> spill) {
  HttpBody body;
  body.length = spill->size();
  body.read = [spill = std::move(spill), at = uint64_t{0}](char* buffer,
                                                           std::size_t size) mutable -> int64_t {
    const auto count = static_cast<std::size_t>(std::min<uint64_t>(size, spill->size() - at));
    if (!spill->read_at(at, buffer, count)) return -1;
    at += count;
    return static_cast<int64_t>(count);
  };
  return body;
}

std::string new_boundary() {
  return "vexal-" + new_uid();
}

std::string multipart_type(const std::string& type, const std::string& boundary) {
  return "multipart/related; type=\"" + type + "\"; boundary=\"" + boundary + "\"";
}

bool takes_text(const MediaRange& range) {
  return range.takes(kDicomJson) || range.takes("application/json") ||
         (range.parts && range.takes(kDicomXml));
}

bool wants_xml(const MediaRange& range) {
  return range.parts && !range.takes(kDicomJson);
}

bool read_count(const std::string& text, uint64_t& number) {
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  return result.ec == std::errc() && result.ptr == text.data() + text.size() && number != 0;
}

HttpResponse as_parts(bool parts, const std::string& type, BodyPart part) {
  HttpResponse response;
  if (!parts) {
    response.headers = std::move(part.headers);
    response.body = std::move(part.body);
    return response;
  }
  const auto held = std::make_shared<BodyPart>(std::move(part));
  return answer_of_parts(type, [held, given = false](BodyPart& next) mutable {
    if (given) return 0;
    given = true;
    next = std::move(*held);
    return 1;
  });
}

HttpResponse answer_of_parts(const std::string& type, NextPart next) {
  const auto first = std::make_shared<BodyPart>();
  const int result = next(*first);
  if (result < 0) return HttpResponse::problem(500, "It can not be read or converted.");
  HttpResponse response;
  const std::string boundary = new_boundary();
  response.with("Content-Type", multipart_type(type, boundary));
  response.body = multipart_body(
      boundary, [first, result, next = std::move(next), at_first = true](BodyPart& part) mutable {
        if (!at_first) return next(part);
        at_first = false;
        part = std::move(*first);
        return result;
      });
  return response;
}

std::vector<CatalogKey> keys_of(const WebTarget& target) {
  std::vector<CatalogKey> keys;
  for (const auto& [tag, uid] : {std::pair{tags::kStudyInstanceUID, &target.study},
                                 {tags::kSeriesInstanceUID, &target.series},
                                 {tags::kSOPInstanceUID, &target.instance}}) {
    if (!uid->empty()) keys.push_back({tag, VX_VR_UI, *uid});
  }
  return keys;
}

bool find_objects(const WebContext& context, std::vector<ObjectFile>& objects, HttpResponse& refusal) {
  const std::string error = context.holdings.objects(keys_of(context.target), nullptr, objects);
  if (!error.empty()) {
    report("web", error);
    refusal = HttpResponse::problem(500, "The index can not be read.");
  } else if (objects.empty()) {
    refusal = HttpResponse::problem(404, "There is no such object here.");
  }
  return error.empty() && !objects.empty();
}

std::string instance_path(const std::string& study, const std::string& series, const std::string& instance) {
  return "/studies/" + study + "/series/" + series + "/instances/" + instance;
}

}  // namespace vexal
