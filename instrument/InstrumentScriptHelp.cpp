#include "instrument/InstrumentScript.h"

namespace instrument {

std::string_view ScriptHelp() noexcept
{
    return R"(Script lines (a "#" begins a comment; times are milliseconds, decimals allowed):

  [WHEN:] ACTION[; ACTION]...        all rules that match a request apply, from the first line to the last

WHEN, for requests (packets of type 1 to any port but 0,0; counted from 1 over all ports):
  always                  the default
  request N               the N-th
  requests N to M         from the N-th to the M-th; "requests N on": from the N-th on
  every N                 each N-th
  chance P                P percent of them, drawn by "seed"
  from TYPE,PORT          only of that port; also behind any of the above
WHEN, without a request (nothing is answered; "send", "broadcast", "raw", "garbage", "vanish" and what
is done to them make sense here):
  connected               as soon as the router is connected
  after MS                once, so long after the connection
  each MS                 again and again, so long after the connection and after each other

ACTION:
  echo                    answer with the request's payload, to its sender (the default)
  silence                 don't answer
  reply PAYLOAD           answer with this
  send TYPE,PORT [PAYLOAD]   one more packet, behind the answer; without a payload the request's
  broadcast [PAYLOAD]     the same to 255,2, which the router hands to every port numbered 2
  delay MS                answer so long after the request
  duplicate [N]           send the answer N times in all (2)
  corrupt                 first byte of the payload wrong, checksum fitting it
  checksum                wrong checksum
  number N                packet number of the answer; the following ones count on from it
  gap [N]                 leave out N packet numbers (1) before the answer
  garbage N               N random bytes in front of the answer
  raw PAYLOAD             these bytes, unframed, in front of the answer
  split N [MS]            the answer in writes of N bytes, so long apart (0)
  merge N [MS]            hold the answer until N packets are together (at most 100 ms), one write for all
  vanish [after N] [back MS]   after N bytes of the answer (half of it) go away as if unplugged; be there again
                          after MS, else never
What is done to packets (delay, numbers, checksum, ...) is done to the answer, or without an answer to the first
of the other packets.

PAYLOAD: hex digits and texts in double quotes in any order: 02 "abc\r\n" 0003. In a text: \r \n \t \0 \\ \" \xHH.

Other lines:
  flood TYPE,PORT SIZE [RATE [COUNT]]   packets nobody asked for, RATE a second (0, the default: as fast as
                          they are taken), COUNT in all (0, the default: without end); numbered payloads
  numbers from N          the first packet number of a connection (1); after 255 comes 0, which the router
                          always reports as a gap
  numbers zero            every packet numbered 0, with which the router never finds fault
  seed N                  of "chance" and "garbage" (1)
  write N                 at most N bytes in one write (65535)
  firmware accept [SIZE]  answer PREPARE_DOWNLOAD with the announced size and this chunk size (4000)
  firmware deny           answer it with DENY
  firmware wrong-echo     answer it with a size that is 1 too large
  firmware answer PAYLOAD answer it with this
  firmware unanswered N   don't answer the first N of them
  firmware delay MS       before each answer of the bootloader
  firmware quiet          don't answer chunks, only the closing message
  firmware at WHERE WHAT  WHERE: the number of a chunk, counted from 1, or "done", the closing message. Once:
      fail                DOWNLOAD_FAIL
      ready               FIRMWARE_READY
      rebooting [back MS] REBOOTING; with "back", vanish and be there again after MS
      silence             no answer
      vanish [back MS]    no answer, and gone
      answer PAYLOAD      this
)";
}

} // namespace instrument
