#pragma once
// The schema, as numbered steps that both databases share. Each step runs once, in a
// transaction of its own, with other processes kept out while it runs.
#include "store/db.h"

namespace hintwick {

// The version a fully migrated database is at.
std::int64_t LatestSchemaVersion();
std::int64_t SchemaVersion(Db& db);
// Applies the steps the database lacks; gives how many it applied.
int Migrate(Db& db);

}  // namespace hintwick
