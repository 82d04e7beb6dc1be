#include "web_json.h"

#include <jansson.h>

#include <cmath>
#include <cstdio>

#include "base/json.h"
#include "base/names.h"

namespace vexal {
namespace {

// The "Value" of an attribute, or null.
const json_t* values_of(const json_t* object, uint32_t tag) {
  const json_t* values = json_object_get(json_object_get(object, tag_key(tag).c_str()), "Value");
  return json_is_array(values) ? values : nullptr;
}

// One value as a query shows it; the groups of a person's name as in DICOM.
std::string text_of_value(const json_t* value) {
  if (json_is_string(value)) return json_string_value(value);
  std::string text;
  if (json_is_integer(value)) append_json(text, static_cast<int64_t>(json_integer_value(value)));
  if (json_is_real(value)) append_json(text, json_real_value(value));
  std::size_t signs = 0;
  for (const char* group : {"Alphabetic", "Ideographic", "Phonetic"}) {
    const char* name = json_string_value(json_object_get(value, group));
    if (name != nullptr && *name != '\0') {
      text.append(signs, '=').append(name);
      signs = 0;
    }
    ++signs;
  }
  return text;
}

void collect(const json_t* object, const PathStep* step, const PathStep* end, std::string& out) {
  const json_t* values = values_of(object, step->tag);
  for (std::size_t i = 0; i < json_array_size(values); ++i) {
    const json_t* value = json_array_get(values, i);
    if (step + 1 != end) {
      if (step->index == PathStep::kEveryItem || static_cast<std::size_t>(step->index) == i)
        collect(value, step + 1, end, out);
      continue;
    }
    const std::string text = text_of_value(value);
    if (!out.empty() && !text.empty()) out += '\\';
    out += text;
  }
}

}  // namespace

void WebDocument::Drop::operator()(json_t* value) const {
  json_decref(value);
}

std::string WebDocument::read(std::string_view text) {
  json_error_t error;
  root_.reset(json_loadb(text.data(), text.size(), 0, &error));
  if (root_ == nullptr) return "no JSON: " + std::string(error.text);
  return json_is_array(root_.get()) || json_is_object(root_.get()) ? "" : "no DICOM object in JSON";
}

std::size_t WebDocument::size() const {
  return json_is_array(root_.get()) ? json_array_size(root_.get()) : root_ != nullptr ? 1 : 0;
}

const json_t* WebDocument::object(std::size_t index) const {
  return json_is_array(root_.get()) ? json_array_get(root_.get(), index) : root_.get();
}

std::string WebDocument::values_at(std::size_t index, const std::vector<PathStep>& path) const {
  std::string text;
  if (!path.empty()) collect(object(index), path.data(), path.data() + path.size(), text);
  return text;
}

std::size_t WebDocument::items(std::size_t index, uint32_t sequence) const {
  return json_array_size(values_of(object(index), sequence));
}

}  // namespace vexal
