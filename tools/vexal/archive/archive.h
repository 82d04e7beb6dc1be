// The services of an archive over DIMSE: what each request on an association becomes.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "base/args.h"
#include "holdings/holdings.h"
#include "nodes.h"
#include "outbox.h"
#include "patience.h"
#include "server/acceptor.h"
#include "server/request.h"
#include "server/storage.h"
#include "steps.h"
#include "worklist.h"

namespace vexal {

inline constexpr char kWorklistFind[] = "1.2.840.10008.5.1.4.31";
inline constexpr char kCommitment[] = "1.2.840.10008.1.20.1";
inline constexpr char kProcedureStep[] = "1.2.840.10008.3.1.2.3.3";

// What a query service works on (PS3.4 section C.6).
struct QueryService {
  const char* sop_class;
  bool patient_root;
};
inline constexpr QueryService kQueryServices[] = {
    {"1.2.840.10008.5.1.4.1.2.1.1", true},  {"1.2.840.10008.5.1.4.1.2.1.2", true},
    {"1.2.840.10008.5.1.4.1.2.1.3", true},  {"1.2.840.10008.5.1.4.1.2.2.1", false},
    {"1.2.840.10008.5.1.4.1.2.2.2", false}, {"1.2.840.10008.5.1.4.1.2.2.3", false},
};

// How far the sub-operations of a retrieval are.
struct Counts {
  std::size_t remaining = 0;
  std::size_t completed = 0;
  std::size_t failed = 0;
  std::size_t warning = 0;
};

struct Retrieval {
  std::vector<ObjectFile> files;
  // Studies and patients of the objects, where that is told of to an audit repository.
  std::map<std::string, std::pair<std::string, std::string>> owners;
};

class Archive {
 public:
  Archive(const Args& args, const Acceptor& acceptor, const Nodes& nodes, StorageOptions& storage)
      : acceptor_(acceptor),
        nodes_(nodes),
        storage_(storage),
        worklist_(args.get("--worklist")),
        steps_(args.get("--steps")),
        told_of_steps_(args.all("--mpps-to")) {
    storage_.tree = true;
  }

  // Outside of what serve() does, nothing is sent but what waits in the outbox. An error text, empty on
  // success.
  std::string open(const Args& args);
  Holdings& holdings() { return holdings_; }
  // From the first message of an association to its end; on many threads at once.
  void serve(int32_t association, const Caller& caller);

 private:
  struct Service {
    uint16_t command;
    unsigned right;
    bool (Archive::*answer)(const Request& request, int32_t message, const Caller& caller);
  };
  static const Service kServices[];

  static bool store(const Request& request, int32_t message, ObjectWriter& writer);
  // Everything but objects: the data set is read first.
  bool other(const Request& request, int32_t message, uint16_t command, const Caller& caller);

  // Queries.
  bool find(const Request& request, int32_t identifier, const Caller& caller);
  void audit_query(int32_t identifier, const std::string& sop_class, const Caller& caller) const;
  bool find_worklist(const Request& request, int32_t identifier);

  // Retrievals.
  // The files that a retrieval names. `answered`: the peer has been told why there are none, or has gone.
  bool files_of(const Request& request, int32_t identifier, Retrieval& wanted, bool& answered);
  void find_owners(std::vector<CatalogKey> keys, Retrieval& wanted);
  bool tell(const Request& request, const Counts& counts, uint16_t status,
            const std::vector<std::string>& failed);
  // Sub-operations one by one: `send_one` gives the DIMSE status of one, or -1 when the way to the
  // destination is lost.
  bool run_operations(const Request& request, const Retrieval& wanted, const AuditParty& to,
                      const std::function<int32_t(const ObjectFile&)>& send_one, Patience& patience);
  ObjectSender::Result send_object(ObjectSender& sender, int32_t association,
                                   const std::vector<AcceptedContext>& accepted, const ObjectFile& object,
                                   std::string& problem);
  bool move(const Request& request, int32_t identifier, const Caller& caller);
  bool get(const Request& request, int32_t identifier, const Caller& caller);
  void fill_peer(Peer& peer, const std::string& title, const Node& node) const;
  // The status in the answer to the C-STORE of a file, read as its command alone; -1 where something else
  // comes. `cancel`: the peer took its own request back meanwhile.
  int32_t read_store_answer(int32_t association, const SentRequest& request, bool& cancel) const;

  // N-ACTION of storage commitment: what is here is vouched for, in a report on the same association, or
  // where that is gone, on one to the node of that title, now or once it is there again.
  bool commit(const Request& request, int32_t message, const Caller& caller);
  bool fill_report(Message& out, int32_t request, const std::string& transaction);
  // 0 if the object is here, as it was stored; otherwise a failure reason (PS3.3 section C.14.1.1).
  uint16_t vouch(const std::string& sop_class, const std::string& instance);
  // False if the association did not take it.
  bool send_report(int32_t association, const Message& message) const;
  // A request that waited in the outbox.
  Delivery deliver(const Parcel& parcel) const;

  // Performed procedure steps.
  bool make_step(const Request& request, int32_t message, const Caller&);
  bool change_step(const Request& request, int32_t message, const Caller&);
  bool answer_step(const Request& request, int32_t message,
                   uint16_t (ProcedureSteps::*work)(int32_t, std::string&));
  uint16_t pass_on_step(const Request& request, int32_t message, const std::string& instance);

  const Acceptor& acceptor_;
  const Nodes& nodes_;
  StorageOptions& storage_;
  Holdings holdings_;
  Worklist worklist_;
  ProcedureSteps steps_;
  std::vector<std::string> told_of_steps_;  // titles of nodes
  Outbox outbox_;                           // its threads go first
  static constexpr std::size_t kServiceCount = 7;
};

// Pieces that queries and retrievals share.
bool is_patient_root(const std::string& sop_class);
// The last answer of a query, by what the peer said meanwhile.
bool end_query(const Request& request, const Patience& patience);

}  // namespace vexal
