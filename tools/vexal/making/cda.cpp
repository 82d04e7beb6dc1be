#include "cda.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>

namespace vexal {
namespace {

bool is_space(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// A tag: what lies between its brackets.
struct Tag {
  std::string_view inside;
  std::size_t begin = 0;  // of its bracket
  std::size_t end = 0;    // behind the other one
  bool closes() const { return inside.starts_with('/'); }
  bool is_empty() const { return inside.ends_with('/'); }
  std::string_view name() const {
    const std::size_t start = closes() ? 1 : 0;
    const std::size_t stop = std::min(inside.find_first_of(" \t\r\n/", start), inside.size());
    const std::string_view whole = inside.substr(start, stop - start);
    return whole.substr(whole.find(':') + 1);
  }
};

// The next tag from a place on; comments, instructions, declarations and CDATA are passed over.
bool next_tag(std::string_view text, std::size_t from, Tag& tag) {
  constexpr std::string_view kPassed[][2] = {
      {"<!--", "-->"}, {"<?", "?>"}, {"<![CDATA[", "]]>"}, {"<!", ">"}};
  while ((from = text.find('<', from)) != std::string_view::npos) {
    const auto* row = std::find_if(std::begin(kPassed), std::end(kPassed),
                                   [&](const auto& r) { return text.substr(from).starts_with(r[0]); });
    if (row != std::end(kPassed)) {
      const std::size_t end = text.find((*row)[1], from + (*row)[0].size());
      if (end == std::string_view::npos) return false;
      from = end + (*row)[1].size();
      continue;
    }
    char quote = 0;
    for (std::size_t at = from + 1; at < text.size(); ++at) {
      const char c = text[at];
      if (quote == 0 && c == '>') {
        tag = {text.substr(from + 1, at - from - 1), from, at + 1};
        return true;
      }
      if (quote == 0 ? c == '"' || c == '\'' : c == quote) quote = quote == 0 ? c : '\0';
    }
    return false;
  }
  return false;
}

void append_utf8(std::string& out, uint32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
    return;
  }
  const int more = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
  constexpr uint32_t kLead[] = {0, 0xC0, 0xE0, 0xF0};
  out += static_cast<char>(kLead[more] | c >> (6 * more));
  for (int i = more - 1; i >= 0; --i) out += static_cast<char>(0x80 | (c >> (6 * i) & 0x3F));
}

// Text without its references, on one line.
std::string plain(std::string_view text) {
  constexpr std::pair<std::string_view, char> kNames[] = {
      {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
  std::string out;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const std::size_t end = text[at] == '&' ? text.find(';', at) : std::string_view::npos;
    if (end == std::string_view::npos) {
      if (!is_space(text[at])) {
        out += text[at];
      } else if (!out.empty() && out.back() != ' ') {
        out += ' ';
      }
      continue;
    }
    const std::string name(text.substr(at + 1, end - at - 1));
    const auto* row =
        std::find_if(std::begin(kNames), std::end(kNames), [&](const auto& r) { return r.first == name; });
    if (row != std::end(kNames)) out += row->second;
    if (name.starts_with('#')) {
      const bool hex = name.size() > 1 && (name[1] == 'x' || name[1] == 'X');
      const unsigned long c = std::strtoul(name.c_str() + (hex ? 2 : 1), nullptr, hex ? 16 : 10);
      if (c >= 0x20 && c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF))
        append_utf8(out, static_cast<uint32_t>(c));
    }
    at = end;
  }
  while (!out.empty() && out.back() == ' ') out.pop_back();
  return out;
}

std::string attribute(const Tag& tag, std::string_view name) {
  for (std::size_t at = 0; (at = tag.inside.find(name, at)) != std::string_view::npos; at += name.size()) {
    std::size_t after = at + name.size();
    while (after < tag.inside.size() && is_space(tag.inside[after])) ++after;
    if (at == 0 || !is_space(tag.inside[at - 1]) || after >= tag.inside.size() || tag.inside[after] != '=')
      continue;
    const std::size_t open = tag.inside.find_first_of("\"'", after);
    if (open == std::string_view::npos) return "";
    const std::size_t close = tag.inside.find(tag.inside[open], open + 1);
    if (close == std::string_view::npos) return "";
    return plain(tag.inside.substr(open + 1, close - open - 1));
  }
  return "";
}

}  // namespace

std::string_view xml_root(std::string_view text) {
  constexpr std::string_view kMark = "\xEF\xBB\xBF";
  if (text.starts_with(kMark)) text.remove_prefix(kMark.size());
  const std::size_t start = text.find_first_not_of(" \t\r\n");
  Tag tag;
  if (start == std::string_view::npos || text[start] != '<' || !next_tag(text, start, tag)) return {};
  return tag.name();
}

CdaHead read_cda_head(std::string_view text) {
  CdaHead head;
  int depth = 0;
  Tag tag;
  for (std::size_t at = 0; next_tag(text, at, tag); at = tag.end) {
    if (tag.closes()) {
      --depth;
      continue;
    }
    if (depth == 1 && tag.name() == "id" && head.id_root.empty()) {
      head.id_root = attribute(tag, "root");
      head.id_extension = attribute(tag, "extension");
    } else if (depth == 1 && tag.name() == "code" && head.code.empty()) {
      head.code = attribute(tag, "code");
      head.code_system = attribute(tag, "codeSystem");
      head.code_name = attribute(tag, "displayName");
    } else if (depth == 1 && tag.name() == "title" && !tag.is_empty() && head.title.empty()) {
      head.title = plain(text.substr(tag.end, std::min(text.find('<', tag.end), text.size()) - tag.end));
    } else if (depth == 1 && tag.name() == "component") {
      break;  // the body
    }
    if (!tag.is_empty()) ++depth;
  }
  return head;
}

}  // namespace vexal
