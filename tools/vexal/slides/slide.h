// A whole-slide image: its frames are tiles of one large picture, the total pixel matrix (PS3.3 section
// C.7.6.17.3). One object, or the parts of a concatenation (PS3.3 section C.7.6.16.2.2.4).
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "rendering/pixel_image.h"

namespace vexal {

// A tile of the matrix: where its first pixel lies, from 0, and the frame that it is.
struct Tile {
  int32_t x = 0;
  int32_t y = 0;
  uint32_t part = 0;   // file
  uint32_t frame = 0;  // of that file, from 0
};

// What the parts of a matrix have in common.
struct MatrixForm {
  uint32_t columns = 0;
  uint32_t rows = 0;
  uint32_t tile_columns = 0;
  uint32_t tile_rows = 0;
  uint32_t planes = 1;  // focal planes
  // Identifiers of optical paths, or numbers of segments; one "" where there are none.
  std::vector<std::string> paths;
  bool segments = false;             // those are what the paths are
  bool full = false;                 // frames follow each other over the matrix; else each says where it lies
  uint64_t frames_expected() const;  // of a full one
  uint32_t tiles_across() const { return (columns + tile_columns - 1) / tile_columns; }
  uint32_t tiles_down() const { return (rows + tile_rows - 1) / tile_rows; }
};

class Slide {
 public:
  // An error text, empty on success.
  std::string open(const std::vector<std::string>& files);
  const MatrixForm& form() const { return form_; }
  PixelImage& part(uint32_t number) const { return *parts_[number]; }
  std::size_t parts() const { return parts_.size(); }
  // Tiles of one optical path and focal plane, in the order of their frames.
  const std::vector<Tile>& tiles(uint32_t path, uint32_t plane) const {
    return tiles_[std::size_t{path} * form_.planes + plane];
  }
  uint64_t frames() const { return frames_; }
  // What contradicts itself in them, or is missing; sentences without a point.
  const std::vector<std::string>& findings() const { return findings_; }
  // Where nothing was scanned (PS3.3 section C.8.12.4), as red, green and blue.
  std::array<uint8_t, 3> background() const;

 private:
  // A frame that tells its own place.
  struct Placed {
    Tile tile;
    uint32_t path;
    double depth;
  };
  std::string open_part(const std::string& file);
  std::string check_parts();
  std::string lay_full();
  std::string lay_sparse(std::vector<Placed>& placed);
  std::string lay_frame(const FunctionalGroups& groups, Placed& placed) const;
  void keep(const std::vector<Placed>& placed);
  void find(const std::string& what) { findings_.push_back(what); }

  MatrixForm form_;
  std::vector<std::unique_ptr<PixelImage>> parts_;
  std::vector<uint32_t> offsets_;  // of the parts' frames among all
  std::vector<std::vector<Tile>> tiles_;
  std::vector<std::string> findings_;
  uint64_t frames_ = 0;
};

// True if the object says that it is part of such a matrix.
bool has_matrix(int32_t object);
// An error text, empty on success.
std::string read_matrix_form(int32_t object, MatrixForm& form);

}  // namespace vexal
