// What the simulated instrument's driver and its remote control say to each other. Shared by kernel and user mode,
// so it knows neither's headers. All requests are buffered; all numbers are little-endian.
#pragma once

#include <cstdint>

namespace instrumentbus {

inline constexpr std::uint32_t ProtocolVersion = 3;
inline constexpr std::uint32_t SlotCount = 8;
inline constexpr std::uint32_t EndpointCount = 32; // 16 addresses in two directions
inline constexpr std::uint32_t MaximumPlugBytes = 4u << 20;

constexpr std::uint32_t RemoteCode(std::uint32_t function)
{
    return 0x22u << 16 | 3u << 14 | (0x900u + function) << 2;
}

inline constexpr std::uint32_t RemoteHello = RemoteCode(0);    // out: Hello
inline constexpr std::uint32_t RemoteClear = RemoteCode(1);    // unplugs all, forgets rules, data and counters
inline constexpr std::uint32_t RemotePlug = RemoteCode(2);     // in: Plug, descriptors
inline constexpr std::uint32_t RemoteUnplug = RemoteCode(3);   // in: Target
inline constexpr std::uint32_t RemoteTake = RemoteCode(4);     // in: Target; out: Taken, bytes. Waits for a write
inline constexpr std::uint32_t RemoteFeed = RemoteCode(5);     // in: Target, bytes
inline constexpr std::uint32_t RemoteRule = RemoteCode(6);     // in: Rule
inline constexpr std::uint32_t RemoteRelease = RemoteCode(7);  // in: Target. Drops rules, releases what they hold
inline constexpr std::uint32_t RemoteCounters = RemoteCode(8); // in: Target; out: Counters
inline constexpr std::uint32_t RemoteWatch = RemoteCode(9);    // in: Watch; out: Connection. Waits for another one
inline constexpr std::uint32_t RemoteSupply = RemoteCode(10);  // in: Supply, bytes. Waits for room

struct Hello
{
    std::uint32_t version;
    std::uint32_t startedSlots; // SlotCount once the driver is ready
};

/// As an endpoint: all of them and the I/O controls too.
inline constexpr std::uint32_t AllEndpoints = 0x100;

/// `endpoint` is an address; unused by requests about the whole device.
struct Target
{
    std::uint32_t slot;
    std::uint32_t endpoint;
};

/// Followed by descriptors: each a DescriptorHead and its bytes.
struct Plug
{
    std::uint32_t slot;
    std::uint32_t keepWritten; // 0: what is written is only counted
    std::uint32_t driverVersion;
    std::uint32_t stackVersion;
    std::uint32_t speed;
    std::uint8_t deviceAddress;
    std::uint8_t alternateSetting;
    std::uint8_t friendlyName[256];
    std::uint8_t leavesWithHandle; // 1: unplugged when the handle that plugged it is closed
    std::uint8_t reserved;
};

struct DescriptorHead
{
    std::uint8_t type;
    std::uint8_t index;
    std::uint16_t language; // as asked for in wIndex; counts for strings but the first
    std::uint32_t length;
};

struct Taken
{
    std::uint32_t connection; // of the handle that wrote
    std::uint32_t length;     // of the bytes that follow
};

/// A connection begins with the first transfer of a handle, is numbered by the count of opens at that handle's
/// opening, and ends when the handle is closed or the device unplugged.
struct Watch
{
    std::uint32_t slot;
    std::uint32_t known; // answered as soon as the connection is not this one; 0: none
};

struct Connection
{
    std::uint32_t number; // 0: none
};

/// Followed by bytes for the reads of that connection. They are kept as long as it lasts; without it, and when it
/// ends before there was space, the answer is STATUS_DEVICE_NOT_CONNECTED.
struct Supply
{
    std::uint32_t slot;
    std::uint32_t endpoint;
    std::uint32_t connection;
};

/// What a rule does, joined by "or". Without any, transfers complete as soon as they can.
enum Action : std::uint32_t {
    Refuse = 1,    // answered with `status` at once, not as a pending request
    Fail = 2,      // completed with `status`
    Shorten = 4,   // at most `length` bytes
    Delay = 8,     // `milliseconds` later
    Hold = 16,     // not before it is released
    Stubborn = 32, // with Hold or Delay: neither cancelled nor aborted nor unplugged meanwhile
    Statuses = 64, // `ntStatus` and `usbdStatus` in the block of buffered requests, whatever else happens
};

/// Opening the device, as a rule's code.
inline constexpr std::uint32_t OpenCode = 1;

/// Applies to `count` requests (0: to all) after the first `skip`. Of several rules the first that applies is
/// taken.
struct Rule
{
    std::uint32_t slot;
    std::uint32_t code;     // an I/O control or OpenCode; 0: transfers of `endpoint`
    std::uint32_t endpoint; // when `code` is 0
    std::uint32_t skip;
    std::uint32_t count;
    std::uint32_t actions;
    std::uint32_t status; // NT status
    std::uint32_t ntStatus;
    std::uint32_t usbdStatus;
    std::uint32_t length;
    std::uint32_t milliseconds;
};

struct Counters
{
    // of the device, since the last RemoteClear
    std::uint32_t opens;
    std::uint32_t closes;
    std::uint32_t resets;
    std::uint32_t aborts;       // of all endpoints
    std::uint32_t controls;     // all other I/O controls
    std::uint32_t setupTimeout; // seconds, of the last endpoint-0 request
    std::uint8_t lastSetup[8];  // of the last endpoint-0 request
    // of the endpoint asked for, since the device was plugged
    std::uint32_t endpointAborts;
    std::uint32_t begun;        // transfers
    std::uint32_t completed;    // with success
    std::uint32_t failed;       // with anything else
    std::uint32_t pending;      // not completed yet, held ones too
    std::uint32_t held;         // of them
    std::uint32_t chunks;       // written and not taken, or fed and not read
    std::uint32_t controlsHeld; // of the device: I/O controls that are held
    std::uint32_t mostPending;  // of the endpoint: the most transfers at a time
    std::uint32_t reserved;
    std::uint64_t bytes; // of completed transfers
};

static_assert(sizeof(Plug) == 280);
static_assert(sizeof(DescriptorHead) == 8);
static_assert(sizeof(Rule) == 44);
static_assert(sizeof(Counters) == 80);

} // namespace instrumentbus
