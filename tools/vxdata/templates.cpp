#include "templates.h"

#include "conditions.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace vxdata {
namespace {

constexpr std::array<std::string_view, 5> kTypes = {"1", "1C", "2", "2C", "3"};

constexpr std::pair<std::string_view, BlockKind> kKinds[] = {
    {"module", BlockKind::kModule}, {"macro", BlockKind::kMacro},     {"item", BlockKind::kItem},
    {"iod", BlockKind::kIod},       {"message", BlockKind::kMessage}, {"extend", BlockKind::kExtension}};

std::optional<BlockKind> block_kind(std::string_view word) {
  for (const auto& [name, kind] : kKinds) {
    if (name == word) return kind;
  }
  return std::nullopt;
}

// "=A|B", "~A", "2=A": a list of values, with the number of the value it is about.
std::optional<ValueList> parse_values(std::string_view text) {
  ValueList list;
  size_t at = 0;
  int number = 0;
  while (at < text.size() && at < 4 && std::isdigit(static_cast<unsigned char>(text[at])) != 0) {
    number = number * 10 + (text[at++] - '0');
  }
  if (at == text.size() || (text[at] != '=' && text[at] != '~')) return std::nullopt;
  if (at > 0 && (number < 1 || number > 999)) return std::nullopt;
  if (at > 0) list.number = number;
  list.enumerated = text[at] == '=';
  list.values = split_values(text.substr(at + 1));
  return list;
}

std::string parse_option(Attribute& attribute, const std::string& field) {
  const std::string rest = field.substr(1);
  if (field == "+") {
    attribute.may = true;
    return "";
  }
  switch (field[0]) {
    case '?':
      if (!attribute.condition.empty()) return "a second condition";
      attribute.condition = rest;
      break;
    case '!':
      attribute.untold = rest;
      break;
    case '^':
      attribute.module = rest;
      break;
    case '>':
      attribute.items = split_values(rest);
      break;
    case '@':
      attribute.creator = rest;
      break;
    case '*':
      attribute.default_value = rest;
      break;
    case ':':
      attribute.vr = vr_code(rest);
      if (!attribute.vr || *attribute.vr == kVrUn) return "VR not possible: " + rest;
      break;
    default: {
      auto list = parse_values(field);
      if (!list) return "option not understood: " + field;
      attribute.values.push_back(std::move(*list));
    }
  }
  return rest.empty() && field[0] != '*' ? "option without a text: " + field : std::string();
}

// Which of two types asks for more.
int rank(AttributeType type) {
  constexpr int kRank[] = {0, 2, 1, 3, 4};
  return kRank[type];
}

bool stays_inside(const std::string& condition, const Body& body) {
  // An absent module must not make a condition hold that speaks of absence or of other modules.
  for (const char* word : {"NOT_", " absent", " not ", " uncounted", "^", "~"}) {
    if (condition.find(word) != std::string::npos) return false;
  }
  for (const uint32_t tag : condition_tags(condition)) {
    if (body.find(tag) == body.end()) return false;
  }
  return true;
}

// Rules are judged from left to right, so that alternatives have to stand in front.
std::string both(const std::string& own, const std::string& use) {
  if (use.find(" | ") != std::string::npos) return kMayBePresent;
  return own.substr(0, own.size() - 1) + " & " + use.substr(1);
}

// A module that need not be there asks for nothing by itself. What it demands may be missing, but it may not
// be null where it is.
void weaken(Body& body, const Reference& use) {
  const Body all = body;
  for (auto& [tag, attribute] : body) {
    if (attribute.type == kType3) continue;
    if (is_conditional(attribute.type)) {
      if (attribute.condition.empty() || stays_inside(attribute.condition, all)) continue;
      const bool joined = is_rule(use.condition) && is_rule(attribute.condition) &&
                          (use.condition + attribute.condition).find(" -> ") == std::string::npos;
      attribute.condition = joined ? both(attribute.condition, use.condition) : kMayBePresent;
      attribute.may = joined;
    } else {
      attribute.type = attribute.type == kType1 ? kType1C : kType2C;
      attribute.condition = use.condition.empty() ? std::string(kMayBePresent) : use.condition;
      attribute.may = !use.condition.empty() && (use.usage == 'U' || use.may);
      attribute.lowered = use.condition.empty();
    }
  }
}

// A list joins that for the same value number and of the same kind.
void unite_values(std::vector<ValueList>& values, const ValueList& more) {
  const auto same = std::find_if(values.begin(), values.end(), [&](const ValueList& list) {
    return list.number == more.number && list.enumerated == more.enumerated;
  });
  if (same == values.end()) return values.push_back(more);
  for (const std::string& value : more.values) {
    const auto known = std::find(same->values.begin(), same->values.end(), value);
    if (known == same->values.end()) same->values.push_back(value);
  }
}

void take_values(Attribute& into, const Attribute& from, bool choice) {
  // The later module is the more specialised one: its lists replace those for the same value number. One that
  // need not be there allows more, not less.
  for (const ValueList& list : from.values) {
    if (choice) continue;
    std::erase_if(into.values, [&](const ValueList& old) { return old.number == list.number; });
  }
  for (const ValueList& list : from.values) {
    if (!choice || !into.values.empty()) unite_values(into.values, list);
  }
  std::stable_sort(into.values.begin(), into.values.end(),
                   [](const ValueList& a, const ValueList& b) { return a.number < b.number; });
  std::vector<std::string> items = from.items;
  for (const auto& item : into.items) {
    if (std::find(items.begin(), items.end(), item) == items.end()) items.push_back(item);
  }
  into.items = std::move(items);
  if (from.vr) into.vr = from.vr;
  if (from.default_value) into.default_value = from.default_value;
  if (!from.creator.empty()) into.creator = from.creator;
}

void take_type(Attribute& into, const Attribute& from) {
  into.type = from.type;
  into.module = from.module;
  into.lowered = from.lowered;
  into.untold = from.untold;
  into.place = from.place;
}

// `choice`: the attribute comes from a module that need not be there.
void merge(Attribute& into, const Attribute& from, bool choice) {
  take_values(into, from, choice);
  // What only a module demands that need not be there does not count beside one that is there.
  if ((into.overrules && !from.overrules) || (from.lowered && !into.lowered)) return;
  if (into.lowered && !from.lowered && !from.overrules) {
    take_type(into, from);
    into.condition = from.condition;
    into.may = from.may;
    return;
  }
  if (from.overrules) {
    take_type(into, from);
    into.condition = from.condition;
    into.may = from.may;
    into.overrules = true;
    return;
  }
  // A condition that fails forbids the attribute; it must not do so where another module allows it.
  const bool agreed = into.condition == from.condition && into.may == from.may;
  if (!agreed) {
    const bool stricter = rank(from.type) < rank(into.type);
    const Attribute& strict = stricter ? from : into;
    const Attribute& other = stricter ? into : from;
    const bool open = strict.condition.empty() || strict.condition == kMayBePresent;
    into.condition = open && strict.type == other.type ? other.condition : strict.condition;
    into.may = true;
  }
  if (rank(from.type) < rank(into.type)) take_type(into, from);
  if (!is_conditional(into.type)) {
    into.condition.clear();
    into.may = false;
  } else if (into.condition.empty() || into.condition == kMayBePresent) {
    into.condition = agreed ? into.condition : kMayBePresent;
    into.may = false;
  }
}

}  // namespace

std::optional<AttributeType> parse_type(std::string_view text) {
  for (size_t i = 0; i < kTypes.size(); ++i) {
    if (kTypes[i] == text) return static_cast<AttributeType>(i);
  }
  return std::nullopt;
}

std::string_view type_text(AttributeType type) {
  return kTypes[type];
}

std::vector<std::string> split_values(std::string_view text) {
  std::vector<std::string> values(1);
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) {
      values.back() += text[++i];
    } else if (text[i] == '|') {
      values.emplace_back();
    } else {
      values.back() += text[i];
    }
  }
  return values;
}

std::string join_values(const std::vector<std::string>& values) {
  std::string text;
  for (size_t i = 0; i < values.size(); ++i) {
    if (i > 0) text += '|';
    for (const char c : values[i]) {
      if (c == '|' || c == '\\') text += '\\';
      text += c;
    }
  }
  return text;
}

std::string attribute_line(const Attribute& attribute) {
  std::string line = tag_text(attribute.tag);
  line.append("\t").append(type_text(attribute.type)).append(attribute.overrules ? "!" : "");
  line.append("\t").append(attribute.keyword.empty() ? "-" : attribute.keyword);
  if (attribute.vr) line.append("\t:").append(vr_letters(*attribute.vr));
  if (!attribute.creator.empty()) line.append("\t@").append(attribute.creator);
  if (!attribute.condition.empty()) line.append("\t?").append(attribute.condition);
  if (attribute.may) line.append("\t+");
  if (!attribute.items.empty()) line.append("\t>").append(join_values(attribute.items));
  for (const ValueList& list : attribute.values) {
    line += '\t';
    if (list.number != 1) line += std::to_string(list.number);
    line.append(list.enumerated ? "=" : "~").append(join_values(list.values));
  }
  if (attribute.default_value) line.append("\t*").append(*attribute.default_value);
  if (!attribute.module.empty()) line.append("\t^").append(attribute.module);
  return line;
}

std::vector<uint32_t> condition_tags(std::string_view name) {
  if (name.starts_with('(')) return read_rule(std::string(name.substr(1, name.size() - 2))).tags;
  std::vector<uint32_t> tags;
  for (size_t at = 0; at + 9 <= name.size(); ++at) {
    if (name[at] != 'A' || (at > 0 && name[at - 1] != '_' && name[at - 1] != 'A')) continue;
    const std::string digits(name.substr(at + 1, 8));
    const auto tag = parse_tag(digits.substr(0, 4) + "," + digits.substr(4));
    if (tag && (at + 9 == name.size() || name[at + 9] == '_')) tags.push_back(tag->tag);
  }
  return tags;
}

void Templates::open_block(const std::vector<std::string>& fields, Place place, Problems& problems) {
  Block block;
  block.kind = *block_kind(fields[0]);
  block.place = place;
  block.name = fields.size() > 1 ? fields[1] : "";
  if (block.name.empty()) problems.error(*place.file, place.line, "a " + fields[0] + " wants a name");
  if (block.kind == BlockKind::kMessage || block.kind == BlockKind::kExtension) {
    for (const auto& word : split(fields.size() > 2 ? fields[2] : "", ' ')) {
      if (word.empty() && block.kind == BlockKind::kExtension) continue;
      const uint16_t command = command_value(word);
      if (command == 0) {
        problems.error(*place.file, place.line, "unknown command " + word);
      } else {
        block.commands.push_back(command);
      }
    }
  } else if (fields.size() > 2) {
    block.title = fields[2];
  }
  blocks_.push_back(std::move(block));
  Block& made = blocks_.back();
  const bool named = made.kind != BlockKind::kMessage && made.kind != BlockKind::kExtension;
  if (named && !index_.emplace(made.name, &made).second) {
    const Place& first = index_.at(made.name)->place;
    problems.error(*place.file, place.line,
                   made.name + " stands already at " + *first.file + format(":%d", first.line));
  }
}

void Templates::read_row(const std::vector<std::string>& fields, Place place, Problems& problems) {
  const auto fault = [&](const std::string& text) { problems.error(*place.file, place.line, text); };
  if (fields[0] == "unknown") {
    if (fields.size() != 2) return fault("unknown wants a reason");
    blocks_.back().unknown.push_back(fields[1]);
    return;
  }
  if (fields[0] == "include" || fields[0] == "use") {
    Reference reference{fields.size() > 1 ? fields[1] : "", 'M', {}, place, false};
    if (reference.name.empty()) return fault(fields[0] + " wants the name of a block");
    if (fields[0] == "use") {
      const std::string usage = fields.size() > 2 ? fields[2] : "";
      if (usage != "M" && usage != "C" && usage != "U") return fault("usage is M, C or U, not " + usage);
      reference.usage = usage[0];
    }
    const size_t next = fields[0] == "use" ? 3 : 2;
    if (fields.size() > next) {
      if (fields[0] != "use" || fields[next][0] != '?') return fault("not understood: " + fields[next]);
      reference.condition = fields[next].substr(1);
      reference.may = fields.back() == "+";
    }
    blocks_.back().rows.emplace_back(std::move(reference));
    return;
  }
  const auto tag = parse_tag(fields[0]);
  if (!tag || tag->block_free) return fault("neither a tag nor a known word: " + fields[0]);
  if (fields.size() < 3) return fault("an attribute wants tag, type and keyword");
  Attribute attribute;
  attribute.tag = tag->tag;
  attribute.place = place;
  attribute.module = blocks_.back().title;
  std::string_view type = fields[1];
  if (!type.empty() && type.back() == '!') {
    attribute.overrules = true;
    type.remove_suffix(1);
  }
  const auto parsed = parse_type(type);
  if (!parsed) return fault("type is 1, 1C, 2, 2C or 3, not " + fields[1]);
  attribute.type = *parsed;
  attribute.keyword = fields[2] == "-" ? "" : fields[2];
  for (size_t i = 3; i < fields.size(); ++i) {
    if (fields[i].empty()) return fault("an empty column");
    if (const auto text = parse_option(attribute, fields[i]); !text.empty()) return fault(text);
  }
  if (!attribute.condition.empty() && !is_conditional(attribute.type)) {
    return fault("only types 1C and 2C have a condition");
  }
  if (attribute.may && attribute.condition.empty()) return fault("+ without a condition");
  for (const auto& row : blocks_.back().rows) {
    const auto* other = std::get_if<Attribute>(&row);
    if (other != nullptr && other->tag == attribute.tag) {
      return fault(fields[0] + format(" stands already in line %d of this block", other->place.line));
    }
  }
  blocks_.back().rows.emplace_back(std::move(attribute));
}

void Templates::read(const std::string& path, Problems& problems) {
  files_.push_back(path);
  bool in_block = false;
  for (const Line& line : read_lines(path)) {
    const Place place{&files_.back(), line.number};
    const auto fields = split(line.text, '\t');
    if (fields[0] == "define") {
      if (fields.size() != 3) problems.error(path, line.number, "define wants a name and a rule");
      if (fields.size() == 3) defined_[fields[1]] = fields[2];
    } else if (block_kind(fields[0])) {
      open_block(fields, place, problems);
      in_block = true;
    } else if (!in_block) {
      problems.error(path, line.number, "a line outside of any block");
    } else {
      read_row(fields, place, problems);
    }
  }
}

std::vector<Block*> Templates::extended_by(const Block& extension) {
  std::vector<Block*> targets;
  if (extension.commands.empty()) {
    if (const auto at = index_.find(extension.name); at != index_.end()) targets.push_back(at->second);
    return targets;
  }
  for (Block& block : blocks_) {
    const auto wanted = [&](uint16_t command) {
      return std::find(extension.commands.begin(), extension.commands.end(), command) !=
             extension.commands.end();
    };
    if (block.kind == BlockKind::kMessage && block.name == extension.name &&
        std::any_of(block.commands.begin(), block.commands.end(), wanted)) {
      targets.push_back(&block);
    }
  }
  return targets;
}

void Templates::join_extensions(Problems& problems) {
  for (Block& extension : blocks_) {
    if (extension.kind != BlockKind::kExtension) continue;
    const auto targets = extended_by(extension);
    if (targets.empty()) {
      problems.error(*extension.place.file, extension.place.line, "no block of the name " + extension.name);
    }
    for (Block* target : targets) {
      target->rows.insert(target->rows.end(), extension.rows.begin(), extension.rows.end());
    }
    extension.rows.clear();
  }
  for (Block& block : blocks_) {
    for (auto& row : block.rows) {
      if (auto* attribute = std::get_if<Attribute>(&row)) {
        fill_in(attribute->condition, attribute->place, problems);
      } else {
        auto& reference = std::get<Reference>(row);
        fill_in(reference.condition, reference.place, problems);
      }
    }
  }
}

void Templates::fill_in(std::string& condition, const Place& place, Problems& problems) const {
  if (!is_rule(condition)) return;
  for (size_t at = condition.find('@'); at != std::string::npos; at = condition.find('@', at)) {
    const size_t end = condition.find_first_of(" )", at);
    const std::string name = condition.substr(at + 1, end - at - 1);
    const auto known = defined_.find(name);
    if (known == defined_.end())
      return problems.error(*place.file, place.line, "@" + name + " is not defined");
    condition.replace(at, end - at, known->second);
    at += known->second.size();
  }
}

const Block* Templates::find(const std::string& name) const {
  const auto at = index_.find(name);
  return at == index_.end() ? nullptr : at->second;
}

void Templates::merge_reference(Body& body, const Reference& reference, Problems& problems) {
  const Block* block = find(reference.name);
  if (block == nullptr) {
    problems.error(*reference.place.file, reference.place.line, "no block of the name " + reference.name);
    return;
  }
  if (open_[block]) {
    problems.error(*reference.place.file, reference.place.line, reference.name + " contains itself");
    return;
  }
  Body part = expand(*block, problems);
  if (reference.usage != 'M') weaken(part, reference);
  for (const auto& [tag, attribute] : part) {
    const auto [at, fresh] = body.emplace(tag, attribute);
    if (!fresh) merge(at->second, attribute, reference.usage != 'M');
  }
}

const Body& Templates::expand(const Block& block, Problems& problems) {
  const auto known = bodies_.find(&block);
  if (known != bodies_.end()) return known->second;
  open_[&block] = true;
  Body body;
  for (const auto& row : block.rows) {
    if (const auto* reference = std::get_if<Reference>(&row)) {
      merge_reference(body, *reference, problems);
    } else {
      const auto& attribute = std::get<Attribute>(row);
      const auto [at, fresh] = body.emplace(attribute.tag, attribute);
      if (!fresh) merge(at->second, attribute, false);
    }
  }
  open_[&block] = false;
  return bodies_[&block] = std::move(body);
}

}  // namespace vxdata
