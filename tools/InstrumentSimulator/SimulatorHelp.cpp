#include "SimulatorOptions.h"

std::string SimulatorHelp()
{
    return std::string(R"(InstrumentSimulator: plays the instrument behind the router's simulator pipe.

Usage: InstrumentSimulator [switches]

Serves \\.\pipe\UsbPipeSimulator, answers the router's packets and prints a line for each packet it gets:
seconds since the start, packet number, packet type, [device type,port], payload length, first bytes.
The router comes to the pipe when "SimulateUSB" is 1 below
HKEY_LOCAL_MACHINE\Software\Morvane Biosystems\Devices\MorvanePortRouter. It may come and go; each time numbering
starts afresh. Without any rule every request is echoed to its sender.

Running:
  --for SECONDS           end after this time
  --requests N            end after N requests, once all answers that are due are written
  --quiet                 no lines, only the summary
  --pipe NAME             serve \\.\pipe\NAME instead (for tests; the router knows only the one above)
  --ready-event NAME      set this named event as soon as the pipe can be opened
  --stop-event NAME       end when this named event is set, as on Ctrl+C and Ctrl+Break
  --help                  this text

What the instrument does (switches and scripts apply in the order given; the language is below):
  --script FILE           lines of the script language
  --do LINE               one line of it
  --echo                  echo
  --silent, --sink        silence
  --reply PAYLOAD         reply PAYLOAD
  --delay MS              delay MS
  --broadcast N           every N: broadcast
  --gap N                 every N: gap
  --checksum N            every N: checksum
  --corrupt N             every N: corrupt
  --duplicate N           every N: duplicate
  --garbage N[,BYTES]     every N: garbage BYTES (20)
  --split BYTES[,MS]      split BYTES MS
  --merge N[,MS]          merge N MS
  --vanish N[,MS]         request N: vanish back MS (1000)
  --numbers-zero          numbers zero
  --flood TYPE,PORT,SIZE[,RATE[,COUNT]]
  --firmware "WORDS"      firmware WORDS; may be given several times
  --firmware-expect FILE  compare a downloaded image with this file

Exit codes:
  0  ended as asked
  1  failed for a reason that no other code says
  2  wrong command line or script
  3  somebody else serves the pipe already
  4  the pipe can't be served
  5  the file of --firmware-expect can't be read
  6  with --firmware-expect: no image came whole, or the last one is not that file

)") + std::string(instrument::ScriptHelp());
}
