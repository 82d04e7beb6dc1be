// De-identification as subcommands offer it: options, the secret, and what is done to one object.
#pragma once

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

class Deidentifier {
 public:
  // False after a line on standard error.
  bool read(const Args& args);
  const Blanking& blanking() const { return blanking_; }
  // Takes out of an open object what identifies. `changes`, if it is there, gets a JSON line for each, which
  // begins with `head` and has the old values only with `values`. An error text, empty on success; the object
  // must not be used then.
  std::string apply(int32_t object, bool blanked, std::string* changes = nullptr,
                    const std::string& head = "", bool values = false) const;
  // What stands for a UID.
  std::string uid(const std::string& old) const;

 private:
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
