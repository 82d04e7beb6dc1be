// Objects of the archive as they go out over the web.
#pragma once

#include <memory>
#include <string>

#include "holdings/holdings.h"
#include "http/http_message.h"
#include "images/bounded_file.h"
#include "rendering/pixel_image.h"

namespace vexal {

// Whether an object that is stored in one syntax can be had in another, as far as the syntaxes tell.
bool can_become(VX_TRANSFER_SYNTAX stored, VX_TRANSFER_SYNTAX wanted);

// A file of the object in a transfer syntax (0: as it is stored), as a body. An error text, empty on success.
std::string object_body(Holdings& holdings, const ObjectFile& object, VX_TRANSFER_SYNTAX wanted,
                        HttpBody& body);

// All of a file, which stays open and may have lost its name meanwhile.
HttpBody body_of_file(const std::shared_ptr<FileSource>& source);

// An image of the archive that is open, in bounded memory.
class OpenImage {
 public:
  // As it is stored, or in another transfer syntax. An error text, empty on success.
  std::string open(Holdings& holdings, const ObjectFile& object, VX_TRANSFER_SYNTAX wanted = 0);
  PixelImage& image() { return *image_; }
  // Others wait while it is open.
  bool is_crowded() const { return bounds_ != nullptr && bounds_->has_turn(); }
  // Bytes of a frame in memory, decompressed.
  uint64_t frame_bytes() const;

 private:
  std::unique_ptr<LocalObject> local_;
  std::unique_ptr<BoundedFile> bounds_;
  std::unique_ptr<PixelImage> image_;
};

}  // namespace vexal
