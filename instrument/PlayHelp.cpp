#include "instrument/PlayOptions.h"

std::string PlayRunHelp()
{
    return R"(Running:
  --for SECONDS           end after this time
  --requests N            end after N requests, once all answers that are due are written
  --quiet                 no lines, only the summary
  --ready-event NAME      set this named event as soon as the router can find the instrument
  --stop-event NAME       end when this named event is set, as on Ctrl+C and Ctrl+Break
  --help                  this text
)";
}

std::string PlayScriptHelp(const std::string& exitCodes)
{
    return R"(
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
)" + exitCodes +
           R"(  5  the file of --firmware-expect can't be read
  6  with --firmware-expect: no image came whole, or the last one is not that file

)" + std::string(instrument::ScriptHelp());
}
