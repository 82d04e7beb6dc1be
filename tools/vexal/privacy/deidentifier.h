// De-identification as subcommands offer it: options, the secret, and what is done to one object.
#pragma once

#include <memory>
#include <string>

#include "base/args.h"
#include "blanking.h"
#include "files/files.h"

namespace vexal {

// Rows of an option table: the options of the profile (PS3.15 annex E), and what else tells what becomes of
// an object.
#define VEXAL_DEIDENTIFY_OPTIONS                                                                             \
  {"--retain-safe-private", nullptr, "keep private attributes that are known to be harmless"},               \
      {"--retain-uids", nullptr, "keep UIDs"},                                                               \
      {"--retain-device-identity", nullptr, "keep what tells of the device"},                                \
      {"--retain-institution-identity", nullptr, "keep what tells of the institution"},                      \
      {"--retain-patient-characteristics", nullptr, "keep age, sex, size, weight and the like"},             \
      {"--retain-full-dates", nullptr, "keep dates and times"},                                              \
      {"--retain-modified-dates", nullptr, "move dates, those of a patient by the same number of days"},     \
      {"--shift-dates", "DAYS", "move dates by so many days, all patients alike"},                           \
      {"--clean-descriptors", nullptr, "keep codes of public schemes, and a neutral text for descriptions"}, \
      {"--clean-structured-content", nullptr, "keep such codes and the numbers of reports"},                 \
      {"--clean-graphics", nullptr, "keep graphics of presentation states, without their texts"},            \
      {"--key", "FILE",                                                                                      \
       "derive UIDs, pseudonyms and shifts from this file, which is made if it is missing"},                 \
      {"--secret", "TEXT",                                                                                   \
       "derive them from a text of 16 characters or more, which others may see in lists "                    \
       "of processes"},                                                                                      \
      {"--unknown-class", "refuse|by-table",                                                                 \
       "objects of classes without rules: refuse them (default), or go by the profile's table alone"},       \
      {"--documents", "refuse|replace",                                                                      \
       "encapsulated documents: refuse them (default), or put a dummy there"},                               \
      {"--burned-in", "refuse|keep",                                                                         \
       "images that say they have identifying text in their pixels, and of which nothing is blanked: "       \
       "refuse "                                                                                             \
       "them (default) or keep them"},                                                                       \
      {"--blank", "X,Y,W,H", "make this part of each frame black (may be repeated)"}, {                      \
    "--blank-ultrasound", nullptr, "make ultrasound images black outside of their regions"                   \
  }

// What is written down of the changes to one object.
struct ChangeNotes {
  std::string head;     // what each line begins with: an open JSON object
  bool values = false;  // the old ones too
  std::string lines{};
};

class Deidentifier {
 public:
  // False after a line on standard error.
  bool read(const Args& args);
  // For subcommands that do it with --deidentify alone: null without that, and then none of the options above
  // may be there. False after a line on standard error.
  static bool read_if_asked(const Args& args, std::unique_ptr<Deidentifier>& out);

  // How the result is to be.
  struct Target {
    VX_TRANSFER_SYNTAX syntax = 0;
    std::string beside{};  // a path in a folder where a copy may lie for a while
    unsigned threads = 1;
    ChangeNotes* notes = nullptr;
  };
  // The file's own syntax, or one without compression where its pixels go and can not be compressed again.
  VX_TRANSFER_SYNTAX own_syntax(const DicomFile& file) const;
  // Hands the file, or a copy of it, to `take` without what identifies: once, and only if all of that could
  // be done. An error text, empty on success; the file must not be used then.
  std::string change(DicomFile& file, const Target& target, const Blanking::Taker& take) const;
  // What stands for a UID.
  std::string uid(const std::string& old) const;

 private:
  std::string apply(int32_t object, bool blanked, ChangeNotes* notes) const;
  bool read_secret(const Args& args);
  bool read_choices(const Args& args);
  VX_DEIDENTIFICATION how(uint32_t more) const;

  uint32_t options_ = 0;
  int32_t shift_ = 0;
  bool keeps_burned_in_ = false;
  std::string secret_;
  Blanking blanking_;
};

}  // namespace vexal
