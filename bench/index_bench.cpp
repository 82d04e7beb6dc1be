// The index of an archive with very many instances.
// usage: bench_index FOLDER|postgresql://... [INSTANCES]
// Fills an empty index with made rows (200 instances a study, 4 series), and measures on it: a new start,
// queries, and objects that come. Times are medians in milliseconds.
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "base/args.h"
#include "base/session.h"
#include "base/tags.h"
#include "holdings/catalog.h"

namespace {

using namespace vexal;
using Clock = std::chrono::steady_clock;

constexpr int64_t kOfStudy = 200;
constexpr int64_t kOfSeries = 50;

double since(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

CatalogOptions options_of(const std::string& place) {
  CatalogOptions options;
  (Database::is_server(place) ? options.address : options.folder) = place;
  return options;
}

bool fill(const std::string& place, int64_t instances) {
  const std::string address = Database::is_server(place) ? place : place + "/index.sqlite";
  std::unique_ptr<Database> database;
  SqlOutcome outcome = Database::open(address, {}, database);
  const auto rows = [&](const std::string& table, int64_t count, const std::string& columns,
                        const std::string& values) {
    if (outcome.good())
      outcome = database->script("WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < " +
                                 std::to_string(count - 1) + ") INSERT INTO " + table + " (charset, odd, " +
                                 columns + ") SELECT '', 0, " + values + " FROM n");
  };
  // In SQLite, || binds closer than / and %.
  rows("study", instances / kOfStudy,
       "StudyInstanceUID, PatientID, PatientName, folded_name, StudyDate, AccessionNumber",
       "'1.2.826.0.1.3680043.2.1143.5.' || i, 'P' || (i / 2), 'Name' || ((i * 7919) % 10007) || '^First', "
       "'name' || ((i * 7919) % 10007) || '^first', CAST(20000000 + (i % 24) * 10000 + (i % 12 + 1) * 100 + "
       "i % 28 + 1 AS VARCHAR(8)), 'A' || i");
  const std::string first = "(SELECT min(id) FROM study)";
  rows("series", instances / kOfSeries, "study, SeriesInstanceUID, Modality",
       first + " + i / 4, '1.2.826.0.1.3680043.2.1143.6.' || i, CASE WHEN i % 3 = 0 THEN 'MR' ELSE 'CT' END");
  rows("instance", instances,
       "series, object_key, syntax, size, whole, modified, SOPClassUID, SOPInstanceUID",
       "(SELECT min(id) FROM series) + i / 50, '1.2.826.0.1.3680043.2.1143.5.' || (i / 200) || "
       "'/1.2.826.0.1.3680043.2.1143.6.' || (i / 50) || '/1.2.826.0.1.3680043.2.1143.7.' || i || '.dcm', 2, "
       "526000, 1, 0, '1.2.840.10008.5.1.4.1.1.2', '1.2.826.0.1.3680043.2.1143.7.' || i");
  if (outcome.good() && database->is_server()) outcome = database->script("ANALYZE");
  if (!outcome.good()) std::printf("%s\n", outcome.problem.c_str());
  return outcome.good();
}

void measure(Catalog& catalog, const char* title, Level level, CatalogKey (*key)(int64_t study),
             int64_t studies) {
  std::mt19937_64 random(1);
  std::vector<double> times;
  std::size_t answers = 0;
  for (int i = 0; i < 100; ++i) {
    const std::vector<CatalogKey> keys = {
        key(static_cast<int64_t>(random() % static_cast<uint64_t>(studies))),
        {0x00100010, VX_VR_PN, ""},
        {0x00080020, VX_VR_DA, ""},
        {tags::kModalitiesInStudy, VX_VR_CS, ""},
        {tags::kNumberOfStudyRelatedInstances, VX_VR_IS, ""}};
    const Clock::time_point start = Clock::now();
    const std::string error = catalog.find(level, keys, nullptr, [&](const auto&, const std::string&) {
      ++answers;
      return true;
    });
    times.push_back(since(start));
    if (!error.empty()) std::printf("%s\n", error.c_str());
  }
  std::sort(times.begin(), times.end());
  std::printf("%-32s %8.2f ms, 95 of 100 below %8.2f ms, %.2f answers each\n", title, times[50], times[94],
              static_cast<double>(answers) / 100);
}

// Objects of new studies, from several threads at once.
void enter(Catalog& catalog, int threads, int64_t first) {
  constexpr int kObjects = 2000;
  std::vector<std::jthread> running;
  const Clock::time_point start = Clock::now();
  for (int t = 0; t < threads; ++t) {
    running.emplace_back([&catalog, first, t] {
      for (int n = 0; n < kObjects; ++n) {
        const std::string uid =
            "1.3." + std::to_string(first) + "." + std::to_string(t) + "." + std::to_string(n);
        std::string set;
        const auto element = [&](uint32_t tag, const char* vr, std::string value) {
          if (value.size() % 2 != 0) value += vr[0] == 'U' ? '\0' : ' ';
          for (const uint32_t part : {tag >> 16, tag & 0xFFFF})
            set += {static_cast<char>(part), static_cast<char>(part >> 8)};
          set += vr;
          set += {static_cast<char>(value.size()), '\0'};
          set += value;
        };
        element(0x00080016, "UI", "1.2.840.10008.5.1.4.1.1.2");
        element(0x00080018, "UI", uid);
        element(0x00080060, "CS", "CT");
        element(0x00100010, "PN", "Doe^John");
        element(0x00100020, "LO", "ID" + std::to_string(t));
        element(0x0020000D, "UI",
                "1.3." + std::to_string(first) + "." + std::to_string(t) + "." + std::to_string(n / 200));
        element(0x0020000E, "UI", "1.3.1." + std::to_string(n / 50));
        HeadScan scan;
        scan.start(EXPLICIT_LITTLE_ENDIAN, catalog.wanted());
        scan.take(set.data(), set.size());
        scan.end();
        StoredObject stored;
        stored.sop_class = "1.2.840.10008.5.1.4.1.1.2";
        stored.instance = uid;
        stored.key = "new/" + uid + ".dcm";
        std::string error;
        if (catalog.enter(stored, scan, "", error) != ObjectIndex::Entered::Done)
          std::printf("%s: %s\n", uid.c_str(), error.c_str());
      }
    });
  }
  running.clear();
  std::printf("entered by %d threads              %8.0f a second\n", threads,
              1000.0 * kObjects * threads / since(start));
}

CatalogKey by_uid(int64_t n) {
  return {tags::kStudyInstanceUID, VX_VR_UI, "1.2.826.0.1.3680043.2.1143.5." + std::to_string(n)};
}
CatalogKey by_name(int64_t n) {
  return {0x00100010, VX_VR_PN, "name" + std::to_string(n % 10000) + "^*"};
}
CatalogKey by_short_name(int64_t n) {
  return {0x00100010, VX_VR_PN, "Name" + std::to_string(n % 90 + 10) + "*"};
}
CatalogKey by_patient(int64_t n) {
  return {0x00100020, VX_VR_LO, "P" + std::to_string(n / 2)};
}
CatalogKey by_day(int64_t n) {
  const std::string day = std::to_string(20000000 + n % 24 * 10000 + (n % 12 + 1) * 100 + n % 28 + 1);
  return {0x00080020, VX_VR_DA, day + "-" + day};
}

constexpr struct {
  const char* title;
  Level level;
  CatalogKey (*key)(int64_t study);
} kQueries[] = {{"study by UID", Level::Study, by_uid},
                {"study by the start of a name", Level::Study, by_name},
                {"study by a shorter start", Level::Study, by_short_name},
                {"study by Patient ID", Level::Study, by_patient},
                {"study by a day", Level::Study, by_day},
                {"patient by ID", Level::Patient, by_patient},
                {"series of a study", Level::Series, by_uid},
                {"instances of a study", Level::Image, by_uid}};

int run(const std::string& place, int64_t instances) {
  {
    Catalog empty;
    if (const std::string error = empty.open(options_of(place)); !error.empty()) {
      std::printf("%s\n", error.c_str());
      return 1;
    }
    std::string key;
    empty.key_of("1.2.826.0.1.3680043.2.1143.7.0", key);
    if (key.empty() && !fill(place, instances)) return 1;
  }
  Catalog catalog;
  const Clock::time_point start = Clock::now();
  catalog.open(options_of(place));
  std::printf("start                            %8.2f ms\n", since(start));
  for (const auto& query : kQueries)
    measure(catalog, query.title, query.level, query.key, instances / kOfStudy);
  const int64_t number = Clock::now().time_since_epoch().count();
  enter(catalog, 1, number);
  enter(catalog, 4, number + 1);
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  std::printf("memory at most                   %8.1f MiB\n", static_cast<double>(usage.ru_maxrss) / 1024);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  vexal::Session session;
  const vexal::Args args;
  if (!session.start(args)) return 2;
  return run(argv[1], argc > 2 ? std::atoll(argv[2]) : 1000000);
}
