#include "names.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "embedded.h"
#include "hex.h"
#include "tables.h"
#include "text.h"

namespace vexal {
namespace {

char lower(char c) {
  return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

std::string to_lower(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), lower);
  return result;
}

bool parse_hex(std::string_view digits, uint32_t& value) {
  if (digits.empty() || digits.size() > 8) return false;
  value = 0;
  for (const char c : digits) {
    if (std::isxdigit(static_cast<unsigned char>(c)) == 0) return false;
    const char l = lower(c);
    value = value * 16 + static_cast<uint32_t>(l <= '9' ? l - '0' : l - 'a' + 10);
  }
  return true;
}

struct Row {
  uint32_t tag = 0;
  std::string_view vr;
  std::string_view keyword;
};

// "0010,0020", or "60xx,3000" for a repeating group, with its VR, VM and keyword.
bool parse_row(std::string_view line, Row& row) {
  std::string digits(next_cell(line));
  digits.erase(std::remove(digits.begin(), digits.end(), ','), digits.end());
  std::replace(digits.begin(), digits.end(), 'x', '0');
  row.vr = next_cell(line);
  next_cell(line);
  row.keyword = next_cell(line);
  return parse_hex(digits, row.tag);
}

// Built on first need, ascending by tag: for those who look at all of them.
const std::vector<Row>& rows() {
  static const std::vector<Row> table = [] {
    std::vector<Row> result;
    result.reserve(5300);
    std::string_view text = dictionary_table();
    std::string_view line;
    Row row;
    while (next_line(text, line)) {
      if (parse_row(line, row)) result.push_back(row);
    }
    return result;
  }();
  return table;
}

// Groups 50xx and 60xx stand under 5000 and 6000.
uint32_t base_tag(uint32_t tag) {
  const uint32_t group_class = tag >> 24;
  return group_class == 0x50 || group_class == 0x60 ? tag & 0xFF00FFFFU : tag;
}

// One row without reading the others: the table ascends, and its comments stand in front. Empty if there is
// none.
Row find_row(uint32_t tag) {
  std::string_view text = dictionary_table();
  while (text.starts_with('#')) text.remove_prefix(std::min(text.find('\n') + 1, text.size()));
  while (!text.empty()) {
    const std::size_t start = text.rfind('\n', text.size() / 2) + 1;
    const std::size_t end = std::min(text.find('\n', start), text.size());
    Row row;
    if (!parse_row(text.substr(start, end - start), row)) break;
    if (row.tag == tag) return row;
    text = row.tag < tag ? text.substr(std::min(end + 1, text.size())) : text.substr(0, start);
  }
  return {};
}

// A flat table of the tags seen last: listings meet the same few hundred tags again and again.
const Row& known_row(uint32_t tag) {
  struct Slot {
    uint32_t tag;
    bool known;
    Row row;
  };
  static thread_local Slot cache[1024];
  Slot& slot = cache[(tag ^ (tag >> 13)) & 1023U];
  if (!slot.known || slot.tag != tag) slot = {tag, true, find_row(tag)};
  return slot.row;
}

bool equals_ignoring_case(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lower(x) == lower(y); });
}

}  // namespace

std::string format_tag(uint32_t tag) {
  std::string text = "(";
  append_hex(text, tag >> 16, 4);
  text += ',';
  append_hex(text, tag & 0xFFFFU, 4);
  return text += ')';
}

std::string tag_key(uint32_t tag) {
  return hex_of(tag, 8);
}

std::string tag_name(uint32_t tag) {
  const std::string_view keyword = tag_keyword(tag);
  return keyword.empty() ? format_tag(tag) : std::string(keyword);
}

std::string describe_tag(uint32_t tag) {
  return format_tag(tag) + " " + std::string(tag_keyword(tag));
}

std::string_view tag_keyword(uint32_t tag) {
  const std::string_view keyword = known_row(base_tag(tag)).keyword;
  return keyword.empty() && (tag & 0xFFFFU) == 0 ? "GroupLength" : keyword;
}

std::string_view standard_vr(uint32_t tag) {
  const std::string_view vr = known_row(base_tag(tag)).vr;
  return vr.starts_with("UN/") ? vr.substr(3) : vr;
}

bool parse_tag(std::string_view text, uint32_t& tag) {
  if (text.size() >= 2 && text.front() == '(' && text.back() == ')') text = text.substr(1, text.size() - 2);
  if (const std::size_t comma = text.find(','); comma != std::string_view::npos) {
    uint32_t group = 0;
    uint32_t element = 0;
    if (!parse_hex(text.substr(0, comma), group) || !parse_hex(text.substr(comma + 1), element)) return false;
    if (group > 0xFFFFU || element > 0xFFFFU) return false;
    tag = (group << 16) | element;
    return true;
  }
  for (const Row& row : rows()) {
    if (!equals_ignoring_case(row.keyword, text)) continue;
    tag = row.tag;
    return true;
  }
  if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
  return text.size() == 8 && parse_hex(text, tag);
}

std::string describe_uid(const std::string& uid) {
  std::string_view rows = uid_table();
  std::string_view row;
  while (next_line(rows, row)) {
    if (next_cell(row) != uid) continue;
    next_cell(row);  // its sort
    return uid + " " + std::string(next_cell(row));
  }
  return uid;
}

const char* vr_letters(VX_VR vr) {
  return vxdata::vr_letters(vr);
}

bool is_text_vr(VX_VR vr) {
  return vxdata::is_text_vr(vr);
}

bool is_number_vr(VX_VR vr) {
  return vxdata::is_number_vr(vr);
}

std::size_t edit_distance(std::string_view a, std::string_view b, std::size_t limit) {
  if (a.size() > b.size() + limit || b.size() > a.size() + limit) return limit + 1;
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t above = row[j];
      const std::size_t change = diagonal + (lower(a[i - 1]) == lower(b[j - 1]) ? 0 : 1);
      row[j] = std::min({above + 1, row[j - 1] + 1, change});
      diagonal = above;
    }
  }
  return row[b.size()];
}

std::vector<std::string> similar_keywords(std::string_view word, std::size_t limit) {
  struct Candidate {
    std::size_t score;
    std::string_view keyword;
  };
  const std::size_t reach = std::max<std::size_t>(2, word.size() / 4);
  const std::string wanted = to_lower(word);
  std::vector<Candidate> candidates;
  for (const Row& row : rows()) {
    std::size_t score = edit_distance(word, row.keyword, reach);
    if (score > reach) {
      if (wanted.size() < 4 || to_lower(row.keyword).find(wanted) == std::string::npos) continue;
      score = reach + row.keyword.size() - wanted.size();
    }
    candidates.push_back({score, row.keyword});
  }
  std::stable_sort(candidates.begin(), candidates.end(),
                   [](const Candidate& a, const Candidate& b) { return a.score < b.score; });
  std::vector<std::string> result;
  for (std::size_t i = 0; i < candidates.size() && i < limit; ++i) result.emplace_back(candidates[i].keyword);
  return result;
}

}  // namespace vexal
