// The two engines, for Database::open.
#pragma once

#include "database.h"

namespace vexal {

SqlOutcome open_sqlite(const std::string& path, const DatabaseOptions& options,
                       std::unique_ptr<Database>& database);
SqlOutcome open_postgres(const std::string& address, std::unique_ptr<Database>& database);

// Prepared statements of one connection that are kept; longer ones are not.
inline constexpr std::size_t kMostPrepared = 40;
inline constexpr std::size_t kLongestPrepared = 3000;

}  // namespace vexal
