#include "tools/RouterLog/Commands.h"

namespace routerlog {

std::string HelpText()
{
    return R"(RouterLog: reads the logs of the port router. Costs a running router nothing; only doctor --activate starts one.

Usage: RouterLog COMMAND ...

explain LOG... [--json FILE] [--html FILE]
    The situation at the end, then what happened, then figures of each port. LOG is a trace log, its .BAK, a
    skipped-packet log, or a folder with them; they are read in the order in which they were written.
      --json FILE         write the same for programs
      --html FILE         write it as one page with drawings, which needs nothing else

follow LOG [--every SECONDS] [--for SECONDS] [--stop-event NAME]
    The state of a running router, from the log that it is writing. LOG may be its folder. Ends on Ctrl+C, or:
      --every SECONDS     time between two views (1)
      --for SECONDS       end after this time
      --stop-event NAME   end when this named event is set

export LOG... -o FILE
    The log's packets as a capture for Wireshark (pcapng). morvane.lua, beside the documents, decodes it.

doctor [--activate] [--pipe NAME]...
    What is wrong with this PC, with a remedy each; one line when nothing is. Changes nothing.
      --activate          start the router, if it does not run, and call it, at most 20 seconds
      --pipe NAME         look whether another program has this port name; may be given several times
doctor --trace-on CLASSES, doctor --trace-off CLASSES
    Set what goes to the log from the router's next start on: raw, packets, pipe, usb, firmware, dispatch, general, or
    all, separated by commas. Needs the right to write the settings, which the installer gives to all users.

bundle FILE [LOG...] [--no-payload]
    Logs, settings, versions, doctor's result and explain's report in one ZIP file of at most 20 MB. Without LOG the
    registered router's logs.
      --no-payload        leave out what packets hold

--help, --version
    This text, or the version.

Exit codes:
   0  good
   1  failed for a reason that no other code says
   2  wrong command line
   3  a log can't be read
   4  a file or a setting can't be written
   5  doctor found a fault
)";
}

} // namespace routerlog
