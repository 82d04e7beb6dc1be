#include "documents.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "byte_reader.h"
#include "cda.h"

namespace vexal {
namespace {

constexpr std::size_t kTail = 4096;
constexpr std::size_t kCdaHead = 1 << 20;
constexpr uint64_t kStlHead = 84;
constexpr uint64_t kTriangle = 50;

bool is_binary_stl(std::string_view head, uint64_t size) {
  if (head.size() < kStlHead) return false;
  uint32_t triangles = 0;
  std::memcpy(&triangles, head.data() + 80, sizeof triangles);
  return triangles != 0 && size == kStlHead + kTriangle * triangles;
}

bool is_text_stl(std::string_view head) {
  return head.starts_with("solid") && head.find("facet") != std::string_view::npos &&
         head.find('\0') == std::string_view::npos;
}

std::string_view first_word(std::string_view line) {
  const std::size_t start = std::min(line.find_first_not_of(" \t"), line.size());
  return line.substr(start, std::min(line.find_first_of(" \t\r", start), line.size()) - start);
}

// By the words that lines begin with.
InputKind wavefront_kind(std::string_view head) {
  constexpr std::array<std::string_view, 13> kWords = {"v", "vn", "vt", "vp",     "f",      "o",     "g",
                                                       "s", "l",  "p",  "mtllib", "usemtl", "newmtl"};
  if (head.find('\0') != std::string_view::npos) return InputKind::Unknown;
  bool first = true;
  for (std::size_t at = 0; at < head.size();) {
    const std::size_t end = std::min(head.find('\n', at), head.size());
    const std::string_view word = first_word(head.substr(at, end - at));
    at = end + 1;
    if (word.empty() || word[0] == '#') continue;
    if (first && word == "newmtl") return InputKind::Mtl;
    if (first && std::find(kWords.begin(), kWords.end(), word) == kWords.end()) return InputKind::Unknown;
    if (word == "v") return InputKind::Obj;
    first = false;
  }
  return InputKind::Unknown;
}

std::string tail_of(const Input& input) {
  const uint64_t size = std::min<uint64_t>(kTail, input.size());
  std::string tail(static_cast<std::size_t>(size), '\0');
  return input.file->read_at(input.size() - size, tail.data(), tail.size()) == static_cast<int64_t>(size)
             ? tail
             : "";
}

bool is_utf8_xml(std::string_view text) {
  const std::size_t end = text.find("?>");
  const std::size_t encoding = text.find("encoding");
  if (end == std::string_view::npos || encoding > end) return true;
  const std::string_view name = text.substr(encoding, end - encoding);
  return name.find("UTF-8") != std::string_view::npos || name.find("utf-8") != std::string_view::npos;
}

std::string read_cda(const Input& input, std::vector<std::pair<std::string, std::string>>& attributes) {
  const std::string tail = tail_of(input);
  const std::size_t last = tail.rfind("</");
  if (last == std::string::npos || tail.substr(last).find("ClinicalDocument") == std::string::npos)
    return "is cut short: its root element has no end";
  std::string text(static_cast<std::size_t>(std::min<uint64_t>(kCdaHead, input.size())), '\0');
  if (input.file->read_at(0, text.data(), text.size()) != static_cast<int64_t>(text.size()))
    return "can not read";
  const CdaHead head = read_cda_head(text);
  if (!head.id_root.empty())
    attributes.emplace_back("HL7InstanceIdentifier",
                            head.id_root + (head.id_extension.empty() ? "" : "^" + head.id_extension));
  if (!is_utf8_xml(text)) return "";
  constexpr std::size_t kLongestTitle = 1024;
  constexpr std::size_t kLongestMeaning = 64;
  if (!head.title.empty() && head.title.size() <= kLongestTitle)
    attributes.emplace_back("DocumentTitle", head.title);
  if (head.code.empty() || head.code_name.empty() || head.code_name.size() > kLongestMeaning ||
      head.code_system != "2.16.840.1.113883.6.1")
    return "";
  attributes.emplace_back("ConceptNameCodeSequence[0].CodeValue", head.code);
  attributes.emplace_back("ConceptNameCodeSequence[0].CodingSchemeDesignator", "LN");
  attributes.emplace_back("ConceptNameCodeSequence[0].CodeMeaning", head.code_name);
  return "";
}

}  // namespace

InputKind document_kind(std::string_view head, uint64_t size) {
  if (head.substr(0, 1024).find("%PDF-") != std::string_view::npos) return InputKind::Pdf;
  if (is_binary_stl(head, size) || is_text_stl(head)) return InputKind::Stl;
  if (xml_root(head) == "ClinicalDocument") return InputKind::Cda;
  return wavefront_kind(head);
}

std::string model_fault(const Input& input) {
  std::string suffix = input.path.substr(std::min(input.path.rfind('.'), input.path.size()));
  std::transform(suffix.begin(), suffix.end(), suffix.begin(),
                 [](char c) { return static_cast<char>(c | 0x20); });
  if (suffix != ".stl" || input.size() < kStlHead) return "";
  ByteReader reader(*input.file, 80, input.size());
  const uint64_t triangles = reader.little(4);
  return "is no whole STL: " + std::to_string(triangles) + " triangles take " +
         std::to_string(kStlHead + kTriangle * triangles) + " bytes, it has " + std::to_string(input.size());
}

std::string read_document(const Input& input, std::vector<std::pair<std::string, std::string>>& attributes) {
  switch (input.kind) {
    case InputKind::Pdf:
      return tail_of(input).find("%%EOF") != std::string::npos ? ""
                                                               : "is cut short: it does not end with %%EOF";
    case InputKind::Cda:
      return read_cda(input, attributes);
    case InputKind::Stl: {
      std::string head(kStlHead, '\0');
      const int64_t got = input.file->read_at(0, head.data(), head.size());
      return got == static_cast<int64_t>(kStlHead) && is_binary_stl(head, input.size())
                 ? ""
                 : "is an STL file of text; an object has a binary one";
    }
    default:
      return "";
  }
}

}  // namespace vexal
