// For tests of what lies beside the program: a folder that is this test's alone.
#pragma once

namespace support {

/// Runs the test that calls it once more, in a copy of the test program in an empty folder of its own, and fails
/// it when the copy fails. True in the original, which is through with the test then; false in the copy, where the
/// test goes on:
///
///     if (support::DoneInOwnFolder()) {
///         return;
///     }
bool DoneInOwnFolder();

} // namespace support
