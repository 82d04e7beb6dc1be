// The table of conditions, as text: a row a line, sorted by name. Templates may hold rules of the same form.
//
// A rule is clauses, joined by & and | and evaluated from left to right; behind "->" stand the answers that
// take the place of fails, holds and unknown. A clause is
//   tags[:value][?] verb [arguments]
// where tags are one tag, "own" (the attribute that the condition belongs to), or several: with commas all of
// them must fulfil the verb, with slashes one. The value is 1 if none is named, * is any. With ? a value that
// can't be read fails; otherwise the answer is unknown. Arguments are alternatives between slashes.
// With ! what fails is unknown: the attribute of the condition may be there or not. ? goes first.
// A tag means the object at hand; with ^ in front the one around it (again for the next), with ~ the message
// or file. "TAG>" leads into the first item of a sequence, "TAG*>" into whichever fulfils the verb.
//
//   present, absent, plural      by what the object holds: a null value is a value
//   counted, uncounted, multivalued   by the values that an application sees: a null value is none
//   null                         there, without a value
//   is, not                      the value begins with a text; a $ at its end stands for the value's end
//   =, >, <>                     the value as a number
//   points, lists                the first value is one of the tags; one of the values is the tag
//   private                      one of the values is the tag of a private attribute
//   optional                     not there, or of type 3 in the object's template
//   uneven                       two numbers that aren't both 1
#pragma once

#include <string_view>

namespace vx {

extern const std::string_view kConditionRules;      // NAME: rule
extern const std::string_view kUnjudgedConditions;  // NAME; they need more than the object at hand

}  // namespace vx
