#include "report_templates.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <span>

#include "base/embedded.h"
#include "base/tables.h"

namespace vexal {
namespace {

constexpr std::string_view kTypes[] = {"TEXT",   "CODE",      "NUM",   "DATETIME", "DATE",
                                       "TIME",   "UIDREF",    "PNAME", "SCOORD",   "SCOORD3D",
                                       "TCOORD", "COMPOSITE", "IMAGE", "WAVEFORM", "CONTAINER"};
constexpr std::string_view kRelationships[] = {"CONTAINS",        "HAS OBS CONTEXT", "HAS ACQ CONTEXT",
                                               "HAS CONCEPT MOD", "HAS PROPERTIES",  "INFERRED FROM",
                                               "SELECTED FROM"};

uint32_t bit_of(std::span<const std::string_view> names, std::string_view name) {
  const auto at = std::find(names.begin(), names.end(), name);
  return at == names.end() ? 0 : 1U << static_cast<uint32_t>(at - names.begin());
}

std::string names_of(std::span<const std::string_view> names, uint32_t bits) {
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if ((bits >> i & 1U) != 0) text += (text.empty() ? "" : " or ") + std::string(names[i]);
  }
  return text;
}

// Takes what stands in front of a mark off a text.
std::string_view next_part(std::string_view& text, std::string_view mark) {
  const std::size_t end = std::min(text.find(mark), text.size());
  const std::string_view part = text.substr(0, end);
  text.remove_prefix(std::min(end + mark.size(), text.size()));
  return part;
}

bool to_number(std::string_view text, uint32_t& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc{} && end == text.data() + text.size();
}

bool to_number(std::string_view text, int& number) {
  uint32_t value = 0;
  if (!to_number(text, value) || value > 0x7FFFFFFFU) return false;
  number = static_cast<int>(value);
  return true;
}

// "1", "1-n", "2-4".
bool read_multiplicity(std::string_view text, TemplateRow& row) {
  const std::string_view least = next_part(text, "-");
  if (!to_number(least, row.least)) return false;
  row.most = row.least;
  if (text == "n") row.most = TemplateRow::kUnbounded;
  return text.empty() || text == "n" || to_number(text, row.most);
}

bool read_names(std::string_view text, uint32_t (*bit)(std::string_view), uint32_t& bits) {
  while (!text.empty()) {
    const uint32_t one = bit(next_part(text, "|"));
    if (one == 0) return false;
    bits |= one;
  }
  return true;
}

}  // namespace

uint32_t report_value_type(std::string_view name) {
  return bit_of(kTypes, name);
}
uint32_t report_relationship(std::string_view name) {
  return bit_of(kRelationships, name);
}
std::string report_value_types(uint32_t bits) {
  return names_of(kTypes, bits);
}
std::string report_relationships(uint32_t bits) {
  return names_of(kRelationships, bits);
}

bool is_retired_scheme(std::string_view scheme) {
  return scheme == "SRT" || scheme == "SNM3" || scheme == "99SDM";
}

const ReportTemplates& ReportTemplates::get() {
  static const ReportTemplates templates;
  return templates;
}

ReportTemplates::ReportTemplates() {
  read_retired(report_codes_table());
  read_groups(report_groups_table());
  read_templates(report_templates_table());
}

const ContentTemplate* ReportTemplates::find(int number) const {
  const auto at = templates_.find(number);
  return at == templates_.end() ? nullptr : &at->second;
}

const ContentGroup* ReportTemplates::group(int number) const {
  const auto at = groups_.find(number);
  return at == groups_.end() ? nullptr : &at->second;
}

int ReportTemplates::code(std::string_view scheme, std::string_view value) const {
  // The three designators name one scheme.
  const std::string key = std::string(is_retired_scheme(scheme) ? "SRT" : scheme) + ":" + std::string(value);
  const auto at = codes_.find(key);
  return at == codes_.end() ? -1 : at->second;
}

int ReportTemplates::intern(std::string_view code) {
  const auto [at, fresh] = codes_.try_emplace(code, code_count_);
  if (fresh) ++code_count_;
  return at->second;
}

// RETIRED, the code that replaced it.
void ReportTemplates::read_retired(std::string_view text) {
  for (std::string_view line; next_line(text, line);) {
    const std::string_view retired = next_cell(line);
    codes_.try_emplace(retired, intern(next_cell(line)));
  }
}

// Number, "closed" or "open", codes parted by blanks.
void ReportTemplates::read_groups(std::string_view text) {
  for (std::string_view line; next_line(text, line);) {
    int number = 0;
    if (!to_number(next_cell(line), number)) continue;
    ContentGroup& group = groups_[number];
    group.closed = next_cell(line) == "closed";
    while (!line.empty()) group.codes.push_back(intern(next_part(line, " ")));
    std::sort(group.codes.begin(), group.codes.end());
  }
}

void ReportTemplates::read_templates(std::string_view text) {
  ContentTemplate* current = nullptr;
  for (std::string_view line; next_line(text, line);) {
    if (line.starts_with("TID\t")) {
      next_cell(line);
      int number = 0;
      to_number(next_cell(line), number);
      current = &templates_[number];
      current->number = number;
      current->name = next_cell(line);
      current->closed = line.find("closed") != std::string_view::npos;
      current->root = line.find("root") != std::string_view::npos;
    } else if (current != nullptr) {
      read_row(line, *current);
    }
  }
}

bool ReportTemplates::read_row(std::string_view line, ContentTemplate& into) {
  TemplateRow row;
  row.owner = into.number;
  row.label = next_cell(line);
  if (!to_number(next_cell(line), row.level)) return false;
  bool good = read_names(next_cell(line), &report_relationship, row.relationships);
  const std::string_view types = next_cell(line);
  std::string_view name = next_cell(line);
  if (types == "INCLUDE") {
    good = to_number(name, row.included) && good;
  } else {
    good = read_names(types, &report_value_type, row.types) && row.types != 0 &&
           read_choice(name, row.concept_name) && good;
  }
  good = read_multiplicity(next_cell(line), row) && good;
  const std::string_view need = next_cell(line);
  row.need = need == "M"    ? TemplateRow::kMandatory
             : need == "MC" ? TemplateRow::kConditional
                            : TemplateRow::kOptional;
  good = good && (need == "M" || need == "MC" || need == "U" || need == "UC");
  good = read_condition(next_cell(line), row.condition) && good;
  std::string_view value = next_cell(line);
  if (row.types != 0) {
    good = read_choice(value, row.value) && good;
  } else {
    while (good && !value.empty()) {
      std::string_view argument = next_part(value, "; ");
      const std::string_view parameter = next_part(argument, "=");
      row.arguments.emplace_back(parameter, ContentChoice{});
      good = parameter.starts_with("$") && read_choice(argument, row.arguments.back().second);
    }
  }
  // The row above it of one level less.
  auto& rows = into.rows;
  std::size_t above = rows.size();
  while (above > 0 && rows[above - 1].level >= row.level) --above;
  const auto index = static_cast<uint32_t>(rows.size());
  good = good && (row.level == 0 || (above > 0 && rows[above - 1].level == row.level - 1));
  if (!good) return false;
  (row.level == 0 ? into.top : rows[above - 1].children).push_back(index);
  rows.push_back(std::move(row));
  return true;
}

// "CID 42", "SCHEME:VALUE meaning", "$Parameter", "-" for no concept, or empty.
bool ReportTemplates::read_choice(std::string_view text, ContentChoice& choice) {
  choice.text = text;
  if (text.empty()) return true;
  if (text == "-") {
    choice.kind = ContentChoice::kNothing;
  } else if (text.front() == '$') {
    choice.kind = ContentChoice::kParameter;
  } else if (text.starts_with("CID ")) {
    choice.kind = ContentChoice::kGroup;
    return to_number(text.substr(4), choice.number);
  } else {
    choice.kind = ContentChoice::kCode;
    const std::string_view code = text.substr(0, text.find(' '));
    choice.number = intern(code);
    return code.find(':') != std::string_view::npos;
  }
  return true;
}

// "[only] [no] LABEL[=VALUE]", joined by " and " or by " or ".
bool ReportTemplates::read_condition(std::string_view text, ContentCondition& condition) {
  condition.text = text;
  if (text.starts_with("only ")) {
    condition.exclusive = true;
    text.remove_prefix(5);
  }
  condition.one_is_enough = text.find(" or ") != std::string_view::npos;
  while (!text.empty()) {
    std::string_view part = next_part(text, condition.one_is_enough ? " or " : " and ");
    ContentTerm term;
    term.absent = part.starts_with("no ");
    if (term.absent) part.remove_prefix(3);
    term.label = next_part(part, "=");
    if (term.label.empty() || !read_choice(part, term.value)) return false;
    condition.terms.push_back(term);
  }
  return true;
}

}  // namespace vexal
