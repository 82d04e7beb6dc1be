#include "input.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string_view>

#include "documents.h"

namespace vexal {
namespace {

using std::string_view_literals::operator""sv;

constexpr std::size_t kHead = 65536;

struct Mark {
  std::size_t at;
  std::string_view bytes;
  InputKind kind;
};
constexpr Mark kMarks[] = {{0, "\x89PNG\r\n\x1A\n"sv, InputKind::Png},
                           {0, "\xFF\xD8\xFF"sv, InputKind::Jpeg},
                           {0, "\xFF\x4F\xFF\x51"sv, InputKind::Jpeg2000},
                           {0, "\0\0\0\x0CjP  \r\n\x87\n"sv, InputKind::Jp2},
                           {4, "ftyp"sv, InputKind::Video},
                           {0, "\0\0\1"sv, InputKind::Video},
                           {0, "\0\0\0\1"sv, InputKind::Video}};

// Kinds that someone may try, with what to do instead.
struct Refusal {
  std::size_t at;
  std::string_view bytes;
  const char* reason;
};
constexpr Refusal kRefusals[] = {
    {128, "DICM"sv, "is a DICOM object already"},
    {0, "GIF8"sv, "is a GIF, which is not read: make a PNG of it"},
    {0, "II*\0"sv, "is a TIFF, which is not read: make PNGs of it"},
    {0, "MM\0*"sv, "is a TIFF, which is not read: make PNGs of it"},
    {0, "\xFF\x0A"sv, "is a JPEG XL stream, which is not read: make a PNG of it"},
    {0, "\0\0\0\x0CJXL "sv, "is a JPEG XL file, which is not read: make a PNG of it"},
    {0, "\x1A\x45\xDF\xA3"sv, "is a Matroska film: put its stream into an MP4 file"},
    {8, "AVI "sv, "is an AVI film: put its stream into an MP4 file"},
    {0, "PK\3\4"sv, "is a ZIP archive: give what is in it"},
};

template <typename Row>
bool fits(std::string_view head, const Row& row) {
  return head.size() >= row.at + row.bytes.size() && head.substr(row.at, row.bytes.size()) == row.bytes;
}

bool is_bmp(std::string_view head) {
  if (!head.starts_with("BM") || head.size() < 26) return false;
  const auto header = static_cast<unsigned char>(head[14]);
  return (header == 12 || header >= 40) && head[15] == 0 && head[16] == 0 && head[17] == 0;
}

bool is_transport_stream(std::string_view head) {
  constexpr std::size_t kPacket = 188;
  return head.size() > 2 * kPacket && head[0] == 'G' && head[kPacket] == 'G' && head[2 * kPacket] == 'G';
}

}  // namespace

std::string open_input(const std::string& path, Input& input) {
  input.path = path;
  input.file = std::make_shared<FileSource>();
  if (std::string problem = input.file->open(path); !problem.empty()) return problem;
  if (input.size() == 0) return "is empty";
  std::string head(static_cast<std::size_t>(std::min<uint64_t>(kHead, input.size())), '\0');
  if (input.file->read_at(0, head.data(), head.size()) != static_cast<int64_t>(head.size()))
    return "can not read";
  if (input.kind == InputKind::Raw) return "";
  for (const Refusal& row : kRefusals) {
    if (fits(head, row)) return row.reason;
  }
  const auto* mark =
      std::find_if(std::begin(kMarks), std::end(kMarks), [&](const Mark& row) { return fits(head, row); });
  input.kind = mark != std::end(kMarks)    ? mark->kind
               : is_bmp(head)              ? InputKind::Bmp
               : is_transport_stream(head) ? InputKind::Video
                                           : document_kind(head, input.size());
  if (input.kind != InputKind::Unknown) return "";
  std::string fault = model_fault(input);
  return fault.empty() ? "is of no kind that objects are made of; --size tells of raw pixels" : fault;
}

const char* name_of(InputKind kind) {
  constexpr const char* kNames[] = {"",    "raw pixels", "PNG", "BMP", "JPEG", "JPEG 2000", "JPEG 2000",
                                    "PDF", "CDA",        "STL", "OBJ", "MTL",  "video"};
  return kNames[static_cast<std::size_t>(kind)];
}

bool is_picture(InputKind kind) {
  return kind >= InputKind::Raw && kind <= InputKind::Jp2;
}

bool is_document(InputKind kind) {
  return kind >= InputKind::Pdf && kind <= InputKind::Mtl;
}

}  // namespace vexal
