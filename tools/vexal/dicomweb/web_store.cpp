#include "web_store.h"

#include <algorithm>

#include "base/json.h"
#include "base/session.h"
#include "http/multipart.h"
#include "server/request.h"
#include "web_answers.h"

namespace vexal {
namespace {

constexpr char kByWeb[] = "WEB";  // in place of a calling title, in journals and meta groups

// An item of a sequence of the answer: what is referred to, and a further attribute.
std::string item_of_answer(const StoredObject& stored, const std::string& more) {
  std::string text = "{\"00081150\":{\"vr\":\"UI\",\"Value\":[";
  append_json(text, stored.sop_class);
  text += "]},\"00081155\":{\"vr\":\"UI\",\"Value\":[";
  append_json(text, stored.instance);
  return text + "]}" + more + "}";
}

std::string number_attribute(const char* tag, int32_t number) {
  return std::string(",\"") + tag + "\":{\"vr\":\"US\",\"Value\":[" + std::to_string(number) + "]}";
}

std::string url_attribute(const char* tag, const std::string& url) {
  std::string text = std::string("\"") + tag + "\":{\"vr\":\"UR\",\"Value\":[";
  append_json(text, url);
  return text + "]}";
}

class StoreWork final : public HttpWork {
 public:
  StoreWork(const HttpRequest& request, StorageOptions& storage, std::string study, std::string root)
      : study_(std::move(study)), root_(std::move(root)), writer_(storage, kByWeb, request.address) {
    writer_.set_study(study_);
    const std::string type = request.header("Content-Type");
    if (is_dicom(type)) {
      whole_ = true;
      writer_.begin_file();
    } else if (!type.starts_with("multipart/related")) {
      refusal_ = 415;
    } else if (const std::string boundary = header_parameter(type, "boundary"); boundary.empty()) {
      refusal_ = 400;
      problem_ = "The body has no boundary.";
    } else {
      reader_ = std::make_unique<MultipartReader>(boundary, parts_);
      default_type_ = header_parameter(type, "type");
    }
  }

  bool takes_body() const override { return refusal_ == 0; }

  bool take(std::string_view piece) override {
    if (whole_) {
      writer_.take_file(piece);
      return true;
    }
    problem_ = reader_->feed(piece);
    if (!problem_.empty()) refusal_ = 400;
    return refusal_ == 0;
  }

  HttpResponse answer() override {
    if (whole_ && refusal_ == 0) note();
    if (refusal_ == 0 && reader_ != nullptr && !reader_->complete())
      problem_ = "The body ends before its last part.";
    if (refusal_ == 415)
      return HttpResponse::problem(415, "Objects come as multipart/related of application/dicom.");
    if (count_ == 0)
      return HttpResponse::problem(400, problem_.empty() ? "There is no object in the body." : problem_);
    // What was stored before the body broke off stays, and is told.
    if (!problem_.empty()) report("web", "a body of objects: " + problem_);
    return told();
  }

 private:
  static bool is_dicom(const std::string& type) {
    return type == kDicom ||
           (type.starts_with(kDicom) && type[std::char_traits<char>::length(kDicom)] == ';');
  }

  struct Parts final : MultipartReader::Taker {
    explicit Parts(StoreWork& of) : work(of) {}
    std::string begin(std::string_view headers) override { return work.begin_part(headers); }
    std::string take(std::string_view bytes) override {
      work.writer_.take_file(bytes);
      return "";
    }
    std::string end() override {
      work.note();
      return "";
    }
    StoreWork& work;
  };

  std::string begin_part(std::string_view headers) {
    const std::string type = header_in(headers, "Content-Type");
    if (!is_dicom(type.empty() ? default_type_ : type)) {
      refusal_ = 415;
      return "a part is no DICOM object: " + type;
    }
    writer_.begin_file();
    return "";
  }

  // What became of one object.
  void note() {
    StoredObject stored;
    const int32_t status = writer_.end_file(stored);
    ++count_;
    const bool good = status == 0 || status == kDiscarded;
    std::string item;
    if (good) {
      if (study_url_.empty()) study_url_ = root_ + "/studies/" + stored.study;
      if (study_url_ != root_ + "/studies/" + stored.study) several_ = true;
      std::string more = "," + url_attribute("00081190", root_ + instance_path(stored.study, stored.series,
                                                                               stored.instance));
      if (status != 0) more += number_attribute("00081196", status);
      item = item_of_answer(stored, more);
    } else {
      item = item_of_answer(stored, number_attribute("00081197", status));
    }
    warned_ = warned_ || status != 0;
    failed_all_ = failed_all_ && !good;
    Spill& list = good ? *stored_ : *failed_;
    if (list.size() != 0) item.insert(0, ",");
    if (const std::string error = list.append(item.data(), item.size()); !error.empty()) report("web", error);
  }

  HttpResponse told() {
    HttpResponse response;
    response.status = failed_all_ ? 409 : warned_ || !problem_.empty() ? 202 : 200;
    response.with("Content-Type", kDicomJson);
    std::string head = "{";
    if (!study_url_.empty() && !several_) head += url_attribute("00081190", study_url_) + ",";
    const std::shared_ptr<Spill> lists[] = {failed_, stored_};
    const char* const tags[] = {"00081198", "00081199"};
    auto pieces = std::make_shared<std::vector<HttpBody>>();
    for (int i = 0; i < 2; ++i) {
      if (lists[i]->size() == 0) continue;
      pieces->push_back(HttpBody::of_text(head + "\"" + tags[i] + "\":{\"vr\":\"SQ\",\"Value\":["));
      pieces->push_back(body_of(lists[i]));
      head = "]},";
    }
    pieces->push_back(HttpBody::of_text("]}}\n"));
    response.body.read = [pieces, at = std::size_t{0}](char* buffer, std::size_t size) mutable -> int64_t {
      for (; at < pieces->size(); ++at) {
        if (const int64_t got = (*pieces)[at].read(buffer, size); got != 0) return got;
      }
      return 0;
    };
    return response;
  }

  std::string study_;
  std::string root_;
  ObjectWriter writer_;
  unsigned refusal_ = 0;  // a status that the request ends with
  std::string problem_;
  bool whole_ = false;  // the body is one object
  Parts parts_{*this};
  std::unique_ptr<MultipartReader> reader_;
  std::string default_type_;
  uint64_t count_ = 0;
  bool failed_all_ = true;
  bool warned_ = false;
  bool several_ = false;  // studies
  std::string study_url_;
  std::shared_ptr<Spill> failed_ = std::make_shared<Spill>();
  std::shared_ptr<Spill> stored_ = std::make_shared<Spill>();
};

}  // namespace

std::unique_ptr<HttpWork> store_work(const HttpRequest& request, StorageOptions& storage,
                                     const std::string& study, const std::string& root) {
  return std::make_unique<StoreWork>(request, storage, study, root);
}

}  // namespace vexal
