// The acceptor's choice among the proposed presentation contexts (PS3.8 section 7.1.1.13, PS3.7 D.3.3.4).
#include <atomic>
#include <cstring>

#include "association/acceptor.h"
#include "association/negotiation.h"
#include "config/added.h"
#include "config/config.h"
#include "frame/text.h"

namespace vx {
namespace {

constexpr char kStorageServiceClass[] = "1.2.840.10008.4.2";

struct RoleRow {
  Roles requester;
  Roles entry;
  Roles answer;
  bool accepted;
};
constexpr Roles kNone{kNoRole, kNoRole};
// The first pair is what the requester says of itself, the second what the entry of the list offers.
constexpr RoleRow kRoleRows[] = {
    {{1, 0}, {1, 0}, {0, 0}, false}, {{1, 0}, {0, 1}, {1, 0}, true}, {{1, 0}, {1, 1}, {1, 0}, true},
    {{1, 0}, kNone, kNone, true},    {{0, 1}, {1, 0}, {0, 1}, true}, {{0, 1}, {0, 1}, {0, 0}, false},
    {{0, 1}, {1, 1}, {0, 1}, true},  {{0, 1}, kNone, {0, 0}, false}, {{1, 1}, {1, 0}, {0, 1}, true},
    {{1, 1}, {0, 1}, {1, 0}, true},  {{1, 1}, {1, 1}, {1, 1}, true}, {{1, 1}, kNone, kNone, true},
    {kNone, {1, 0}, kNone, false},   {kNone, {0, 1}, kNone, true},   {kNone, {1, 1}, kNone, true},
    {kNone, kNone, kNone, true},
};

bool same(Roles a, Roles b) {
  return a.scu == b.scu && a.scp == b.scp;
}

std::span<const TransferSyntaxEntry> syntaxes_of(const PresentationContext& context) {
  return {context.transferSyntaxes, static_cast<std::size_t>(context.transferSyntaxCount)};
}

// The first syntax of the entry's list that was proposed: the acceptor's order decides.
const TransferSyntaxEntry* choose_syntax(const ServiceEntry& entry, const PresentationContext& context) {
  for (const VX_TRANSFER_SYNTAX own : syntaxes_of(*entry.syntaxList)) {
    for (const TransferSyntaxEntry& proposed : syntaxes_of(context)) {
      if (proposed.code == own) return &proposed;
    }
  }
  return nullptr;
}

const ServiceEntry* entry_of_class(const ServiceList& list, std::string_view uid) {
  for (const ServiceEntry& entry : entries_of(list)) {
    if (uid == entry.service->uid) return &entry;
  }
  return nullptr;
}

const ServiceEntry* entry_for(const ServiceList& list, const PresentationContext& context) {
  const std::string_view uid = context.abstractSyntax;
  for (const ServiceEntry& entry : entries_of(list)) {
    if (uid == entry.service->uid && choose_syntax(entry, context) != nullptr) return &entry;
  }
  const SopObj* echo = find_service(kEchoServiceName);
  if (!list.hasEcho && echo != nullptr && uid == echo->uid) {
    // Every list answers verification.
    const ServiceList* own = VXI_GetServiceNumbers(kEchoServiceList);
    return own != nullptr && own->count > 0 ? own->entries : nullptr;
  }
  if (config_bool(VX_CFG_ACCEPT_RELATED_GENERAL_SERVICES)) {
    for (int32_t i = 0; i < context.relatedClassCount; ++i) {
      const ServiceEntry* related = entry_of_class(list, context.relatedClasses[i]);
      if (related != nullptr) return related;
    }
  }
  const bool storage = std::strcmp(context.serviceClassUid, kStorageServiceClass) == 0;
  return storage && config_bool(VX_CFG_ACCEPT_STORAGE_SERVICE_CONTEXTS) && list.count > 0 ? list.entries
                                                                                          : nullptr;
}

bool accepts_unknown() {
  return std::atomic_ref(state().AcceptUnknown).load(std::memory_order_relaxed) != 0;
}

// What stands for an entry of the list where every class that can be stored is taken: the first one that has
// no roles, with its syntaxes. Null if the class is known as one that is not stored.
const ServiceEntry* entry_for_unknown(const ServiceList& list, const PresentationContext& context) {
  constexpr uint32_t kStoreRequest = 0x1;
  const SopObj* service = find_service_by_uid(context.abstractSyntax);
  if (service == nullptr) service = add_service(context.abstractSyntax);
  if (service == nullptr || (service->commands & kStoreRequest) == 0) return nullptr;
  for (const ServiceEntry& entry : entries_of(list)) {
    if (entry.scuRole == kNoRole && entry.scpRole == kNoRole) return &entry;
  }
  return nullptr;
}

// The first syntax that has a code, or gets one.
const TransferSyntaxEntry* choose_unknown_syntax(PresentationContext& context) {
  for (TransferSyntaxEntry& proposed :
       std::span(context.transferSyntaxes, static_cast<std::size_t>(context.transferSyntaxCount))) {
    if (proposed.code == 0) proposed.code = add_syntax(proposed.uid);
    if (proposed.code != 0) return &proposed;
  }
  return nullptr;
}

bool repeats_earlier(const AssociationParameters& parameters, const PresentationContext& context) {
  for (const PresentationContext& earlier : contexts_of(parameters)) {
    if (&earlier == &context) return false;
    if (earlier.id != 0 && std::strcmp(earlier.abstractSyntax, context.abstractSyntax) == 0) return true;
  }
  return false;
}

ContextResult answer_context(const SesObj& session, PresentationContext& context) {
  const Roles requested{context.scuRole, context.scpRole};
  context.scuRole = context.scpRole = kRoleAbsent;
  const ServiceEntry* entry = entry_for(*session.Services, context);
  const bool any = accepts_unknown();
  if (entry == nullptr && any) entry = entry_for_unknown(*session.Services, context);
  if (entry == nullptr) return kAbstractSyntaxNotSupported;
  const TransferSyntaxEntry* syntax = choose_syntax(*entry, context);
  if (syntax == nullptr && any) syntax = choose_unknown_syntax(context);
  if (syntax == nullptr) return kTransferSyntaxNotSupported;
  if (!config_bool(VX_CFG_ACCEPT_MULTIPLE_PRES_CONTEXTS) && repeats_earlier(*session.Parameters, context)) {
    return kUserRejection;
  }
  Roles answer{};
  const bool agreed = negotiate_roles(requested, {entry->scuRole, entry->scpRole}, answer);
  context.scuRole = answer.scu;
  context.scpRole = answer.scp;
  if (!agreed) return kUserRejection;
  copy_text(context.acceptedTransferSyntax, sizeof context.acceptedTransferSyntax, syntax->uid);
  context.acceptedTransferSyntaxCode = syntax->code;
  return kAccepted;
}

}  // namespace

bool negotiate_roles(Roles requester, Roles entry, Roles& answer) {
  for (const RoleRow& row : kRoleRows) {
    if (!same(row.requester, requester) || !same(row.entry, entry)) continue;
    answer = row.answer;
    return row.accepted;
  }
  answer = {0, 0};
  return false;
}

uint16_t negotiate_window(uint16_t peer, uint16_t own) {
  if (peer == kNoWindow) return kNoWindow;
  if (own == kNoWindow) return 1;
  return peer == 0 || (own != 0 && own < peer) ? own : peer;
}

bool choose_contexts(SesObj& session) {
  session.ContextCount = session.AcceptedContextCount = 0;
  for (PresentationContext& context : contexts_of(*session.Parameters)) {
    if (context.id == 0) continue;
    ++session.ContextCount;
    context.result = answer_context(session, context);
    if (context.result == kAccepted) ++session.AcceptedContextCount;
  }
  return session.AcceptedContextCount > 0 && make_accepted_entries(session) == kOk;
}

}  // namespace vx
