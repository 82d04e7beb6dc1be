// The templates of PS3.16 for the content of reports, and the context groups that they name, as data/reports/
// has them.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vexal {

// Bits, in the order of the names.
uint32_t report_value_type(std::string_view name);    // 0: not known
uint32_t report_relationship(std::string_view name);  // 0: not known
std::string report_value_types(uint32_t bits);        // "SCOORD or SCOORD3D"
std::string report_relationships(uint32_t bits);

// What a concept name, a value or a unit may be.
struct ContentChoice {
  enum Kind {
    kAny,
    kNothing,   // there is none
    kCode,      // `number`: of the code
    kGroup,     // `number`: of the context group
    kParameter  // `text`: its name, with the $
  };
  Kind kind = kAny;
  int number = 0;
  std::string_view text;  // as the table has it
  auto operator<=>(const ContentChoice&) const = default;
};

// A condition: all of its terms hold, or one of them does.
struct ContentTerm {
  bool absent = false;
  std::string_view label;  // of another row of the template
  ContentChoice value;     // kAny: that it is there is enough
};
struct ContentCondition {
  std::vector<ContentTerm> terms;
  bool one_is_enough = false;
  std::string_view text;   // as the table has it
  bool exclusive = false;  // without it the row may not be there either
};

struct TemplateRow {
  enum Need { kMandatory, kConditional, kOptional };
  std::string_view label;
  int level = 0;
  uint32_t relationships = 0;  // 0: that of the row which includes the template
  uint32_t types = 0;          // 0: another template is included
  ContentChoice concept_name;
  int included = 0;
  uint32_t least = 1;
  uint32_t most = 1;  // kUnbounded
  Need need = kOptional;
  ContentCondition condition;
  ContentChoice value;
  std::vector<std::pair<std::string_view, ContentChoice>> arguments;
  std::vector<uint32_t> children;  // rows of the same template
  int owner = 0;                   // the template
  static constexpr uint32_t kUnbounded = 0xFFFFFFFF;
};

struct ContentTemplate {
  int number = 0;
  std::string_view name;
  bool closed = false;  // has no room for further content
  bool root = false;    // a whole report
  std::vector<TemplateRow> rows;
  std::vector<uint32_t> top;
};

struct ContentGroup {
  bool closed = false;     // has no room for further codes
  std::vector<int> codes;  // ascending
};

class ReportTemplates {
 public:
  static const ReportTemplates& get();  // read on first use

  const ContentTemplate* find(int number) const;
  const ContentGroup* group(int number) const;
  // Of "SCHEME:VALUE"; a retired code has the number of the one that replaced it. -1: in no table.
  int code(std::string_view scheme, std::string_view value) const;
  const std::map<int, ContentTemplate>& all() const { return templates_; }

 private:
  ReportTemplates();
  void read_retired(std::string_view text);
  void read_groups(std::string_view text);
  void read_templates(std::string_view text);
  // False: the line is not of the form, and left out.
  bool read_row(std::string_view line, ContentTemplate& into);
  bool read_choice(std::string_view text, ContentChoice& choice);
  bool read_condition(std::string_view text, ContentCondition& condition);
  int intern(std::string_view code);

  std::unordered_map<std::string_view, int> codes_;
  int code_count_ = 0;
  std::unordered_map<int, ContentGroup> groups_;
  std::map<int, ContentTemplate> templates_;
};

// A designator of codes that others have replaced.
bool is_retired_scheme(std::string_view scheme);

}  // namespace vexal
