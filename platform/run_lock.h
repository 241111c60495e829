// The result directory of a run belongs to one process at a time. The lock is an advisory lock
// of the kernel on the directory itself: it ends with the process however that ends (kill -9
// too), so no stale file can block the next run.
#pragma once
#include <string>

namespace runLock {

// Locks directory for the rest of the process. true when this process holds it now (or held it
// already); false when another process holds it: holder then names that process ("4711 (orvane
// orvane -d demo/ -v demo)", or "unknown" when the system does not tell) and errorText is empty.
// false with errorText set when the directory cannot be opened or locked at all.
bool acquire(const std::string& directory, std::string& holder, std::string& errorText);

} // namespace runLock
