// vexal make: objects from pictures, documents and films, and back.
#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "base/commands.h"
#include "base/names.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/typed_numbers.h"
#include "base/values.h"
#include "classes.h"
#include "documents.h"
#include "films.h"
#include "forms/changes.h"
#include "images/write_options.h"
#include "making.h"
#include "payload.h"
#include "stills.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--class", "NAME",
     "secondary-capture (usual for pictures), vl-photographic, vl-endoscopic, vl-microscopic; "
     "video-photographic "
     "(usual for films), video-endoscopic, video-microscopic"},
    {"--from", "FILE", "patient and study as this object has them; the series is new"},
    {"--worklist", "FILE", "patient, study and request as this worklist entry has them"},
    {"--set", "PATH=VALUE", "set an attribute, as vexal modify does"},
    VEXAL_STILL_OPTIONS,
    VEXAL_FILM_OPTIONS,
    {"--extract", nullptr, "IN is an object: write the document, film or JPEG stream that is in it to OUT"},
    VEXAL_WRITE_OPTIONS,
};

// Follows from what an object is made of.
bool is_fixed(uint32_t tag) {
  constexpr uint32_t kFixed[] = {tags::kSOPClassUID,
                                 tags::kSamplesPerPixel,
                                 tags::kPhotometricInterpretation,
                                 tags::kPlanarConfiguration,
                                 tags::kNumberOfFrames,
                                 tags::kRows,
                                 tags::kColumns,
                                 tags::kBitsAllocated,
                                 tags::kBitsStored,
                                 tags::kHighBit,
                                 tags::kPixelRepresentation,
                                 tags::kEncapsulatedDocument,
                                 tags::kMIMETypeOfEncapsulatedDocument,
                                 tags::kEncapsulatedDocumentLength,
                                 tags::kPixelData};
  return tag <= tags::kLastOfMeta || std::find(std::begin(kFixed), std::end(kFixed), tag) != std::end(kFixed);
}

bool is_ascii(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

class Maker {
 public:
  explicit Maker(const Args& args) : args_(args) {}
  int run();

 private:
  using Attributes = std::vector<std::pair<std::string, std::string>>;

  bool read_options();
  bool open_inputs();
  bool choose_class();
  bool take_inputs();
  bool take_stills();
  // More files than can be kept open: each is, while it is read, and its stream is laid down.
  bool are_many() const { return args_.paths.size() > 200; }
  bool take_film();
  bool add_frame(const Input& input, Still&& still);
  bool has_class_for_frames();
  void describe_still();
  bool fill();
  bool set_charset(int32_t object) const;
  bool apply_changes(int32_t object);
  bool write();
  bool refuse(const std::string& path, const std::string& problem) const;

  const Args& args_;
  std::string out_;
  std::vector<Change> changes_;
  StillOptions still_options_;
  FilmOptions film_options_;
  WriteOptions write_options_;
  std::vector<Input> inputs_;
  const ObjectClass* class_ = nullptr;
  Still still_;  // of pictures: the first with the frames of all
  VX_TRANSFER_SYNTAX syntax_ = EXPLICIT_LITTLE_ENDIAN;
  Attributes attributes_;
  std::vector<Payload> frames_;
  uint64_t total_ = 0;
  bool findings_ = false;
  DicomFile file_;
  PayloadValue value_;
};

// False, for those who return it.
bool Maker::refuse(const std::string& path, const std::string& problem) const {
  report(path, problem);
  return false;
}

bool Maker::read_options() {
  if (args_.paths.size() < 2) {
    complain("make needs something to make an object of and a name to write; --help tells more");
    return false;
  }
  if (args_.has("--from") && args_.has("--worklist")) {
    complain("--from and --worklist both tell of the patient: give one");
    return false;
  }
  if (args_.has("--class") && find_class(args_.get("--class")) == nullptr) {
    complain("--class %s: give one of %s", args_.get("--class").c_str(), class_names().c_str());
    return false;
  }
  if (!read_changes(args_, changes_) || !still_options_.read(args_) || !film_options_.read(args_) ||
      !write_options_.read(args_))
    return false;
  for (const Change& change : changes_) {
    if (change.path.size() != 1 || !is_fixed(change.path[0].tag)) continue;
    complain("%s: follows from what the object is made of", change.text.c_str());
    return false;
  }
  out_ = args_.paths.back();
  return true;
}

bool Maker::open_inputs() {
  for (std::size_t i = 0; i + 1 < args_.paths.size(); ++i) {
    Input input;
    if (args_.has("--size")) input.kind = InputKind::Raw;
    if (std::string problem = open_input(args_.paths[i], input); !problem.empty())
      return refuse(args_.paths[i], problem);
    inputs_.push_back(std::move(input));
    if (are_many()) inputs_.back().file->close();
  }
  // A forgotten name must not cost the last of the inputs.
  std::error_code error;
  std::vector<std::string> read = {args_.get("--from"), args_.get("--worklist")};
  for (const Input& input : inputs_) read.push_back(input.path);
  for (const std::string& path : read) {
    if (std::filesystem::equivalent(path, out_, error))
      return refuse(out_, "is an input: OUT has to be another name");
  }
  Input target;
  if (std::filesystem::is_regular_file(out_, error) && open_input(out_, target).empty())
    return refuse(out_, std::string("is there and is no object, but ") + name_of(target.kind) +
                            ": OUT has to be another name");
  for (const Input& input : inputs_) {
    if (inputs_.size() == 1 || is_picture(input.kind)) continue;
    return refuse(input.path,
                  std::string(name_of(input.kind)) + ": only pictures go together into one object");
  }
  return true;
}

bool Maker::choose_class() {
  const InputKind kind = inputs_[0].kind;
  class_ = &usual_class(kind);
  if (!args_.has("--class")) return true;
  const ObjectClass* asked = find_class(args_.get("--class"));
  constexpr uint32_t kTakes = kTakesPicture | kTakesDocument | kTakesVideo;
  if ((asked->traits & kTakes) != (class_->traits & kTakes) || asked->document != class_->document) {
    complain("--class %s takes no %s", asked->name, name_of(kind));
    return false;
  }
  class_ = asked;
  return true;
}

bool Maker::add_frame(const Input& input, Still&& still) {
  if (!still.told.empty()) {
    report(input.path, still.told);
    findings_ = true;
  }
  for (const Payload& frame : still.frames) total_ += frame.size();
  frames_.insert(frames_.end(), still.frames.begin(), still.frames.end());
  still.frames.clear();
  if (&input == inputs_.data()) {
    still_ = std::move(still);
    return true;
  }
  if (!still.goes_with(still_)) return refuse(input.path, "has another form than " + inputs_[0].path);
  if (!still.lossy_method.empty()) still_.lossy_method = still.lossy_method;
  return true;
}

bool Maker::has_class_for_frames() {
  if ((class_->traits & kLight) != 0) {
    if (frames_.size() > 1) return refuse(out_, std::string(class_->name) + " has one picture an object");
    if (still_.stored != 8 || still_.is_signed || still_.photometric == "MONOCHROME1")
      return refuse(inputs_[0].path, std::string(class_->name) + " has 8 bits a sample, without a sign");
  }
  if (frames_.size() == 1) return true;
  class_ = class_of_frames(still_);
  return class_ != nullptr ||
         refuse(inputs_[0].path,
                "no class has several frames of this form: 8 or 9 to 16 bits of grey without a "
                "sign, or 8 of each colour");
}

void Maker::describe_still() {
  syntax_ = still_.syntax;
  attributes_ = {{"SamplesPerPixel", std::to_string(still_.samples)},
                 {"PhotometricInterpretation", still_.photometric},
                 {"Rows", std::to_string(still_.height)},
                 {"Columns", std::to_string(still_.width)},
                 {"BitsAllocated", std::to_string(still_.allocated)},
                 {"BitsStored", std::to_string(still_.stored)},
                 {"HighBit", std::to_string(still_.stored - 1)},
                 {"PixelRepresentation", still_.is_signed ? "1" : "0"}};
  if (still_.samples > 1) attributes_.emplace_back("PlanarConfiguration", "0");
  if (!still_.lossy_method.empty()) {
    char ratio[32];
    std::snprintf(ratio, sizeof ratio, "%.2f",
                  static_cast<double>(still_.frame_bytes() * frames_.size()) / static_cast<double>(total_));
    attributes_.emplace_back("LossyImageCompression", "01");
    attributes_.emplace_back("LossyImageCompressionRatio", ratio);
    attributes_.emplace_back("LossyImageCompressionMethod", still_.lossy_method);
  }
  if ((class_->traits & kTakesFrames) == 0) return;
  attributes_.emplace_back("NumberOfFrames", std::to_string(frames_.size()));
  attributes_.emplace_back("FrameIncrementPointer", "(0018,2001)");
  std::string pages;
  for (std::size_t i = 1; i <= frames_.size(); ++i) pages += (i == 1 ? "" : "\\") + std::to_string(i);
  attributes_.emplace_back("PageNumberVector", pages);
  if (still_.samples != 1) return;
  attributes_.emplace_back("RescaleIntercept", "0");
  attributes_.emplace_back("RescaleSlope", "1");
  attributes_.emplace_back("RescaleType", "US");
  attributes_.emplace_back("PresentationLUTShape", "IDENTITY");
}

bool Maker::take_stills() {
  for (const Input& input : inputs_) {
    const CurrentFile current(input.path);
    Still still;
    std::string problem = are_many() ? input.file->open(input.path) : "";
    if (problem.empty()) problem = read_still(input, still_options_, still);
    const bool unpacked = input.kind == InputKind::Png || input.kind == InputKind::Bmp;
    if (problem.empty() && are_many() && !unpacked) problem = lay_down(still, still_options_);
    if (are_many()) input.file->close();
    if (!problem.empty()) return refuse(input.path, problem);
    if (!add_frame(input, std::move(still))) return false;
  }
  if (!has_class_for_frames()) return false;
  describe_still();
  return true;
}

bool Maker::take_film() {
  if (std::string problem = describe_film(inputs_[0], film_options_, syntax_, attributes_); !problem.empty())
    return refuse(inputs_[0].path, problem);
  frames_.push_back(Payload::of(inputs_[0].file, 0, inputs_[0].size()));
  return true;
}

bool Maker::take_inputs() {
  if (is_picture(inputs_[0].kind)) return take_stills();
  if (inputs_[0].kind == InputKind::Video) return take_film();
  if (std::string problem = read_document(inputs_[0], attributes_); !problem.empty())
    return refuse(inputs_[0].path, problem);
  attributes_.emplace_back("MIMETypeOfEncapsulatedDocument", class_->mime);
  attributes_.emplace_back("EncapsulatedDocumentLength", std::to_string(inputs_[0].size()));
  frames_.push_back(Payload::of(inputs_[0].file, 0, inputs_[0].size()));
  return true;
}

// Text of the command line and of documents is in UTF-8; an object of ASCII needs to say nothing.
bool Maker::set_charset(int32_t object) const {
  const bool chosen = std::any_of(changes_.begin(), changes_.end(), [](const Change& change) {
    return change.path.size() == 1 && change.path[0].tag == tags::kSpecificCharacterSet;
  });
  const bool present = !text_of(object, tags::kSpecificCharacterSet).empty();
  if (chosen && present) {
    complain(
        "--set SpecificCharacterSet: the text of patient and study is in UTF-8; vexal convert --charset "
        "changes that afterwards");
    return false;
  }
  const auto ascii = [](const auto& row) { return is_ascii(row.second); };
  const bool plain =
      std::all_of(attributes_.begin(), attributes_.end(), ascii) &&
      std::all_of(changes_.begin(), changes_.end(), [](const Change& c) { return is_ascii(c.value); });
  if (!plain && !present && !chosen) set_all_text(object, tags::kSpecificCharacterSet, "ISO_IR 192");
  return true;
}

bool Maker::apply_changes(int32_t object) {
  for (const Change& change : changes_) {
    if (!apply_change(object, out_, change)) return false;
  }
  const uint32_t lacking = lacking_attribute(object, *class_);
  return lacking == 0 || refuse(inputs_[0].path, "the object would lack " + describe_tag(lacking) +
                                                     ", which its class demands: give it with --set");
}

bool Maker::fill() {
  if (std::string problem = begin_object(args_, class_->uid, file_); !problem.empty()) {
    complain("%s", problem.c_str());
    return false;
  }
  findings_ = values_were_lost() || findings_;  // of the file that tells of the patient
  const int32_t object = file_.id();
  if (!set_charset(object)) return false;
  for (const auto& [path, text] : attributes_) {
    if (std::string problem = give(object, path, text); !problem.empty())
      return refuse(inputs_[0].path, problem);
  }
  if (!still_.icc_profile.empty() && still_.samples == 3) {
    std::string& profile = still_.icc_profile;
    if (profile.size() % 2 != 0) profile += '\0';
    VX_Set_Value_From_Buffer(object, tags::kICCProfile, profile.data(),
                             static_cast<uint32_t>(profile.size()));
  }
  if (std::string problem = fill_class(object, *class_); !problem.empty()) return refuse(out_, problem);
  return apply_changes(object);
}

bool Maker::write() {
  if (const VX_STATUS status = file_.set_syntax(syntax_); status != VX_NORMAL_COMPLETION)
    return refuse(out_, VX_Error_Message(status));
  const bool document = (class_->traits & kTakesDocument) != 0;
  const bool compressed = !is_uncompressed(syntax_);
  std::string problem = compressed ? value_.set_items(frames_, (class_->traits & kTakesVideo) == 0)
                                   : value_.set_native(frames_);
  if (problem.empty())
    problem = value_.bind(file_.id(), document ? tags::kEncapsulatedDocument : tags::kPixelData,
                          !compressed && still_.allocated > 8 ? VX_VR_OW : VX_VR_OB);
  if (!problem.empty()) return refuse(inputs_[0].path, problem);
  bring_meta_in_line(file_.id(), changes_, write_options_);
  problem = write_file(file_, out_, write_options_).problem;
  if (!value_.problem().empty()) return refuse(inputs_[0].path, value_.problem());
  return problem.empty() || refuse(out_, problem);
}

int Maker::run() {
  if (!read_options() || !open_inputs() || !choose_class() || !take_inputs() || !fill() || !write())
    return kUsage;
  return findings_ ? kFindings : kSuccess;
}

int run(const Args& args) {
  if (!args.has("--extract")) return Maker(args).run();
  if (args.paths.size() != 2) {
    complain("make --extract needs an object to read and a name to write");
    return kUsage;
  }
  return extract_document(args.paths[0], args.paths[1]);
}

}  // namespace

const Command kMake = {
    "make",
    "IN... OUT [OPTION...]",
    "make an object of pictures, a document or a film",
    "IN is a PNG, BMP, JPEG, JPEG-LS, JPEG 2000, PDF, CDA, binary STL, OBJ or MTL file, a film (MP4, or an\n"
    "MPEG-2, H.264 or HEVC stream), or raw pixels with --size; its content tells which. Streams of JPEG and\n"
    "films are kept as they are. Several pictures of one form become one object of several frames. An\n"
    "attribute of type 2 that nothing tells of is empty.",
    kOptions,
    run};

}  // namespace vexal
