/* Asks the instrument once a second and prints the replies, also after it was unplugged. Enter ends it.
   x86_64-w64-mingw32-gcc ask.c -I../include -L../x64 -lMorvaneClient -o ask.exe */
#include "morvane_client.h"

#include <windows.h>
#include <stdio.h>
#include <string.h>

static DWORD WINAPI wait_for_enter(void *port)
{
    getchar();
    morvane_close(*(morvane_port *)port); /* ends the call below with MORVANE_E_CLOSED */
    return 0;
}

static void say(const char *what, int error)
{
    printf("%s: %s (%s, Windows error 0x%lX)\n", what, morvane_error_text(error), morvane_error_name(error),
           GetLastError());
    fflush(stdout);
}

int main(int count, char **arguments)
{
    const char *text = count > 1 ? arguments[1] : "hello";
    morvane_port port;
    int error = morvane_open(3, 1, NULL, 10000, &port);
    if (error != MORVANE_OK) {
        say("open", error);
        return 1;
    }
    HANDLE thread = CreateThread(NULL, 0, wait_for_enter, &port, 0, NULL);
    while (error != MORVANE_E_CLOSED && error != MORVANE_E_HANDLE) {
        char reply[4096];
        uint32_t length = 0;
        error = morvane_request(port, text, (uint32_t)strlen(text), reply, sizeof reply, &length, 2000);
        switch (error) {
        case MORVANE_OK:
            printf("%.*s\n", (int)length, reply);
            fflush(stdout);
            Sleep(1000);
            break;
        case MORVANE_E_CLOSED:
        case MORVANE_E_HANDLE: break;
        default: /* the library waits for instrument and router; a late reply must not be taken for the next one */
            say("request", error);
            error = morvane_wait_ready(port, 60000);
            if (error == MORVANE_OK)
                error = morvane_resync(port, 500, 10000);
            break;
        }
    }
    WaitForSingleObject(thread, INFINITE); /* the router is released when the close has returned */
    CloseHandle(thread);
    return 0;
}
