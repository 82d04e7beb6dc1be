// From stored values to shades of grey: modality, VOI and presentation transformations (PS3.3 sections C.11.1
// to C.11.6), as PS3.4 section N.2 puts them in order.
#pragma once

#include <cstdint>
#include <string>

#include "drawing/picture.h"
#include "files/files.h"
#include "image_description.h"
#include "lookup_table.h"

namespace vexal {

// How a value becomes a level from 0 to 1 (PS3.3 section C.11.2).
struct Window {
  enum class Form { kLinear, kExact, kSigmoid } form = Form::kLinear;
  double center = 0;
  double width = 1;
  double level(double value) const;
};

// Whose attributes tell of each step; -1: the step does nothing.
struct GreySources {
  int32_t image = -1;         // of padding
  int32_t modality = -1;      // table
  int32_t rescale = -1;       // slope and intercept
  int32_t voi = -1;           // windows
  int32_t voi_table = -1;     // and tables
  int32_t presentation = -1;  // shape or table
  int32_t profile = -1;       // of colours: the object or item that holds it
  bool light_first = false;   // the lowest value is white
  bool by_range = true;  // values without window or table: the range that they have, else the one possible
};

class GreyScale {
 public:
  // An error text, empty on success.
  std::string read(const ImageDescription& image, const GreySources& sources, const RenderOptions& options);
  void apply(const Bytes& frame, Picture& picture);

 private:
  std::string read_voi(const GreySources& sources, const RenderOptions& options);
  void read_padding(int32_t id);
  double modality_value(double plain) const;
  bool is_padding(double plain) const;
  double level(double value) const;
  void take_range(const StoredSamples& samples);
  void take_possible_range();
  template <typename Shade>
  void fill(const StoredSamples& samples, Shade* to) const;

  ImageDescription image_;
  LookupTable modality_;
  double slope_ = 1;
  double intercept_ = 0;
  enum class Voi { kWindow, kTable, kRange } by_ = Voi::kWindow;
  Window window_;
  LookupTable voi_;
  LookupTable presentation_;
  bool inverse_ = false;
  bool padded_ = false;
  double padding_low_ = 0;
  double padding_high_ = 0;
  uint32_t bits_ = 8;
};

}  // namespace vexal
