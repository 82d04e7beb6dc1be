// Pieces that the answers of the web services share.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "files/temp_folder.h"
#include "holdings/holdings.h"
#include "http/accept.h"
#include "http/http_message.h"
#include "http/multipart.h"
#include "target.h"

namespace vexal {

inline constexpr char kDicomJson[] = "application/dicom+json";
inline constexpr char kDicomXml[] = "application/dicom+xml";
inline constexpr char kDicom[] = "application/dicom";
inline constexpr char kOctets[] = "application/octet-stream";

// What a request is worked on with.
struct WebContext {
  const HttpRequest& request;
  WebTarget target;
  Holdings& holdings;
  std::string root;  // of the services, as a URL that the client can use
};

// What the client takes: of the query's "accept", else of the header.
std::vector<MediaRange> accepted_by(const HttpRequest& request);

// An object as JSON of the standard, without values of bulk. An error text, empty on success.
std::string json_of(int32_t object, std::string& text);
std::string native_xml_of(int32_t object, std::string& text);

// A body that was laid down before.
HttpBody body_of(std::shared_ptr<Spill> spill);

// A boundary that nothing contains.
std::string new_boundary();
std::string multipart_type(const std::string& type, const std::string& boundary);

// Whether an answer in JSON or XML is meant, and in which of them.
bool takes_text(const MediaRange& range);
bool wants_xml(const MediaRange& range);
// "12"; false if it is no number from 1 on.
bool read_count(const std::string& text, uint64_t& number);
// One part, as it is or as multipart/related of this type.
HttpResponse as_parts(bool parts, const std::string& type, BodyPart part);

// All parts as multipart/related of this type. The first is asked for at once: where that fails, the answer
// is a failure.
HttpResponse answer_of_parts(const std::string& type, NextPart next);

// The keys that the path of a target names.
std::vector<CatalogKey> keys_of(const WebTarget& target);
// The instances that a target names. An answer to give where there are none, or they can not be found.
bool find_objects(const WebContext& context, std::vector<ObjectFile>& objects, HttpResponse& refusal);
// "/studies/1.2/series/3/instances/4".
std::string instance_path(const std::string& study, const std::string& series, const std::string& instance);

}  // namespace vexal
