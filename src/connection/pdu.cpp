#include "connection/pdu.h"

#include <atomic>
#include <cstring>

#include "config/config.h"
#include "config/transfer_syntax.h"
#include "frame/byte_order.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/text.h"

namespace vx {
namespace {

enum Item : uint8_t {
  kApplicationContext = 0x10,
  kProposedContext = 0x20,
  kAnsweredContext = 0x21,
  kAbstractSyntax = 0x30,
  kTransferSyntax = 0x40,
  kUserInformation = 0x50,
  kMaximumLength = 0x51,
  kImplementationClass = 0x52,
  kAsynchronousWindow = 0x53,
  kRoleSelection = 0x54,
  kImplementationVersion = 0x55,
  kExtendedNegotiation = 0x56,
  kCommonExtendedNegotiation = 0x57,
  kUserIdentity = 0x58,
  kUserIdentityResponse = 0x59
};

constexpr std::size_t kTitle = 16;

// INSURE_EVEN_UID_LENGTH as it was when first asked for: -1 until then.
std::atomic<int> g_even_uids{-1};

bool even_uids() {
  int even = g_even_uids.load(std::memory_order_relaxed);
  if (even < 0) {
    even = config_bool(VX_CFG_INSURE_EVEN_UID_LENGTH) ? 1 : 0;
    g_even_uids.store(even, std::memory_order_relaxed);
  }
  return even == 1;
}

// --- Building ---

// Bytes with nested items whose lengths are known once their contents stand.
class ItemWriter {
 public:
  explicit ItemWriter(std::vector<uint8_t>& bytes) : bytes_(bytes) {}

  void u8(uint8_t value) { bytes_.push_back(value); }
  void u16(uint16_t value) {
    u8(static_cast<uint8_t>(value >> 8));
    u8(static_cast<uint8_t>(value));
  }
  void u32(uint32_t value) {
    u16(static_cast<uint16_t>(value >> 16));
    u16(static_cast<uint16_t>(value));
  }
  void raw(const void* data, std::size_t size) {
    const auto* first = static_cast<const uint8_t*>(data);
    bytes_.insert(bytes_.end(), first, first + size);
  }
  void text(std::string_view text) { raw(text.data(), text.size()); }
  void zeros(std::size_t count) { bytes_.insert(bytes_.end(), count, 0); }
  void title(const char* title) {
    const std::string_view text(title, strnlen(title, kTitle));
    raw(text.data(), text.size());
    bytes_.insert(bytes_.end(), kTitle - text.size(), ' ');
  }
  // A UID of an item that INSURE_EVEN_UID_LENGTH pads.
  void uid(std::string_view uid) {
    text(uid);
    if (even_uids() && uid.size() % 2 == 1) u8(0);
  }
  std::size_t begin(uint8_t type) {
    u8(type);
    u8(0);
    return begin_length();
  }
  std::size_t begin_length() {
    u16(0);
    return bytes_.size();
  }
  void end(std::size_t start) {
    const std::size_t length = bytes_.size() - start;
    fits_ = fits_ && length <= 0xFFFF;
    store16(bytes_.data() + start - 2, static_cast<uint16_t>(length), true);
  }
  template <typename Content>
  void item(uint8_t type, Content&& content) {
    const std::size_t start = begin(type);
    content();
    end(start);
  }
  // A text behind its own length.
  void counted(std::string_view value) {
    u16(static_cast<uint16_t>(value.size()));
    text(value);
  }
  bool fits() const { return fits_; }

 private:
  std::vector<uint8_t>& bytes_;
  bool fits_ = true;
};

void write_context(ItemWriter& out, const PresentationContext& context, PduType type) {
  if (context.id == 0) return;
  const bool request = type == kAssociateRq;
  out.item(request ? kProposedContext : kAnsweredContext, [&] {
    out.u8(context.id);
    out.u8(0);
    out.u8(request ? uint8_t{0} : context.result);
    out.u8(0);
    if (!request) {
      out.item(kTransferSyntax, [&] { out.uid(context.acceptedTransferSyntax); });
      return;
    }
    out.item(kAbstractSyntax, [&] { out.uid(context.abstractSyntax); });
    for (int32_t i = 0; i < context.transferSyntaxCount; ++i) {
      const char* uid = context.transferSyntaxes[i].uid;
      if (*uid != '\0') out.item(kTransferSyntax, [&] { out.uid(uid); });
    }
  });
}

void write_roles(ItemWriter& out, const AssociationParameters& parameters) {
  const auto contexts = contexts_of(parameters);
  const auto has_role = [](const PresentationContext& context) {
    return context.scuRole != kRoleAbsent && *context.abstractSyntax != '\0';
  };
  for (std::size_t i = 0; i < contexts.size(); ++i) {
    const PresentationContext& context = contexts[i];
    bool written = !has_role(context);
    for (std::size_t k = 0; k < i && !written; ++k) {
      written = has_role(contexts[k]) && std::strcmp(contexts[k].abstractSyntax, context.abstractSyntax) == 0;
    }
    if (written) continue;
    out.item(kRoleSelection, [&] {
      out.counted(context.abstractSyntax);
      out.u8(context.scuRole);
      out.u8(context.scpRole);
    });
  }
}

void write_extended(ItemWriter& out, const PresentationContext& context) {
  if (context.extendedNegotiation == nullptr) return;
  out.item(kExtendedNegotiation, [&] {
    const std::size_t start = out.begin_length();
    out.uid(context.abstractSyntax);
    out.end(start);
    out.raw(context.extendedNegotiation, context.extendedNegotiationLength);
  });
}

void write_common_extended(ItemWriter& out, const PresentationContext& context) {
  if (*context.serviceClassUid == '\0') {
    if (context.relatedClassCount > 0) {
      VX_LOG_WARN("Build_Associate_PDU",
                  "Related SOP Classes included in service list without Service Class UID, ignoring.");
    }
    return;
  }
  out.item(kCommonExtendedNegotiation, [&] {
    out.counted(context.abstractSyntax);
    out.counted(context.serviceClassUid);
    const std::size_t start = out.begin_length();
    for (int32_t i = 0; i < context.relatedClassCount; ++i) out.counted(context.relatedClasses[i]);
    out.end(start);
  });
}

void write_identity(ItemWriter& out, const AssociationParameters& parameters, PduType type) {
  if (type == kAssociateRq && parameters.userIdentityType != kNoIdentity) {
    out.item(kUserIdentity, [&] {
      out.u8(static_cast<uint8_t>(parameters.userIdentityType));
      out.u8(parameters.userIdentityResponseRequested);
      out.u16(parameters.userIdentityPrimaryLength);
      out.raw(parameters.userIdentityPrimary, parameters.userIdentityPrimaryLength);
      out.u16(parameters.userIdentitySecondaryLength);
      out.raw(parameters.userIdentitySecondary, parameters.userIdentitySecondaryLength);
    });
  }
  if (type == kAssociateAc && parameters.sendUserIdentityResponse) {
    out.item(kUserIdentityResponse, [&] {
      out.u16(parameters.userIdentityResponseLength);
      out.raw(parameters.userIdentityResponse, parameters.userIdentityResponseLength);
    });
  }
}

void write_user_information(ItemWriter& out, const AssociationParameters& parameters, PduType type) {
  out.item(kMaximumLength, [&] { out.u32(parameters.maximumPduLength); });
  if (*parameters.implementationClassUid != '\0') {
    out.item(kImplementationClass, [&] { out.uid(parameters.implementationClassUid); });
  }
  if (parameters.maxOperationsInvoked != kWindowAbsent) {
    out.item(kAsynchronousWindow, [&] {
      out.u16(parameters.maxOperationsInvoked);
      out.u16(parameters.maxOperationsPerformed);
    });
  }
  write_roles(out, parameters);
  if (*parameters.implementationVersion != '\0') {
    out.item(kImplementationVersion, [&] { out.text(parameters.implementationVersion); });
  }
  for (const PresentationContext& context : contexts_of(parameters)) write_extended(out, context);
  if (type == kAssociateRq) {
    for (const PresentationContext& context : contexts_of(parameters)) write_common_extended(out, context);
  }
  write_identity(out, parameters, type);
}

// A zeroed array in place of the former one; the count is 0 if there is no memory for it.
template <typename T>
bool replace_array(T*& array, int32_t& count, int32_t wanted) {
  release(array);
  array = nullptr;
  count = 0;
  if (wanted == 0) return true;
  array = static_cast<T*>(allocate(static_cast<std::size_t>(wanted) * sizeof(T)));
  if (array == nullptr) return false;
  count = wanted;
  return true;
}

void free_context(PresentationContext& context) {
  release(context.transferSyntaxes);
  release(context.extendedNegotiation);
  release(context.relatedClasses);
}

}  // namespace

void reset_uid_padding() {
  g_even_uids.store(-1, std::memory_order_relaxed);
}

AssociationParameters* new_association_parameters() {
  auto* parameters = new_object<AssociationParameters>(Pool::AssocParmsObj);
  if (parameters == nullptr) return nullptr;
  parameters->maxOperationsInvoked = parameters->maxOperationsPerformed = kWindowAbsent;
  return parameters;
}

void free_association_parameters(AssociationParameters* parameters) {
  if (parameters == nullptr) return;
  for (PresentationContext& context : contexts_of(*parameters)) free_context(context);
  release(parameters->contexts);
  release(parameters->userIdentityPrimary);
  release(parameters->userIdentitySecondary);
  release(parameters->userIdentityResponse);
  pool_free(Pool::AssocParmsObj, parameters);
}

bool set_context_count(AssociationParameters& parameters, int32_t count) {
  for (PresentationContext& context : contexts_of(parameters)) free_context(context);
  if (!replace_array(parameters.contexts, parameters.contextCount, count)) return false;
  for (PresentationContext& context : contexts_of(parameters)) {
    context.scuRole = context.scpRole = kRoleAbsent;
  }
  return true;
}

bool set_syntax_count(PresentationContext& context, int32_t count) {
  return replace_array(context.transferSyntaxes, context.transferSyntaxCount, count);
}

bool set_extended_negotiation(PresentationContext& context, const void* data, uint16_t length) {
  release(context.extendedNegotiation);
  context.extendedNegotiation = nullptr;
  context.extendedNegotiationLength = context.extendedNegotiationCapacity = 0;
  if (data == nullptr) return true;
  context.extendedNegotiation = static_cast<uint8_t*>(allocate_raw(length > 0 ? length : 1));
  if (context.extendedNegotiation == nullptr) return false;
  std::memcpy(context.extendedNegotiation, data, length);
  context.extendedNegotiationLength = context.extendedNegotiationCapacity = length;
  return true;
}

bool set_identity_response(AssociationParameters& parameters, const void* data, uint16_t length) {
  release(parameters.userIdentityResponse);
  parameters.userIdentityResponseLength = 0;
  parameters.userIdentityResponse = static_cast<uint8_t*>(allocate_raw(length));
  if (parameters.userIdentityResponse == nullptr) return false;
  std::memcpy(parameters.userIdentityResponse, data, length);
  parameters.userIdentityResponseLength = length;
  return true;
}

bool set_related_count(PresentationContext& context, int32_t count) {
  return replace_array(context.relatedClasses, context.relatedClassCount, count);
}

bool Build_Associate_PDU(const AssociationParameters& parameters, PduType type, std::vector<uint8_t>& pdu) {
  pdu.clear();
  pdu.reserve(4096);
  ItemWriter out(pdu);
  out.u8(type);
  out.u8(0);
  out.u32(0);
  out.u16(1);
  out.u16(0);
  out.title(parameters.calledTitle);
  out.title(parameters.callingTitle);
  out.zeros(32);
  out.item(kApplicationContext, [&] { out.uid(parameters.applicationContextName); });
  for (const PresentationContext& context : contexts_of(parameters)) write_context(out, context, type);
  out.item(kUserInformation, [&] { write_user_information(out, parameters, type); });
  store32(pdu.data() + 2, static_cast<uint32_t>(pdu.size() - kPduHeader), true);
  if (!out.fits()) VX_LOG_ERR("Build_Associate_PDU", "Negotiation data too large for an A-ASSOCIATE PDU");
  return out.fits();
}

void build_short_pdu(uint8_t (&pdu)[kShortPdu], PduType type, uint8_t b7, uint8_t b8, uint8_t b9) {
  const uint8_t bytes[kShortPdu] = {type, 0, 0, 0, 0, 4, 0, b7, b8, b9};
  std::memcpy(pdu, bytes, sizeof bytes);
}

void build_pdv_header(uint8_t* header, uint32_t value_length, uint8_t context_id, bool is_data,
                      bool is_last) {
  header[0] = kPDataTf;
  header[1] = 0;
  store32(header + 2, value_length + 6, true);
  store32(header + 6, value_length + 2, true);
  header[10] = context_id;
  header[11] = static_cast<uint8_t>((is_data ? 0 : kCommandBit) | (is_last ? kLastBit : 0));
}

}  // namespace vx
