// What most test files need; the recording trace sink is a library of its own (RecordingTrace.h).
#pragma once

#include "tests/support/RegistryRoot.h"
#include "tests/support/TempFolder.h"
#include "tests/support/UniqueName.h"
#include "tests/support/WaitUntil.h"
