#include "tests/support/InstrumentEnvironment.h"

namespace {

[[maybe_unused]] const testing::Environment* const environment =
    testing::AddGlobalTestEnvironment(new instrumentbus::InstrumentEnvironment);

} // namespace
