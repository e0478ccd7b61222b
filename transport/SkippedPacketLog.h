// The log of gaps in the instrument's packet numbering.
#pragma once

/// Adds a line with the local time and both numbers to "Log\USBPortRouterSkippedPacket.log" beside the program.
/// The file is opened and closed for every line; without a Log folder nothing is written. Reply thread.
void SkippedPacketLog(int previous, int current);
