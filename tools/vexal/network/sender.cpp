#include "sender.h"

#include <algorithm>
#include <map>
#include <set>

#include "base/names.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "base/values.h"
#include "files/temp_folder.h"
#include "images/bounded_file.h"
#include "images/recode.h"

namespace vexal {
namespace {

constexpr std::size_t kBlock = 1U << 20;

// What a JPEG image in JPEG XL goes out as, and the other way round.
constexpr VX_TRANSFER_SYNTAX kRecompressed[] = {JPEG_BASELINE, JPEG_EXTENDED_2_4, JPEG_XL_RECOMPRESSION};

// A syntax that a file can be turned into to suit a peer: JPEG and JPEG XL change places, what else is
// compressed loses its compression, and nothing is compressed.
bool can_become(VX_TRANSFER_SYNTAX from, VX_TRANSFER_SYNTAX to) {
  if (is_uncompressed(from)) return is_uncompressed(to);
  if (std::count(std::begin(kRecompressed), std::end(kRecompressed), to) != 0)
    return keeps_jpeg_streams(from, to);
  return can_decompress(from) && std::count(kPlainSyntaxes.begin(), kPlainSyntaxes.end(), to) != 0;
}

std::string service_or_uid(const std::string& sop_class) {
  const std::string service = service_of_class(sop_class);
  return service.empty() ? sop_class : service;
}

}  // namespace

std::string ObjectFile::look_at() {
  FileSource source;
  std::string error = source.open(path);
  if (!error.empty()) return error;
  size = source.size();
  char bytes[4096];
  const int64_t got = source.read_at(0, bytes, sizeof bytes);
  const FileHead head = inspect_head(bytes, static_cast<std::size_t>(std::max<int64_t>(got, 0)));
  std::string uid = head.syntax_uid;
  if (head.has_preamble && !head.sop_class_uid.empty() && !head.sop_instance_uid.empty() && !uid.empty() &&
      VX_Add_Transfer_Syntax(uid.c_str(), &syntax) == VX_NORMAL_COMPLETION) {
    sop_class = head.sop_class_uid;
    instance = head.sop_instance_uid;
    opaque = is_unknown_syntax(syntax);
    VX_Add_Service(sop_class.c_str());
    // The library looks at the data set up to (0008,0018): one that starts behind it goes out as an object.
    // So does one of odd length, which has values that are to become even.
    whole = opaque || ((head.first_tag == 0 || head.first_tag <= tags::kSOPInstanceUID) && size % 2 == 0);
    return "";
  }
  DicomFile file;
  if (file.open(path, {true, tags::kSOPInstanceUID}) != VX_NORMAL_COMPLETION && !file.readable())
    return file.problem();
  sop_class = text_of(file.id(), tags::kSOPClassUID);
  instance = text_of(file.id(), tags::kSOPInstanceUID);
  syntax = file.syntax();
  if (sop_class.empty() || instance.empty()) return "has no SOP Class UID or SOP Instance UID";
  VX_Add_Service(sop_class.c_str());
  return "";
}

std::string not_taken(const ObjectFile& file) {
  return "the peer takes no " + service_or_uid(file.sop_class) + " in " +
         describe_uid(uid_of_syntax(file.syntax));
}

std::vector<Proposal> proposals_for(std::span<const ObjectFile* const> files, bool convert) {
  std::map<std::string, std::set<VX_TRANSFER_SYNTAX>> classes;
  for (const ObjectFile* file : files) classes[file->sop_class].insert(file->syntax);
  std::vector<Proposal> proposals;
  for (const auto& entry : classes) {
    const std::string& sop_class = entry.first;
    const std::set<VX_TRANSFER_SYNTAX>& syntaxes = entry.second;
    bool plain = false;
    for (const VX_TRANSFER_SYNTAX syntax : syntaxes) {
      plain = plain || can_become(syntax, EXPLICIT_LITTLE_ENDIAN);
      if (syntax != EXPLICIT_LITTLE_ENDIAN && syntax != IMPLICIT_LITTLE_ENDIAN) {
        proposals.push_back({sop_class, {syntax}});
      } else if (syntaxes.size() == 1 || !convert) {
        proposals.push_back({sop_class, {syntax}});
      }
    }
    if (!convert) continue;
    const auto add = [&](VX_TRANSFER_SYNTAX syntax) {
      const bool there = std::any_of(proposals.begin(), proposals.end(), [&](const Proposal& p) {
        return p.sop_class == sop_class && p.syntaxes[0] == syntax;
      });
      if (!there) proposals.push_back({sop_class, {syntax}});
    };
    for (const VX_TRANSFER_SYNTAX to : kRecompressed) {
      const auto leads_there = [&](VX_TRANSFER_SYNTAX from) { return can_become(from, to); };
      if (std::any_of(syntaxes.begin(), syntaxes.end(), leads_there)) add(to);
    }
    if (plain) std::for_each(kPlainSyntaxes.begin(), kPlainSyntaxes.end(), add);
  }
  return proposals;
}

std::vector<VX_TRANSFER_SYNTAX> ObjectSender::choose(const std::vector<AcceptedContext>& accepted,
                                                     const ObjectFile& file) const {
  std::vector<VX_TRANSFER_SYNTAX> kept;
  VX_TRANSFER_SYNTAX found = 0;
  for (const AcceptedContext& context : accepted) {
    if (context.sop_class != file.sop_class) continue;
    if (context.syntax == file.syntax) return {file.syntax};
    if (!convert_ || !can_become(file.syntax, context.syntax)) continue;
    if (keeps_jpeg_streams(file.syntax, context.syntax)) {
      kept.push_back(context.syntax);
    } else if (found == 0 || context.syntax == EXPLICIT_LITTLE_ENDIAN) {
      found = context.syntax;
    }
  }
  if (found != 0) kept.push_back(found);
  return kept;
}

bool ObjectSender::read_block(uint64_t from) {
  const uint64_t left = source_.size() - std::min(from, source_.size());
  const int64_t got = source_.read_at(from, block_.data(), std::min<uint64_t>(left, kBlock));
  if (got < 0) return false;
  start_ = from;
  end_ = from + static_cast<uint64_t>(got);
  return true;
}

// The bytes from the start, or from where the library goes on: mostly inside the block it has just looked at.
VX_STATUS ObjectSender::give(int32_t, uint32_t, void* user, VX_CALLBACK_REQUEST request, uint32_t* size,
                             void** data, int32_t first, int32_t* last) {
  auto& sender = *static_cast<ObjectSender*>(user);
  uint64_t from = first != 0 ? 0 : sender.end_;
  if (request == VX_REQUEST_DATA_AT_OFFSET) from = *size;
  const bool held = from >= sender.start_ && from < sender.end_;
  if (!held && !sender.read_block(from)) return VX_CANNOT_COMPLY;
  *size = static_cast<uint32_t>(sender.end_ - from);
  *data = sender.block_.data() + (from - sender.start_);
  *last = sender.end_ >= sender.source_.size() || *size == 0 ? 1 : 0;
  return VX_NORMAL_COMPLETION;
}

std::string ObjectSender::begin(const ObjectFile& file) {
  prepared_ = nullptr;
  start_ = end_ = 0;
  block_.resize(kBlock);
  return source_.open(file.path);
}

void ObjectSender::prepare(const ObjectFile& file) {
  if (file.whole && begin(file).empty() && read_block(0)) prepared_ = &file;
}

VX_STATUS ObjectSender::send_bytes(int32_t association, const ObjectFile& file, std::string& problem) {
  if (prepared_ != &file) problem = begin(file);
  prepared_ = nullptr;
  if (!problem.empty()) return VX_INVALID_FILE;
  const std::string service = service_of_class(file.sop_class);
  const VX_STATUS status = VX_Send_Request_For_Service(association, service.c_str(), 0, this, guarded<give>);
  source_.close();
  // Part of a data set may have gone out: nothing else can follow it.
  sent_in_part_ = status == VX_SYSTEM_ERROR;
  return status;
}

VX_STATUS ObjectSender::send_object(int32_t association, const ObjectFile& file, VX_TRANSFER_SYNTAX syntax,
                                    std::string& problem) {
  BoundedFile bounds;
  DicomFile object;
  RecodedPixels pixels;
  VX_STATUS status = VX_NORMAL_COMPLETION;
  if (bounded_) {
    status = bounds.open(object, file.path, problem);
  } else if (status = object.open(file.path, {}); status != VX_NORMAL_COMPLETION) {
    problem = object.problem();
  }
  if (status != VX_NORMAL_COMPLETION) return status;
  if (values_were_lost()) problem = "has a value that an object can not hold";
  if (!problem.empty()) return VX_COMPRESSION_FAILURE;
  if (deidentifier_ != nullptr) {
    problem = deidentifier_->change(object, {syntax, temp_folder_path() + "/blanked"},
                                    [&](DicomFile& changed, RecodedPixels& made) {
                                      std::string fault = made.finding();
                                      if (fault.empty()) status = send_open(association, changed, syntax);
                                      return fault;
                                    });
    return problem.empty() ? status : VX_COMPRESSION_FAILURE;
  }
  if (syntax != file.syntax) problem = object.write_fault(syntax);
  // Nothing has gone out when a frame turns out to be broken.
  if (problem.empty() && RecodedPixels::needed(object, syntax))
    problem = pixels.attach(object, syntax, 1, RecodedPixels::When::Ahead);
  if (problem.empty()) problem = pixels.finding();
  return problem.empty() ? send_open(association, object, syntax) : VX_COMPRESSION_FAILURE;
}

VX_STATUS ObjectSender::send_open(int32_t association, DicomFile& object, VX_TRANSFER_SYNTAX syntax) {
  object.prepare_fragments();
  if (deidentifier_ != nullptr) request_.instance = text_of(object.id(), tags::kSOPInstanceUID);
  VX_STATUS status = object.become_message(service_of_class(request_.sop_class).c_str(), C_STORE_RQ);
  if (status == VX_NORMAL_COMPLETION) status = VX_Set_Message_Transfer_Syntax(object.id(), syntax);
  if (status == VX_NORMAL_COMPLETION)
    status = VX_Set_Value_From_String(object.id(), tags::kAffectedSOPInstanceUID, request_.instance.c_str());
  if (status != VX_NORMAL_COMPLETION) return status;
  if (!originator_.empty()) {
    VX_Set_Value_From_String(object.id(), tags::kMoveOriginatorApplicationEntityTitle, originator_.c_str());
    VX_Set_Value_From_UShortInt(object.id(), tags::kMoveOriginatorMessageID, originator_id_);
  }
  status = VX_Send_Request_Message(association, object.id());
  sent_in_part_ = status != VX_NORMAL_COMPLETION && status != VX_UNACCEPTABLE_SERVICE &&
                  status != VX_MAX_OPERATIONS_EXCEEDED;
  return status;
}

ObjectSender::Result ObjectSender::send(int32_t association, const std::vector<AcceptedContext>& accepted,
                                        const ObjectFile& file, std::string& problem) {
  const std::vector<VX_TRANSFER_SYNTAX> syntaxes = choose(accepted, file);
  if (syntaxes.empty()) {
    problem = not_taken(file);
    return Result::Refused;
  }
  CurrentFile current(file.path);
  sent_in_part_ = false;
  request_.command = C_STORE_RQ;
  request_.sop_class = file.sop_class;
  request_.instance = file.instance;
  VX_STATUS status = VX_COMPRESSION_FAILURE;
  // Not every stream can be kept in each of them: then the next one serves.
  for (std::size_t i = 0; i < syntaxes.size() && status == VX_COMPRESSION_FAILURE; ++i) {
    problem.clear();
    // The command of what goes out as bytes can not name an originator; a deflated object is not held whole.
    status = syntaxes[i] == file.syntax && file.whole && (originator_.empty() || is_deflated(file.syntax))
                 ? send_bytes(association, file, problem)
                 : send_object(association, file, syntaxes[i], problem);
  }
  if (status == VX_NORMAL_COMPLETION) {
    VX_Get_Sent_Message_ID(association, &request_.id);
    return Result::Sent;
  }
  if (problem.empty()) problem = VX_Error_Message(status);
  return sent_in_part_ || !is_alive(association) ? Result::Lost : Result::Refused;
}

}  // namespace vexal
