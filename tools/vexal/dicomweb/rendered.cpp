#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>

#include "base/session.h"
#include "base/uid.h"
#include "drawing/scale.h"
#include "files/temp_folder.h"
#include "frames.h"
#include "http/multipart.h"
#include "pictures/pixel_actions.h"
#include "stored_object.h"
#include "work_room.h"

namespace vexal {
namespace {

constexpr uint32_t kMostViewport = 8192;
constexpr uint32_t kThumbnail = 128;

// How pictures are wanted (PS3.18 section 8.3.5).
struct Rendering {
  std::string media = "image/jpeg";
  RenderOptions options{};
  int quality = PictureForm{}.quality;
  uint32_t width = 0;  // of the viewport; 0: as large as the image
  uint32_t height = 0;
  std::vector<double> region{};  // of the image: left, top, width, height

  std::string read(const HttpFields& query);

 private:
  std::string read_viewport(const std::string& text);
  std::string read_window(const std::string& text);
};

// "1,2.5,," with absent numbers as NaN; false if it is no such list.
bool read_numbers(const std::string& text, std::vector<double>& numbers) {
  constexpr std::size_t kMost = 8;
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find(',', start), text.size());
    double number = std::nan("");
    const char* from = text.data() + start;
    const char* to = text.data() + end;
    if (from != to) {
      const auto result = std::from_chars(from, to, number);
      if (result.ec != std::errc() || result.ptr != to || !std::isfinite(number)) return false;
    }
    numbers.push_back(number);
    if (numbers.size() > kMost) return false;
    start = end + 1;
  }
  return true;
}

std::string Rendering::read_viewport(const std::string& text) {
  std::vector<double> numbers;
  const auto good = [&](std::size_t i) { return numbers[i] >= 1 && numbers[i] <= kMostViewport; };
  if (!read_numbers(text, numbers) || (numbers.size() != 2 && numbers.size() != 6) || !good(0) || !good(1))
    return "viewport: give a width and a height from 1 to 8192, and left, top, width and height of the image";
  width = static_cast<uint32_t>(numbers[0]);
  height = static_cast<uint32_t>(numbers[1]);
  region.assign(numbers.begin() + 2, numbers.end());
  return "";
}

std::string Rendering::read_window(const std::string& text) {
  const std::string numbers_text = text.substr(0, text.find(',', text.find(',') + 1));
  const std::string function =
      text.size() > numbers_text.size() ? text.substr(numbers_text.size() + 1) : "linear";
  std::vector<double> numbers;
  if (!read_numbers(numbers_text, numbers) || numbers.size() != 2 || std::isnan(numbers[0]) ||
      !(numbers[1] >= 1))
    return "window: give a center, a width of 1 or more, and linear";
  if (function != "linear") return "window: linear is the only function here";
  options.center = numbers[0];
  options.width = numbers[1];
  return "";
}

std::string Rendering::read(const HttpFields& query) {
  for (const auto& [name, value] : query) {
    std::string error;
    if (name == "viewport") error = read_viewport(value);
    if (name == "window") error = read_window(value);
    if (name == "quality") {
      const auto result = std::from_chars(value.data(), value.data() + value.size(), quality);
      if (result.ec != std::errc() || result.ptr != value.data() + value.size() || quality < 1 ||
          quality > 100)
        error = "quality: give a number from 1 to 100";
    }
    if (name == "iccprofile" && value != "no" && value != "yes" && value != "srgb")
      error = "iccprofile: give no, yes or srgb";
    if (!error.empty()) return error;
  }
  return "";
}

// The part of a picture that the region names.
Picture cut(const Picture& from, const std::vector<double>& region) {
  const auto edge = [](double value, double otherwise, uint32_t most) {
    return static_cast<uint32_t>(
        std::clamp(std::isnan(value) ? otherwise : value, 0.0, static_cast<double>(most) - 1));
  };
  Picture part = from;
  const uint32_t left = edge(region[0], 0, from.width);
  const uint32_t top = edge(region[1], 0, from.height);
  // Negative sizes, which turn the image around, are taken without their sign.
  const auto length = [](double value, uint32_t most) {
    return std::isnan(value)
               ? most
               : static_cast<uint32_t>(std::clamp(std::abs(value), 1.0, static_cast<double>(most)));
  };
  part.width = length(region[2], from.width - left);
  part.height = length(region[3], from.height - top);
  part.bytes.clear();
  for (uint32_t y = 0; y < part.height; ++y) {
    const auto* row = from.bytes.data() + (std::size_t{top + y} * from.width + left) * from.samples;
    part.bytes.insert(part.bytes.end(), row, row + std::size_t{part.width} * from.samples);
  }
  return part;
}

// One frame (from 0) as a file of a picture. An error text, empty on success.
std::string render(OpenImage& open, uint32_t frame, const Rendering& wanted, HttpBody& body) {
  PixelImage& image = open.image();
  const WorkRoom room(2 * open.frame_bytes() + 6 * uint64_t{wanted.width} * wanted.height);
  Picture picture;
  std::string problem = image.render(frame, wanted.options, picture);
  if (!problem.empty()) return problem;
  shape_pixels(image, frame, true, picture);
  if (!wanted.region.empty()) picture = cut(picture, wanted.region);
  if (wanted.width != 0) {
    const double scale = std::min(static_cast<double>(wanted.width) / picture.width,
                                  static_cast<double>(wanted.height) / picture.height);
    const auto side = [&](uint32_t length, uint32_t most) {
      return std::clamp(static_cast<uint32_t>(std::lround(length * scale)), 1U, most);
    };
    picture = scaled(picture, side(picture.width, wanted.width), side(picture.height, wanted.height));
  }
  const std::string path =
      temp_folder_path() + "/web-" + new_uid() + (wanted.media == "image/png" ? ".png" : ".jpg");
  problem = write_picture(picture, path, wanted.quality);
  const auto source = std::make_shared<FileSource>();
  if (problem.empty()) problem = source->open(path);
  ::unlink(path.c_str());
  if (problem.empty()) body = body_of_file(source);
  return problem;
}

bool choose_picture(const std::vector<MediaRange>& ranges, Rendering& wanted, bool& parts) {
  for (const MediaRange& range : ranges) {
    for (const char* media : {"image/jpeg", "image/png"}) {
      if (!range.takes(media)) continue;
      wanted.media = media;
      parts = range.parts;
      return true;
    }
  }
  return false;
}

HttpResponse failed_to_render(const ObjectFile& object, const std::string& problem) {
  report(object.path, problem);
  return HttpResponse::problem(406, "It can not be shown as a picture: " + problem);
}

// What to render: an object and its frame.
struct Shown {
  ObjectFile object;
  uint32_t frame = 0;
};

HttpResponse render_all(const WebContext& context, const std::vector<Shown>& shown, const Rendering& wanted,
                        bool parts) {
  OpenImage first;
  std::string problem = first.open(context.holdings, shown.front().object);
  if (!problem.empty()) return failed_to_render(shown.front().object, problem);
  for (const Shown& one : shown) {
    if (one.object.path == shown.front().object.path && one.frame >= first.image().description().frames)
      return HttpResponse::problem(
          404, "The object has " + std::to_string(first.image().description().frames) + " frames.");
  }
  const auto part = std::make_shared<BodyPart>();
  problem = render(first, shown.front().frame, wanted, part->body);
  if (!problem.empty()) return failed_to_render(shown.front().object, problem);
  part->headers = {{"Content-Type", wanted.media}};
  if (!parts && shown.size() == 1) return as_parts(false, wanted.media, std::move(*part));
  HttpResponse response;
  const std::string boundary = new_boundary();
  response.with("Content-Type", multipart_type(wanted.media, boundary));
  response.body = multipart_body(boundary, [shown, part, wanted, &holdings = context.holdings,
                                            at = std::size_t{0}](BodyPart& next) mutable {
    // What shows nothing, such as a report among images, is left out.
    for (; at < shown.size(); ++at) {
      if (at == 0) {
        next = std::move(*part);
        ++at;
        return 1;
      }
      OpenImage image;
      if (!image.open(holdings, shown[at].object).empty()) continue;
      if (!render(image, shown[at].frame, wanted, next.body).empty()) continue;
      next.headers = {{"Content-Type", wanted.media}};
      ++at;
      return 1;
    }
    return 0;
  });
  return response;
}

// The first object that can be shown comes first.
bool first_image(const WebContext& context, std::vector<ObjectFile>& objects) {
  constexpr std::size_t kMostTried = 32;
  const std::size_t count = std::min(objects.size(), kMostTried);
  for (std::size_t i = 0; i < count; ++i) {
    OpenImage image;
    if (!image.open(context.holdings, objects[i]).empty()) continue;
    std::swap(objects[0], objects[i]);
    return true;
  }
  return objects.size() == 1;  // its own failure is told
}

HttpResponse answer_pictures(const WebContext& context, bool small) {
  std::vector<ObjectFile> objects;
  HttpResponse response;
  if (!find_objects(context, objects, response)) return response;
  Rendering wanted;
  bool parts = false;
  if (const std::string error = wanted.read(context.request.query); !error.empty())
    return HttpResponse::problem(400, error);
  if (!choose_picture(accepted_by(context.request), wanted, parts))
    return HttpResponse::problem(406, "Pictures are image/jpeg or image/png.");
  if (small && wanted.width == 0) wanted.width = wanted.height = kThumbnail;
  if (!first_image(context, objects)) return HttpResponse::problem(404, "Nothing of it can be shown.");
  if (small) objects.resize(1);
  std::vector<Shown> shown;
  for (const ObjectFile& object : objects) {
    if (context.target.frames.empty()) shown.push_back({object, 0});
    for (const uint32_t frame : context.target.frames) shown.push_back({object, frame - 1});
  }
  if (small) shown.resize(1);
  return render_all(context, shown, wanted, parts);
}

}  // namespace

HttpResponse retrieve_rendered(const WebContext& context) {
  return answer_pictures(context, false);
}

HttpResponse retrieve_thumbnail(const WebContext& context) {
  return answer_pictures(context, true);
}

}  // namespace vexal
