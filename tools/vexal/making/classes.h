// The classes of objects that are made, and what their attributes are.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "input.h"
#include "stills.h"

namespace vexal {

// What a class takes, and which rows of the table of attributes are for it.
enum ClassTrait : uint32_t {
  kTakesPicture = 1,
  kTakesFrames = 2,
  kTakesDocument = 4,
  kTakesVideo = 8,
  kSecondary = 16,  // secondary captures
  kLight = 32,      // visible light
  kPaper = 64,      // documents to read
  kModel = 128,     // of three dimensions, or their materials
  kPlaced = 256     // with coordinates
};

struct ObjectClass {
  const char* name;  // for --class
  const char* uid;
  const char* modality;
  uint32_t traits;
  InputKind document = InputKind::Unknown;
  const char* mime = nullptr;
};

// By its name; null if there is none.
const ObjectClass* find_class(const std::string& name);
// All names, parted by commas.
std::string class_names();
// The usual class for one input of a kind.
const ObjectClass& usual_class(InputKind kind);
// The class for several frames of this form in place of the usual one; null if there is none.
const ObjectClass* class_of_frames(const Still& still);

// Gives a new object what its class asks for and it does not have: values of type 1, and those of type 2
// empty. An error text, empty on success.
std::string fill_class(int32_t object, const ObjectClass& row);
// An attribute of type 1 without a value; 0 if there is none.
uint32_t lacking_attribute(int32_t object, const ObjectClass& row);

}  // namespace vexal
