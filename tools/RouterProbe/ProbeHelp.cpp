#include "ProbeOptions.h"

std::string ProbeHelp()
{
    return R"(RouterProbe: talks to the instrument through the port router, as any client does.

Usage: RouterProbe COMMAND --port TYPE,PORT [switches]

Starts the router, if it does not run, registers the ports, opens their pipes and releases the router at its end, also
on Ctrl+C; its own ports go with the release. A port that another client registered first stays that client's. All
ports are served at once, each by a thread.

Commands:
  send                    send requests, one after the other, and print the reply to each with the time it took
  listen                  print what the instrument sends
  ping                    4 numbered requests a second apart, a line for each echo
  measure                 1000 numbered requests as fast as their echoes come; a line a second, a summary at the end

Ports:
  --port TYPE,PORT        device type and port number, each from 0 to 254; may be given several times
  --pipe-name NAME        name of the port's pipe, once for each port (RouterProbe-TYPE-PORT.PROCESS)
  --read-size N           read buffer size registered with the router (65535); a request longer than this reaches
                          the instrument as several
  --write-size N          write buffer size registered with the router (65535)
  --late-bound            call the router through IDispatch, as script hosts do
  --attach                don't start the router and register nothing: open pipes that others have registered
                          (--pipe-name needed)

What is sent:
  --text TEXT             a request; \r \n \t \0 \\ \" \xHH stand for bytes. May be given several times
  --hex DIGITS            a request in hex digits, blanks allowed. May be given several times
  --file FILE             the file as requests of --size bytes (4096). May be given several times
  --size N                payload length of ping and measure (64); from 8 bytes on, requests carry their number
  --count N               send: send it all so often (1); listen: end after N messages (0: never);
                          ping and measure: requests on each port (0: without end; with measure --for the default)
  --interval SECONDS      pause between requests (0; ping: 1)
  --no-wait               send: don't wait for replies. The router takes what it finds in the pipe as one request:
                          requests written faster than it reads reach the instrument merged
  --check                 send: the reply must be the request; listen: check the numbers of a simulated instrument's
                          flood

How long:
  --for SECONDS           end after this time
  --linger SECONDS        when all is sent, print for so long what still comes
  --open-timeout SECONDS  for a pipe to be served (10)
  --reply-timeout SECONDS for a reply (5)
  --keep-going            when a reply is late, go on; when the router or the instrument is gone, say so and wait until
                          it is back, starting the router again if need be. A request whose pipe broke is not repeated
  --wait-exit SECONDS     at the end wait so long for the router's process to end and print its exit code

Others:
  --quiet                 print no messages
  --ready-event NAME      set this named event when all pipes are open
  --stop-event NAME       end when this named event is set, as on Ctrl+C and Ctrl+Break
  --help                  this text
  --version               the version

A summary counts requests answered, lost (no reply in time) and interrupted (the pipe broke first), and messages that
came twice, were wrong (of the right length but not the echo), out of order (after their request was given up) or
unsolicited (of another length).

Exit codes:
   0  all good, also when stopped from outside before its time
   1  failed for a reason that no other code says
   2  wrong command line
   3  the router is not registered
   4  the router does not start or does not answer a call
   5  a port's pipe does not appear: no instrument, or the port is registered under another pipe name
   6  a port's pipe is busy for a second: another client holds the port
   7  a reply is late, or a request can't be written because the router does not read
   8  a reply is wrong or comes twice, or listen --check found a fault
   9  a pipe broke: the router or the instrument went away
  10  a file can't be read
  11  with --wait-exit: the router still runs, or its process was not found
  12  with --wait-exit: the router ended with a code other than 0
)";
}
