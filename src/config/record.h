// Inside the configuration layer: who owns the record, its texts and what is parsed from them.
#pragma once

#include <string>
#include <string_view>

#include "config/config.h"
#include "config/tables.h"

namespace vx {

// Every key at its default.
void set_defaults(ConfigRecord& record);
// What config() gives while nothing is loaded.
ConfigRecord& default_record();

// Makes a new record with all keys at their defaults the current one; config_drop() frees it.
ConfigRecord& start_record();
// Hands over the tables of the profiles; the record points into them.
void adopt_tables(ProfileTables* tables);

// "<none>", "none", "na", "n/a" and "", in any case, all stand for the empty text.
bool is_empty_word(std::string_view text);
// Stores a copy. False if there is no memory: the key is empty then.
bool store_text(VX_STRING_KEY key, std::string_view text);
// Stores a text that lives as long as the program.
void store_constant(VX_STRING_KEY key, const char* text);

// Keys that take one of a few words. Their values are constants, so that they may be read without a lock.
enum class WordMatch : uint8_t { Exact, AnyCaseInProfile, FirstLetter };
struct WordRule {
  VX_STRING_KEY key;
  WordMatch match;
  const char* words[3];        // the first one is the default
  const char* setter_tail;     // behind "Invalid KEY value: VALUE"; null for a key that never complains
  const char* setter_default;  // the second warning
  const char* profile_tail;
  const char* profile_default;
};
const WordRule* find_word_rule(VX_STRING_KEY key);
// The word that a value stands for, or null.
const char* pick_word(const WordRule& rule, std::string_view value, bool in_profile);

// The logger and the pools get what they need of the record.
void push_settings();

// ACCEPT_LIST_OF_APPLICATION_TITLES and DECODER_TAG_FILTER. False, after a line in the log, for a malformed
// text. The configuration lock is held.
bool parse_titles(std::string_view text);
void drop_titles();
bool parse_filter(std::string_view text);
void drop_filter();

// The folder of vexal.ini with a '/' behind it; empty if none was read.
std::string& config_path();

// Drops the service list.
void drop_service_list();

}  // namespace vx
