#include "config/added.h"

#include <atomic>
#include <deque>
#include <mutex>
#include <string>
#include <unordered_map>

#include "frame/limits.h"

namespace vx {
namespace {

constexpr int32_t kFirstNumber = 1000000;
constexpr std::string_view kNamePrefix = "ADDED_SERVICE_";
constexpr uint32_t kStores = 0x3;  // C_STORE_RQ and C_STORE_RSP

// PS3.5 section 9.1.
bool is_uid(std::string_view text) {
  return !text.empty() && text.size() <= 64 && text.find_first_not_of("0123456789.") == text.npos;
}

// Rows by their UIDs, in the order in which they came; a row stays where it is. Nothing is locked as long as
// there are none.
template <typename Row>
class Table {
 public:
  const Row* find(std::string_view uid) const {
    if (empty()) return nullptr;
    const std::lock_guard lock(mutex_);
    const auto found = by_uid_.find(uid);
    return found != by_uid_.end() ? found->second : nullptr;
  }
  const Row* at(int64_t index) const {
    if (index < 0 || empty()) return nullptr;
    const std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(index) < rows_.size() ? &rows_[static_cast<std::size_t>(index)] : nullptr;
  }
  const Row* add(std::string_view uid) {
    if (!is_uid(uid)) return nullptr;
    const std::lock_guard lock(mutex_);
    if (const auto found = by_uid_.find(uid); found != by_uid_.end()) return found->second;
    if (rows_.size() >= kMaxAdded) return nullptr;
    const Row& row = rows_.emplace_back(uid, static_cast<int32_t>(rows_.size()));
    by_uid_.emplace(row.uid, &row);
    empty_.store(false, std::memory_order_release);
    return &row;
  }
  void clear() {
    const std::lock_guard lock(mutex_);
    by_uid_.clear();
    rows_.clear();
    empty_.store(true, std::memory_order_release);
  }
  bool empty() const { return empty_.load(std::memory_order_acquire); }

 private:
  mutable std::mutex mutex_;
  std::atomic<bool> empty_{true};
  std::deque<Row> rows_;
  std::unordered_map<std::string_view, const Row*> by_uid_;
};

struct ServiceRow {
  ServiceRow(std::string_view text, int32_t index)
      : uid(text),
        name(std::string(kNamePrefix) + std::to_string(kFirstNumber + index)),
        service{kFirstNumber + index, name.c_str(), uid.c_str(), kBaseService, 1, kStores, &service.number} {}
  ServiceRow(const ServiceRow&) = delete;
  ServiceRow& operator=(const ServiceRow&) = delete;

  const std::string uid;
  const std::string name;
  const SopObj service;
};
struct SyntaxRow {
  SyntaxRow(std::string_view text, int32_t index) : uid(text), code(kFirstAddedSyntax + index) {}

  const std::string uid;
  const VX_TRANSFER_SYNTAX code;
};

Table<ServiceRow> g_services;
Table<SyntaxRow> g_syntaxes;

const SopObj* service_of(const ServiceRow* row) {
  return row != nullptr ? &row->service : nullptr;
}
VX_TRANSFER_SYNTAX code_of(const SyntaxRow* row) {
  return row != nullptr ? row->code : 0;
}

}  // namespace

const SopObj* add_service(std::string_view uid) {
  return service_of(g_services.add(uid));
}
const SopObj* find_added_service(std::string_view name) {
  if (!name.starts_with(kNamePrefix)) return nullptr;
  const std::string digits(name.substr(kNamePrefix.size(), 10));
  const SopObj* service = find_added_service_by_number(std::atoi(digits.c_str()));
  return service != nullptr && name == service->name ? service : nullptr;
}
const SopObj* find_added_service_by_uid(std::string_view uid) {
  return service_of(g_services.find(uid));
}
const SopObj* find_added_service_by_number(int32_t number) {
  return service_of(g_services.at(int64_t{number} - kFirstNumber));
}

VX_TRANSFER_SYNTAX add_syntax(std::string_view uid) {
  return code_of(g_syntaxes.add(uid));
}
VX_TRANSFER_SYNTAX find_added_syntax(std::string_view uid) {
  return code_of(g_syntaxes.find(uid));
}
std::string_view added_syntax_uid(VX_TRANSFER_SYNTAX syntax) {
  const SyntaxRow* row = g_syntaxes.at(int64_t{syntax} - kFirstAddedSyntax);
  return row != nullptr ? std::string_view(row->uid) : std::string_view();
}
bool has_added_syntaxes() {
  return !g_syntaxes.empty();
}

void drop_added() {
  g_services.clear();
  g_syntaxes.clear();
}

}  // namespace vx
