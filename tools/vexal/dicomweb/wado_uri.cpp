#include "wado_uri.h"

#include "web_answers.h"

namespace vexal {
namespace {

constexpr char kLargest[] = "8192";  // of a side that is not given

}  // namespace

std::string read_wado_uri(HttpRequest& request, WebTarget& target) {
  const auto value = [&](const char* name) {
    const std::string* text = request.parameter(name);
    return text != nullptr ? *text : std::string();
  };
  if (value("requestType") != "WADO") return "requestType: give WADO";
  for (const char* name : {"anonymize", "region", "presentationUID"}) {
    if (!value(name).empty()) return std::string(name) + ": is not done here";
  }
  target = parse_web_target(
      {"studies", value("studyUID"), "series", value("seriesUID"), "instances", value("objectUID")});
  if (target.resource != WebResource::Objects || target.instance.empty())
    return "studyUID, seriesUID, objectUID: give all three, each a UID";
  const std::string type = value("contentType").empty() ? "image/jpeg" : value("contentType");
  const std::string syntax = value("transferSyntax");
  HttpFields query = {{"accept", syntax.empty() ? type : type + "; transfer-syntax=" + syntax}};
  if (!type.starts_with(kDicom)) {
    target.resource = WebResource::Rendered;
    if (const std::string frame = value("frameNumber");
        !frame.empty() && !parse_frame_list(frame, target.frames))
      return "frameNumber: give a number from 1 on";
    const std::string rows = value("rows");
    const std::string columns = value("columns");
    if (!rows.empty() || !columns.empty()) {
      query.emplace_back("viewport",
                         (columns.empty() ? kLargest : columns) + "," + (rows.empty() ? kLargest : rows));
    }
    if (!value("windowCenter").empty())
      query.emplace_back("window", value("windowCenter") + "," + value("windowWidth") + ",linear");
    if (!value("imageQuality").empty()) query.emplace_back("quality", value("imageQuality"));
  }
  request.query = std::move(query);
  return "";
}

}  // namespace vexal
