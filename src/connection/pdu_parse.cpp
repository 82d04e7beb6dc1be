// Reading an A-ASSOCIATE-RQ or -AC: first into an image of views on the bytes received, within the limits of
// the image, then from there into the parameters.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "config/transfer_syntax.h"
#include "connection/pdu.h"
#include "connection/upper_layer.h"
#include "frame/byte_order.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/text.h"

namespace vx {
namespace {

constexpr int kMostItems = 128;  // of roles and of each sort of extended negotiation
constexpr std::size_t kLongestUid = 64;
constexpr std::size_t kLongestVersion = 16;
constexpr std::size_t kItemsAt = 74;  // first item of the PDU
constexpr char kFunction[] = "VXI_parseAssociate";
constexpr int kMostLines = 32;  // in the log, of one PDU, about what is passed over

struct View {
  const uint8_t* data;
  uint32_t size;
};

struct ContextImage {
  uint8_t id;
  uint8_t result;
  uint8_t syntax_count;
  View abstract_syntax;
  View syntaxes[kMostSyntaxes];
};
struct RoleImage {
  View uid;
  uint8_t scu;
  uint8_t scp;
};
struct ExtendedImage {
  View uid;
  View data;
};
struct CommonImage {
  View uid;
  View service_class;
  uint8_t related_count;
  View related[kMostRelatedClasses];
};

// A list that keeps its first N - 1 entries and the last one.
template <typename T, int N>
struct Limited {
  T entries[N];
  int count;
  bool full;

  // The next entry; the last one once it is full, after one warning.
  T& add(const char* too_many) {
    if (count < N) return entries[count++];
    if (!full) VX_LOG_WARN(kFunction, "%s", too_many);
    full = true;
    entries[N - 1] = T{};
    return entries[N - 1];
  }
  std::span<const T> all() const { return {entries, static_cast<std::size_t>(count)}; }
};

struct AssociatePdu {
  uint16_t protocol_version;
  View called_title;
  View calling_title;
  View application_context;
  Limited<ContextImage, kMostContexts> contexts;
  Limited<RoleImage, kMostItems> roles;
  Limited<ExtendedImage, kMostItems> extended;
  Limited<CommonImage, kMostItems> common;
  bool has_maximum, has_class, has_window, has_version, has_identity, has_response;
  uint32_t maximum_length;
  View implementation_class;
  View implementation_version;
  uint16_t max_invoked, max_performed;
  uint8_t identity_type, identity_response_requested;
  View identity_primary, identity_secondary, identity_response;
  int passed_over;

  bool may_log() { return passed_over++ < kMostLines; }
};
static_assert(std::is_trivially_destructible_v<AssociatePdu>);

// What is left of some bytes. A take that does not fit leaves them as they are.
class Bytes {
 public:
  explicit Bytes(View view) : view_(view) {}
  bool empty() const { return view_.size == 0; }
  uint32_t size() const { return view_.size; }
  bool take(uint32_t count, View& out) {
    if (count > view_.size) return false;
    out = {view_.data, count};
    view_.data += count;
    view_.size -= count;
    return true;
  }
  bool u8(uint8_t& out) {
    View view{};
    if (!take(1, view)) return false;
    out = view.data[0];
    return true;
  }
  bool u16(uint16_t& out) {
    View view{};
    if (!take(2, view)) return false;
    out = load16(view.data, true);
    return true;
  }
  bool u32(uint32_t& out) {
    View view{};
    if (!take(4, view)) return false;
    out = load32(view.data, true);
    return true;
  }
  bool counted(View& out) {
    uint16_t length = 0;
    return u16(length) && take(length, out);
  }
  View rest() const { return view_; }

 private:
  View view_;
};

struct ItemImage {
  uint8_t type;
  View content;
};

DulStatus deformed() {
  VX_LOG_ERR(kFunction, "Parsing error encountered");
  return DUL_DEFORMED_PDU;
}

bool take_item(Bytes& bytes, ItemImage& item) {
  uint8_t reserved = 0;
  return bytes.u8(item.type) && bytes.u8(reserved) && bytes.counted(item.content);
}

// Walks items; `handle` gives a status for each.
template <typename Handle>
DulStatus walk_items(Bytes& bytes, Handle&& handle) {
  while (!bytes.empty()) {
    ItemImage item{};
    if (!take_item(bytes, item)) return deformed();
    if (const DulStatus status = handle(item); status != DUL_NORMAL) return status;
  }
  return DUL_NORMAL;
}

bool fits(View view, std::size_t limit, uint8_t type, const char* what, unsigned named_limit) {
  if (view.size <= limit) return true;
  VX_LOG_ERR(kFunction, "A-ASSOCIATE PDU - %s exceeds maximum length (%u): item type = 0x%X, length = %d",
             what, named_limit, type, static_cast<int>(view.size));
  return false;
}
bool uid_fits(View view, uint8_t type, const char* what) {
  return fits(view, kLongestUid, type, what, kLongestUid);
}

// --- Presentation contexts ---

DulStatus parse_pres_context(const ItemImage& item, AssociatePdu& pdu) {
  ContextImage& context = pdu.contexts.add("Too many Presentation Context Items");
  Bytes bytes(item.content);
  uint8_t reserved = 0;
  if (!bytes.u8(context.id) || !bytes.u8(reserved) || !bytes.u8(context.result) || !bytes.u8(reserved)) {
    return deformed();
  }
  return walk_items(bytes, [&context, &pdu](const ItemImage& sub) {
    if (sub.type != 0x30 && sub.type != 0x40) {
      VX_LOG_ERR("parse_pres_context", "Unknown PDU type received: %02x", sub.type);
      return DUL_UNKNOWN_PDU;
    }
    if (!uid_fits(sub.content, sub.type, "item name")) return DUL_DEFORMED_PDU;
    if (sub.type == 0x30) {
      context.abstract_syntax = sub.content;
      return DUL_NORMAL;
    }
    if (context.syntax_count < kMostSyntaxes) {
      context.syntaxes[context.syntax_count++] = sub.content;
    } else {
      if (pdu.may_log()) VX_LOG_ERR("parse_pres_context", "Too many transfer syntax subitems");
      context.syntaxes[kMostSyntaxes - 1] = sub.content;
    }
    return DUL_NORMAL;
  });
}

// --- User information ---

// False, after a line in the log, for an item that came before.
bool first_time(bool& seen, const char* repeated) {
  if (seen) VX_LOG_ERR("parse_user_info", "%s already received.", repeated);
  const bool first = !seen;
  seen = true;
  return first;
}

DulStatus parse_maximum_length(const ItemImage& item, AssociatePdu& pdu) {
  if (!first_time(pdu.has_maximum, "User Information Item: Maximum Length notification"))
    return DUL_DEFORMED_PDU;
  Bytes bytes(item.content);
  return bytes.u32(pdu.maximum_length) ? DUL_NORMAL : deformed();
}

DulStatus parse_implementation_class(const ItemImage& item, AssociatePdu& pdu) {
  if (!first_time(pdu.has_class, "User Information Item: Implementation Class UID")) return DUL_DEFORMED_PDU;
  pdu.implementation_class = item.content;
  return uid_fits(item.content, item.type, "Implementation Class UID") ? DUL_NORMAL : DUL_DEFORMED_PDU;
}

DulStatus parse_window(const ItemImage& item, AssociatePdu& pdu) {
  if (!first_time(pdu.has_window, "User Information Item: Asynchronous Operations Window"))
    return DUL_DEFORMED_PDU;
  Bytes bytes(item.content);
  return bytes.u16(pdu.max_invoked) && bytes.u16(pdu.max_performed) ? DUL_NORMAL : deformed();
}

DulStatus parse_version(const ItemImage& item, AssociatePdu& pdu) {
  if (!first_time(pdu.has_version, "A-ASSOCIATE PDU, User Information Item: Implementation Version")) {
    return DUL_DEFORMED_PDU;
  }
  pdu.implementation_version = item.content;
  return fits(item.content, kLongestVersion, item.type, "Implementation Version", kLongestVersion)
             ? DUL_NORMAL
             : DUL_DEFORMED_PDU;
}

DulStatus parse_role(const ItemImage& item, AssociatePdu& pdu) {
  RoleImage& role = pdu.roles.add("Too many sop roles items");
  Bytes bytes(item.content);
  uint16_t length = 0;
  if (!bytes.u16(length)) return deformed();
  if (!fits({nullptr, length}, kLongestUid, item.type, "Role Selection SOP Class UID", 16))
    return DUL_DEFORMED_PDU;
  if (!bytes.take(length, role.uid) || !bytes.u8(role.scu) || !bytes.u8(role.scp)) return deformed();
  if (role.scu > 1) VX_LOG_ERR(kFunction, "A-ASSOCIATE PDU - Invalid value for SCU-role: %d", role.scu);
  if (role.scp > 1) VX_LOG_ERR(kFunction, "A-ASSOCIATE PDU - Invalid value for SCP-role: %d", role.scp);
  return role.scu > 1 || role.scp > 1 ? DUL_DEFORMED_PDU : DUL_NORMAL;
}

DulStatus parse_extended(const ItemImage& item, AssociatePdu& pdu) {
  ExtendedImage& extended = pdu.extended.add("Too many extended sop items");
  Bytes bytes(item.content);
  uint16_t length = 0;
  if (!bytes.u16(length)) return deformed();
  if (!uid_fits({nullptr, length}, item.type, "Extended Negotiation SOP Class UID")) return DUL_DEFORMED_PDU;
  if (!bytes.take(length, extended.uid)) return deformed();
  extended.data = bytes.rest();
  return DUL_NORMAL;
}

DulStatus parse_related(const ItemImage& item, View list, AssociatePdu& pdu, CommonImage& common) {
  Bytes bytes(list);
  for (int number = 0; !bytes.empty(); ++number) {
    View uid{};
    if (!bytes.counted(uid)) return deformed();
    char what[48];
    std::snprintf(what, sizeof what, "Related General Class UID[%d]", number);
    if (!uid_fits(uid, item.type, what)) return DUL_DEFORMED_PDU;
    if (number < kMostRelatedClasses) {
      common.related[common.related_count++] = uid;
    } else if (pdu.may_log()) {
      VX_LOG_WARN(kFunction, "Too many related SOP classes contained in association request. Ignoring.");
    }
  }
  return DUL_NORMAL;
}

DulStatus parse_common_extended(const ItemImage& item, AssociatePdu& pdu) {
  CommonImage& common = pdu.common.add("Too many sop class common extended negotiation items");
  Bytes bytes(item.content);
  View list{};
  if (!bytes.counted(common.uid)) return deformed();
  if (!uid_fits(common.uid, item.type, "SOP Class UID")) return DUL_DEFORMED_PDU;
  if (!bytes.counted(common.service_class)) return deformed();
  if (!uid_fits(common.service_class, item.type, "Service Class UID")) return DUL_DEFORMED_PDU;
  return bytes.counted(list) ? parse_related(item, list, pdu, common) : deformed();
}

DulStatus parse_identity_fields(const ItemImage& item, AssociatePdu& pdu) {
  Bytes bytes(item.content);
  const bool whole = bytes.u8(pdu.identity_type) && bytes.u8(pdu.identity_response_requested) &&
                     bytes.counted(pdu.identity_primary) && bytes.counted(pdu.identity_secondary) &&
                     bytes.empty();
  if (pdu.identity_type != kNameAndPasscode && pdu.identity_secondary.size != 0) {
    VX_LOG_ERR(
        "parse_user_identity_rq",
        "A-ASSOCIATE PDU - User Identity Secondary-field-length should be 0 for User-Identity-Type of 2.");
    return DUL_DEFORMED_PDU;
  }
  if (whole) return DUL_NORMAL;
  VX_LOG_ERR("parse_user_identity_rq",
             "A-ASSOCIATE PDU - incorrect length or field length in User Identity.");
  return DUL_DEFORMED_PDU;
}

DulStatus parse_identity(const ItemImage& item, AssociatePdu& pdu) {
  if (!first_time(pdu.has_identity, "User Information Item: User Identity")) return DUL_DEFORMED_PDU;
  const DulStatus status = parse_identity_fields(item, pdu);
  if (status != DUL_NORMAL) VX_LOG_ERR("parse_user_info", "Error on parse_user_identity_rq call.");
  return status;
}

DulStatus parse_identity_response(const ItemImage& item, AssociatePdu& pdu) {
  if (!first_time(pdu.has_response, "User Information Item: User Identity")) return DUL_DEFORMED_PDU;
  Bytes bytes(item.content);
  if (bytes.counted(pdu.identity_response) && bytes.empty()) return DUL_NORMAL;
  VX_LOG_ERR("parse_user_identity_ac",
             "A-ASSOCIATE PDU - incorrect length or server response length in User Identity.");
  VX_LOG_ERR("parse_user_info", "Error on parse_user_identity_ac call.");
  return DUL_DEFORMED_PDU;
}

struct UserItem {
  uint8_t type;
  DulStatus (*parse)(const ItemImage& item, AssociatePdu& pdu);
};
constexpr UserItem kUserItems[] = {
    {0x51, parse_maximum_length},
    {0x52, parse_implementation_class},
    {0x53, parse_window},
    {0x54, parse_role},
    {0x55, parse_version},
    {0x56, parse_extended},
    {0x57, parse_common_extended},
    {0x58, parse_identity},
    {0x59, parse_identity_response},
};

DulStatus parse_user_info(const ItemImage& item, AssociatePdu& pdu) {
  Bytes bytes(item.content);
  return walk_items(bytes, [&pdu](const ItemImage& sub) {
    for (const UserItem& row : kUserItems) {
      if (row.type == sub.type) return row.parse(sub, pdu);
    }
    if (pdu.may_log()) {
      VX_LOG_WARN("parse_user_info", "Ignoring unknown User Data PDU type (%02x), Length (%lu)", sub.type,
                  static_cast<unsigned long>(sub.content.size));
    }
    return DUL_NORMAL;
  });
}

// --- The PDU ---

DulStatus parse_top_item(const ItemImage& item, AssociatePdu& pdu) {
  DulStatus status = DUL_NORMAL;
  const char* parser = "";
  switch (item.type) {
    case 0x10:
      parser = "parse_uid_subitem";
      pdu.application_context = item.content;
      if (!uid_fits(item.content, item.type, "item name")) status = DUL_DEFORMED_PDU;
      break;
    case 0x20:
    case 0x21:
      parser = "parse_pres_context";
      status = parse_pres_context(item, pdu);
      break;
    case 0x50:
      parser = "parse_user_info";
      status = parse_user_info(item, pdu);
      break;
    default:
      VX_LOG_ERR(kFunction, "Unknown PDU type received: %02x", item.type);
      return DUL_UNKNOWN_PDU;
  }
  if (status != DUL_NORMAL) VX_LOG_ERR(kFunction, "Error on %s call", parser);
  return status;
}

DulStatus VXI_parseAssociate(std::span<const uint8_t> received, AssociatePdu& pdu) {
  pdu.max_invoked = pdu.max_performed = kWindowAbsent;
  if (received.size() < kItemsAt) return deformed();
  pdu.protocol_version = load16(&received[6], true);
  pdu.called_title = {&received[10], 16};
  pdu.calling_title = {&received[26], 16};
  const auto items = received.subspan(kItemsAt);
  Bytes bytes({items.data(), static_cast<uint32_t>(items.size())});
  return walk_items(bytes, [&pdu](const ItemImage& item) { return parse_top_item(item, pdu); });
}

// --- Into the parameters ---

// Up to a NUL, without trailing blanks.
std::string_view text_of(View view) {
  if (view.size == 0) return {};
  const auto* text = reinterpret_cast<const char*>(view.data);
  return trim_right({text, strnlen(text, view.size)});
}

template <std::size_t Size>
void copy(char (&field)[Size], View view) {
  copy_text(field, Size, text_of(view));
}

VX_TRANSFER_SYNTAX syntax_code(const char* uid) {
  VX_TRANSFER_SYNTAX code = 0;
  return *uid != '\0' && syntax_from_uid(uid, code) == kOk ? code : 0;
}

// False if there is no memory.
bool copy_bytes(View view, uint8_t*& field, uint16_t& length) {
  release(field);
  field = nullptr;
  length = 0;
  if (view.size == 0) return true;
  field = static_cast<uint8_t*>(allocate_raw(view.size));
  if (field == nullptr) return false;
  std::memcpy(field, view.data, view.size);
  length = static_cast<uint16_t>(view.size);
  return true;
}

PresentationContext* context_of(AssociationParameters& parameters, std::string_view uid) {
  for (PresentationContext& context : contexts_of(parameters)) {
    if (uid == context.abstractSyntax) return &context;
  }
  return nullptr;
}

PresentationContext* named_context(AssociationParameters& parameters, View uid) {
  PresentationContext* context = context_of(parameters, text_of(uid));
  if (context == nullptr) VX_LOG_ERR("Retrieve_Associate_Info", "Too many abstract syntaxes received");
  return context;
}

bool take_common(const AssociatePdu& pdu, PresentationContext& context) {
  for (const CommonImage& common : pdu.common.all()) {
    if (text_of(common.uid) != context.abstractSyntax) continue;
    copy(context.serviceClassUid, common.service_class);
    if (!set_related_count(context, common.related_count)) return false;
    for (int i = 0; i < common.related_count; ++i) copy(context.relatedClasses[i], common.related[i]);
  }
  return true;
}

DulStatus take_proposal(const AssociatePdu& pdu, AssociationParameters& parameters) {
  const auto images = pdu.contexts.all();
  if (!set_context_count(parameters, static_cast<int32_t>(images.size()))) return DUL_NO_MEMORY;
  for (std::size_t i = 0; i < images.size(); ++i) {
    const ContextImage& image = images[i];
    PresentationContext& context = parameters.contexts[i];
    if (image.id == 0) {
      log_line(VX_LOG_T1, "Retrieve_Associate_Info", "Unexpected Pres Context ID of 0 received");
      return DUL_DEFORMED_PDU;
    }
    context.id = image.id;
    copy(context.abstractSyntax, image.abstract_syntax);
    if (!set_syntax_count(context, image.syntax_count)) return DUL_NO_MEMORY;
    for (int k = 0; k < image.syntax_count; ++k) {
      copy(context.transferSyntaxes[k].uid, image.syntaxes[k]);
      context.transferSyntaxes[k].code = syntax_code(context.transferSyntaxes[k].uid);
    }
    if (!take_common(pdu, context)) return DUL_NO_MEMORY;
  }
  parameters.userIdentityType = pdu.identity_type;
  parameters.userIdentityResponseRequested = pdu.identity_response_requested;
  if (!copy_bytes(pdu.identity_primary, parameters.userIdentityPrimary,
                  parameters.userIdentityPrimaryLength) ||
      !copy_bytes(pdu.identity_secondary, parameters.userIdentitySecondary,
                  parameters.userIdentitySecondaryLength)) {
    VX_LOG_WARN("Retrieve_Associate_Info", "No memory for User Identity info");
  }
  return DUL_NORMAL;
}

void take_answer(const AssociatePdu& pdu, AssociationParameters& parameters) {
  const auto contexts = contexts_of(parameters);
  for (const ContextImage& image : pdu.contexts.all()) {
    const auto found = std::find_if(
        contexts.begin(), contexts.end(),
        [&image](const PresentationContext& context) { return context.id != 0 && context.id == image.id; });
    if (found == contexts.end()) {
      VX_LOG_ERR("Retrieve_Associate_Info", "Unexpected Pres Context ID (%c) received", image.id);
      continue;
    }
    found->result = image.result;
    copy(found->acceptedTransferSyntax, image.syntax_count > 0 ? image.syntaxes[0] : View{});
    found->acceptedTransferSyntaxCode = syntax_code(found->acceptedTransferSyntax);
  }
  if (!pdu.has_response) return;
  parameters.receivedUserIdentityResponse = true;
  if (!copy_bytes(pdu.identity_response, parameters.userIdentityResponse,
                  parameters.userIdentityResponseLength)) {
    VX_LOG_WARN("Retrieve_Associate_Info", "No memory for User Identity info server response");
  }
}

void take_roles(const AssociatePdu& pdu, AssociationParameters& parameters) {
  for (const RoleImage& role : pdu.roles.all()) {
    PresentationContext* context = named_context(parameters, role.uid);
    if (context == nullptr) continue;
    context->scuRole = role.scu;
    context->scpRole = role.scp;
  }
}

void take_extended(const AssociatePdu& pdu, AssociationParameters& parameters) {
  for (PresentationContext& context : contexts_of(parameters)) set_extended_negotiation(context, nullptr, 0);
  for (const ExtendedImage& extended : pdu.extended.all()) {
    PresentationContext* context = named_context(parameters, extended.uid);
    if (context == nullptr) continue;
    const auto length = static_cast<uint16_t>(extended.data.size);
    if (context->extendedNegotiation == nullptr) {
      const void* data = extended.data.data != nullptr ? static_cast<const void*>(extended.data.data) : "";
      if (!set_extended_negotiation(*context, data, length)) {
        VX_LOG_WARN("Retrieve_Associate_Info", "No memory for SOP extended info");
      }
      continue;
    }
    const uint16_t room = context->extendedNegotiationCapacity;
    if (room < length) {
      VX_LOG_WARN("Retrieve_Associate_Info", "Truncating %u bytes SOP EXT INFO data to %u", length, room);
    }
    context->extendedNegotiationLength = std::min(room, length);
    if (context->extendedNegotiationLength != 0) {
      std::memcpy(context->extendedNegotiation, extended.data.data, context->extendedNegotiationLength);
    }
  }
}

DulStatus Retrieve_Associate_Info(const AssociatePdu& pdu, PduType type, AssociationParameters& parameters) {
  parameters.protocolVersion = pdu.protocol_version;
  copy(parameters.applicationContextName, pdu.application_context);
  copy(parameters.calledTitle, pdu.called_title);
  copy(parameters.callingTitle, pdu.calling_title);
  parameters.maximumPduLength = pdu.maximum_length;
  copy(parameters.implementationClassUid, pdu.implementation_class);
  copy(parameters.implementationVersion, pdu.implementation_version);
  parameters.maxOperationsInvoked = pdu.max_invoked;
  parameters.maxOperationsPerformed = pdu.max_performed;
  if (type == kAssociateAc) {
    take_answer(pdu, parameters);
  } else if (const DulStatus status = take_proposal(pdu, parameters); status != DUL_NORMAL) {
    return status;
  }
  take_roles(pdu, parameters);
  take_extended(pdu, parameters);
  return DUL_NORMAL;
}

}  // namespace

int32_t parse_associate(std::span<const uint8_t> pdu, AssociationParameters& parameters) {
  auto* image = new_object<AssociatePdu>(Pool::AssocReqObj);
  if (image == nullptr) {
    VX_LOG_ERR(kFunction, "Could not malloc assocRQ_PDU buffer");
    return DUL_NO_MEMORY;
  }
  DulStatus status = VXI_parseAssociate(pdu, *image);
  if (status == DUL_NORMAL) {
    status = Retrieve_Associate_Info(*image, static_cast<PduType>(pdu[0]), parameters);
  }
  pool_free(Pool::AssocReqObj, image);
  return status;
}

void mark_unanswered(AssociationParameters& parameters) {
  for (PresentationContext& context : contexts_of(parameters)) {
    context.result = kNoAnswer;
    context.acceptedTransferSyntax[0] = '\0';
    context.acceptedTransferSyntaxCode = 0;
    context.scuRole = kRoleAbsent;
    context.scpRole = kRoleAbsent;
    context.extendedNegotiationLength = 0;
  }
}

}  // namespace vx
