#include "slide.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "base/attributes.h"
#include "base/object_values.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"
#include "drawing/lab.h"

namespace vexal {
namespace {

constexpr uint32_t kMostChannels = 65536;
constexpr uint64_t kMostTiles = uint64_t{1} << 23;

std::string count_text(uint64_t number, const char* what) {
  return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

}  // namespace

bool has_matrix(int32_t object) {
  return number_of(object, tags::kTotalPixelMatrixColumns, 0) != 0 &&
         number_of(object, tags::kTotalPixelMatrixRows, 0) != 0;
}

std::string read_matrix_form(int32_t object, MatrixForm& form) {
  form = {};
  form.columns = number_of(object, tags::kTotalPixelMatrixColumns, 0);
  form.rows = number_of(object, tags::kTotalPixelMatrixRows, 0);
  form.tile_columns = number_of(object, tags::kColumns, 0);
  form.tile_rows = number_of(object, tags::kRows, 0);
  if (form.columns > INT32_MAX || form.rows > INT32_MAX) return "its total pixel matrix is too large";
  if (form.tile_columns == 0 || form.tile_rows == 0) return "its tiles have no size";
  form.planes = std::max(number_of(object, tags::kTotalPixelMatrixFocalPlanes, 1), 1U);
  const std::string segmentation = text_of(object, tags::kSegmentationType);
  form.segments = !segmentation.empty() && segmentation != "LABELMAP";
  if (form.segments) {
    for (const int32_t item : sequence_items(object, tags::kSegmentSequence))
      form.paths.push_back(text_of(item, tags::kSegmentNumber));
  } else if (segmentation.empty()) {
    for (const int32_t item : sequence_items(object, tags::kOpticalPathSequence))
      form.paths.push_back(text_of(item, tags::kOpticalPathIdentifier));
  }
  const uint32_t told = !segmentation.empty() ? 0 : number_of(object, tags::kNumberOfOpticalPaths);
  if (told > kMostChannels ||
      uint64_t{form.planes} * std::max<uint64_t>(told, form.paths.size()) > kMostChannels)
    return "it tells of too many optical paths or focal planes";
  if (form.paths.empty()) form.paths.resize(std::max(told, 1U));
  // Some writers of one frame a tile leave the kind out.
  const std::string kind = text_of(object, tags::kDimensionOrganizationType);
  form.full =
      kind == "TILED_FULL" ||
      (kind != "TILED_SPARSE" && FunctionalGroups(object).item(0, tags::kPlanePositionSlideSequence) < 0);
  return "";
}

uint64_t MatrixForm::frames_expected() const {
  return uint64_t{tiles_across()} * tiles_down() * planes * paths.size();
}

std::string Slide::open(const std::vector<std::string>& files) {
  for (const std::string& file : files) {
    if (std::string problem = open_part(file); !problem.empty()) return file + ": " + problem;
  }
  if (std::string problem = check_parts(); !problem.empty()) return problem;
  if (form_.full) return lay_full();
  std::vector<Placed> placed;
  if (std::string problem = lay_sparse(placed); !problem.empty()) return problem;
  keep(placed);
  return "";
}

std::string Slide::open_part(const std::string& file) {
  auto image = std::make_unique<PixelImage>();
  if (std::string problem = image->open(file); !problem.empty()) return problem;
  const int32_t id = image->file().id();
  if (!has_matrix(id)) return "it has no total pixel matrix";
  const MatrixForm before = form_;
  if (std::string problem = read_matrix_form(id, form_); !problem.empty()) return problem;
  if (!parts_.empty() &&
      (before.columns != form_.columns || before.rows != form_.rows || before.full != form_.full ||
       before.tile_columns != form_.tile_columns || before.tile_rows != form_.tile_rows ||
       before.planes != form_.planes || before.paths != form_.paths)) {
    return "it is no part of the matrix of the files before it";
  }
  offsets_.push_back(number_of(id, tags::kConcatenationFrameOffsetNumber, 0));
  frames_ += image->description().frames;
  if (frames_ > kMostTiles) return "its tiles are too many";
  parts_.push_back(std::move(image));
  return "";
}

// Files of one matrix are the parts of one concatenation, which may lack some.
std::string Slide::check_parts() {
  const auto object_of = [this](std::size_t i) { return parts_[i]->file().id(); };
  const std::string uid = text_of(object_of(0), tags::kConcatenationUID);
  for (std::size_t i = 1; i < parts_.size(); ++i) {
    if (uid.empty() || text_of(object_of(i), tags::kConcatenationUID) != uid)
      return parts_[i]->file().path() + ": it is no part of the first file's concatenation";
  }
  const uint32_t total = number_of(object_of(0), tags::kInConcatenationTotalNumber, 0);
  if (!uid.empty() && total > parts_.size())
    find(count_text(total - parts_.size(), "part") + " of the concatenation's " + std::to_string(total) +
         (total - parts_.size() == 1 ? " is missing" : " are missing"));
  std::vector<std::size_t> order(parts_.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::sort(order.begin(), order.end(),
            [this](std::size_t a, std::size_t b) { return offsets_[a] < offsets_[b]; });
  std::vector<std::unique_ptr<PixelImage>> parts;
  std::vector<uint32_t> offsets;
  for (const std::size_t i : order) {
    if (!offsets.empty() && offsets.back() + parts.back()->description().frames > offsets_[i])
      return parts_[i]->file().path() + ": its frames are also those of another part";
    offsets.push_back(offsets_[i]);
    parts.push_back(std::move(parts_[i]));
  }
  parts_.swap(parts);
  offsets_.swap(offsets);
  return "";
}

// Along a row, from row to row, from plane to plane, from path to path.
std::string Slide::lay_full() {
  const uint64_t across = form_.tiles_across();
  const uint64_t of_plane = across * form_.tiles_down();
  const uint64_t expected = form_.frames_expected();
  tiles_.resize(form_.paths.size() * form_.planes);
  uint64_t laid = 0;
  for (uint32_t part = 0; part < parts_.size(); ++part) {
    for (uint32_t i = 0; i < parts_[part]->description().frames; ++i) {
      const uint64_t frame = uint64_t{offsets_[part]} + i;
      if (frame >= expected) break;
      const uint64_t place = frame % of_plane;
      tiles_[frame / of_plane].push_back({static_cast<int32_t>(place % across * form_.tile_columns),
                                          static_cast<int32_t>(place / across * form_.tile_rows), part, i});
      ++laid;
    }
  }
  if (laid != frames_ || (laid < expected && findings_.empty()))
    find("its matrix is " + std::to_string(expected) + " tiles, but it has " + count_text(frames_, "frame"));
  return "";
}

std::string Slide::lay_frame(const FunctionalGroups& groups, Placed& placed) const {
  const uint32_t frame = placed.tile.frame;
  const int32_t position = groups.item(frame, tags::kPlanePositionSlideSequence);
  int32_t column = 0;
  int32_t row = 0;
  if (position < 0 ||
      VX_Get_Value_To_Int(position, tags::kColumnPositionInTotalImagePixelMatrix, &column) !=
          VX_NORMAL_COMPLETION ||
      VX_Get_Value_To_Int(position, tags::kRowPositionInTotalImagePixelMatrix, &row) !=
          VX_NORMAL_COMPLETION) {
    return "it does not tell its place in the total pixel matrix";
  }
  if (column == INT32_MIN || row == INT32_MIN) return "it lies nowhere";
  placed.tile.x = column - 1;
  placed.tile.y = row - 1;
  placed.depth = real_of(position, tags::kZOffsetInSlideCoordinateSystem).value_or(0);
  const int32_t path = groups.item(frame, form_.segments ? tags::kSegmentIdentificationSequence
                                                         : tags::kOpticalPathIdentificationSequence);
  if (path < 0) return "";
  const std::string name =
      text_of(path, form_.segments ? tags::kReferencedSegmentNumber : tags::kOpticalPathIdentifier);
  const auto found = std::find(form_.paths.begin(), form_.paths.end(), name);
  if (found == form_.paths.end())
    return std::string("its ") + (form_.segments ? "segment " : "optical path ") + name + " is not described";
  placed.path = static_cast<uint32_t>(found - form_.paths.begin());
  return "";
}

std::string Slide::lay_sparse(std::vector<Placed>& placed) {
  for (uint32_t part = 0; part < parts_.size(); ++part) {
    for (uint32_t i = 0; i < parts_[part]->description().frames; ++i) {
      Placed one{{0, 0, part, i}, 0, 0};
      const std::string problem = lay_frame(parts_[part]->groups(), one);
      if (!problem.empty())
        return parts_[part]->file().path() + ": frame " + std::to_string(i + 1) + ": " + problem;
      placed.push_back(one);
    }
  }
  return "";
}

// Focal planes are the depths that frames tell, from the lowest up.
void Slide::keep(const std::vector<Placed>& placed) {
  constexpr double kSame = 1e-6;  // mm
  std::vector<double> depths;
  for (const Placed& one : placed) depths.push_back(one.depth);
  std::sort(depths.begin(), depths.end());
  depths.erase(std::unique(depths.begin(), depths.end(), [](double a, double b) { return b - a < kSame; }),
               depths.end());
  depths.resize(std::min<std::size_t>(depths.size(), kMostChannels / form_.paths.size()));
  form_.planes = std::max(static_cast<uint32_t>(depths.size()), 1U);
  tiles_.resize(form_.paths.size() * form_.planes);
  uint64_t outside = 0;
  for (const Placed& one : placed) {
    const Tile& tile = one.tile;
    if (tile.x < 0 || tile.y < 0 || tile.x >= static_cast<int32_t>(form_.columns) ||
        tile.y >= static_cast<int32_t>(form_.rows))
      ++outside;
    auto plane = std::upper_bound(depths.begin(), depths.end(), one.depth + kSame / 2) - depths.begin() - 1;
    plane = std::max<std::ptrdiff_t>(plane, 0);
    tiles_[std::size_t{one.path} * form_.planes + static_cast<std::size_t>(plane)].push_back(tile);
  }
  if (outside != 0) find(count_text(outside, "frame") + " of it begin outside of its matrix");
}

std::array<uint8_t, 3> Slide::background() const {
  const int32_t id = parts_[0]->file().id();
  std::vector<double> lab(3);
  VX_STATUS status = VX_Get_Value_To_Double(id, tags::kRecommendedAbsentPixelCIELabValue, lab.data());
  for (std::size_t i = 1; i < 3 && status == VX_NORMAL_COMPLETION; ++i)
    status = VX_Get_Next_Value_To_Double(id, tags::kRecommendedAbsentPixelCIELabValue, &lab[i]);
  return status == VX_NORMAL_COMPLETION ? from_lab(lab) : std::array<uint8_t, 3>{255, 255, 255};
}

}  // namespace vexal
