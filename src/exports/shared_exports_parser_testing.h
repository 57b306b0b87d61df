// For tests alone.
#pragma once

namespace paddock {

// Forgets the shared exports parser: the next use makes a new one, on the services of that time.
void resetSharedExportsParserForTesting();

}  // namespace paddock
