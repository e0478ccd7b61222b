// Which Windows a test runs on.
#pragma once

namespace support {

/// Whether this Windows is Wine. For a test of what Wine is known to answer in another way.
bool IsUnderWine();

} // namespace support
