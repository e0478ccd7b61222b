/*
 * MorvaneClient.dll: a client of the port router in ten lines. docs/clients.md explains how to use it.
 *
 * Every function may be called from any thread, for several ports at once. Functions return MORVANE_OK or a
 * negative MORVANE_E_... code; morvane_error_text says what to do about it. After an error GetLastError() holds
 * the Windows error or HRESULT, 0 when there is none. Timeouts are in milliseconds. Texts have a terminating zero;
 * the library's are ASCII, names are UTF-8.
 */
#ifndef MORVANE_CLIENT_H
#define MORVANE_CLIENT_H

#include <stdint.h>

/* Also on x86: every compiler gives a __cdecl function the same undecorated name, so one .def file and one set of
   names serve both architectures and all linkers. */
#define MORVANE_CALL __cdecl
#ifdef MORVANE_CLIENT_STATIC
#define MORVANE_API
#else
#define MORVANE_API __declspec(dllimport)
#endif

#ifdef __cplusplus
extern "C" {
#endif

#define MORVANE_LONGEST_MESSAGE 65535u
#define MORVANE_FOREVER         0xFFFFFFFFu

enum {
    MORVANE_OK = 0,
    MORVANE_E_ARGUMENT = -1,
    MORVANE_E_HANDLE = -2,
    MORVANE_E_CLOSED = -3,
    MORVANE_E_CALLBACK = -4,
    MORVANE_E_MEMORY = -5,
    MORVANE_E_INTERNAL = -6,
    MORVANE_E_TOO_LONG = -7,
    MORVANE_E_BUFFER = -8,
    MORVANE_E_TIMEOUT = -9,
    MORVANE_E_CANCELLED = -10,
    MORVANE_E_OUT_OF_STEP = -11,
    MORVANE_E_LOST = -12,
    MORVANE_E_QUEUE_FULL = -13,
    MORVANE_E_NO_PIPE = -14,
    MORVANE_E_HELD = -15,
    MORVANE_E_ACCESS = -16,
    MORVANE_E_ROUTER_GONE = -17,
    MORVANE_E_NOT_REGISTERED = -18,
    MORVANE_E_ELEVATION = -19,
    MORVANE_E_NO_START = -20
};

/* A checked number, not a pointer; 0 is never a port. A number is not used again for a later port. */
typedef uint32_t morvane_port;

/* Nonzero accepts the message. Called on the thread that is inside a call to the library, never on another one. It
   must return without throwing and must not call the library for the same port (MORVANE_E_CALLBACK). */
typedef int(MORVANE_CALL* morvane_match)(void* context, const void* message, uint32_t length);

/* morvane_send returns when the message is queued. The library writes the messages in order, each after the router
   has read the one before. Without this flag morvane_send writes itself and first waits for that. */
#define MORVANE_QUEUE 1u
/* morvane_open_ex returns at once and connects in the background; events report how it goes. */
#define MORVANE_BACKGROUND 2u
/* Another program has registered the port under `name`. The library opens the pipe only and starts no router. */
#define MORVANE_ATTACH 4u
/* Your messages carry lengths and numbers of their own: they may reach the instrument merged or in pieces, and you
   tell a late reply from the right one (morvane_request_match). Sending does not wait until the router has read
   the message before, `read_size` does not limit a message, both sizes may be up to 0x7FFFFFFF, and a reply that
   is late does not put the port out of step. */
#define MORVANE_RAW 8u
/* Calls the router by name, through IDispatch, as script hosts do: works also where its type library cannot be
 * used. */
#define MORVANE_LATE_BOUND 16u
/* A router that ends after the port was registered is not started again: calls give MORVANE_E_ROUTER_GONE. */
#define MORVANE_NO_RESTART 32u

/* Fields may be added at the end. Set `size` to sizeof(morvane_options) and what you don't use to 0. */
typedef struct morvane_options
{
    uint32_t size;
    int32_t device_type;       /* 0 to 254 */
    uint32_t port;             /* 0 to 254; 0, 0 is the firmware downloader's */
    uint32_t flags;            /* MORVANE_QUEUE, ... */
    uint32_t read_size;        /* longest message to send; 0 is 65,535 */
    uint32_t write_size;       /* what the pipe holds of messages to send; 0 is 65,535 */
    uint32_t open_timeout;     /* 0 is 10,000; see morvane_open */
    uint32_t queue_limit;      /* messages that may wait in each queue; 0 is 1,000 */
    const char* name;          /* of the pipe, without "\\.\pipe\"; null: a name that no other program uses */
    morvane_match unsolicited; /* accepts what belongs to morvane_receive_unsolicited; may be null */
    void* unsolicited_context;
} morvane_options;

enum {
    MORVANE_EVENT_CONNECTED = 1,       /* the port can be used for the first time */
    MORVANE_EVENT_INSTRUMENT_GONE = 2, /* with MORVANE_ATTACH: the instrument or the router */
    MORVANE_EVENT_INSTRUMENT_BACK = 3,
    MORVANE_EVENT_ROUTER_GONE = 4,
    MORVANE_EVENT_ROUTER_BACK = 5,
    MORVANE_EVENT_ROUTER_ENDING = 6, /* the router was ending when it was to be started; the library tries again */
    MORVANE_EVENT_NOT_YET = 7,       /* cannot connect at present: `error` says why; once for each reason */
    MORVANE_EVENT_DROPPED = 8,       /* `count` unsolicited messages, the oldest, that were not received */
    MORVANE_EVENT_REOPENED = 9       /* by morvane_reopen, or after a message was cut off: see morvane_send */
};

typedef struct morvane_event
{
    uint32_t size; /* sizeof(morvane_event), set by the caller */
    int32_t kind;  /* MORVANE_EVENT_... */
    int32_t error;
    uint32_t windows_error;
    uint32_t unanswered; /* with ..._GONE: messages written since the last one that was received */
    uint32_t unsent;     /* with ..._GONE: queued messages that were dropped */
    uint32_t count;
} morvane_event;

/* 0x00MMmmpp: 1.2.3 is 0x00010203. */
MORVANE_API uint32_t MORVANE_CALL morvane_version(void);
/* "MORVANE_E_HELD", and one sentence. Never null; they live as long as the library is loaded. */
MORVANE_API const char* MORVANE_CALL morvane_error_name(int error);
MORVANE_API const char* MORVANE_CALL morvane_error_text(int error);

/* Starts the router if necessary, registers the port and opens its pipe. The first form is for languages without
   structures. `name` may be null, `timeout` 0 is 10,000. On failure *port is 0. With a short timeout the call
   lasts up to a second longer, until it is certain that no other client holds the port. */
MORVANE_API int MORVANE_CALL morvane_open(int32_t device_type, uint32_t port_number, const char* name,
                                          uint32_t timeout, morvane_port* port);
MORVANE_API int MORVANE_CALL morvane_open_ex(const morvane_options* options, morvane_port* port);
/* Ends calls of other threads on the port with MORVANE_E_CLOSED, closes the pipe and then releases the router.
   Drops what is queued; see morvane_flush. */
MORVANE_API int MORVANE_CALL morvane_close(morvane_port port);

/* 1 to 65,535 bytes, at most `read_size`. MORVANE_E_TIMEOUT with the Windows error 121 (ERROR_SEM_TIMEOUT): the
   message was not written, because the router did not read; also from morvane_request. When a timeout or a cancel
   cuts a message off that is being written, the library reopens the pipe as morvane_reopen does. */
MORVANE_API int MORVANE_CALL morvane_send(morvane_port port, const void* message, uint32_t length,
                                          uint32_t timeout);
/* Waits until the router has read everything that was sent. */
MORVANE_API int MORVANE_CALL morvane_flush(morvane_port port, uint32_t timeout);
/* The next message. With MORVANE_E_BUFFER *length is its length, and the message stays for the next call. While a
   request of another thread waits for its reply this waits for the request's end. */
MORVANE_API int MORVANE_CALL morvane_receive(morvane_port port, void* buffer, uint32_t capacity, uint32_t* length,
                                             uint32_t timeout);
/* The next message that `unsolicited` accepted, or that came without being the reply to a request: before the
   request was sent, or refused by its `match`. */
MORVANE_API int MORVANE_CALL morvane_receive_unsolicited(morvane_port port, void* buffer, uint32_t capacity,
                                                         uint32_t* length, uint32_t timeout);
/* Sends and waits for the reply: the next message, or the next that `match` accepts. Requests of several threads
   take turns. After MORVANE_E_TIMEOUT, MORVANE_E_CANCELLED or MORVANE_E_LOST the reply may still come, so the
   port is out of step: sending gives MORVANE_E_OUT_OF_STEP until morvane_resync or morvane_reopen. With
   MORVANE_E_BUFFER *reply_length is the length of the reply: morvane_receive returns it, until the next request of
   any thread puts it with the unsolicited ones. */
MORVANE_API int MORVANE_CALL morvane_request(morvane_port port, const void* message, uint32_t length, void* reply,
                                             uint32_t capacity, uint32_t* reply_length, uint32_t timeout);
MORVANE_API int MORVANE_CALL morvane_request_match(morvane_port port, const void* message, uint32_t length,
                                                   morvane_match match, void* context, void* reply,
                                                   uint32_t capacity, uint32_t* reply_length, uint32_t timeout);
/* Discards what comes until nothing has come for `quiet` milliseconds. What `unsolicited` accepts is kept and does
   not count. */
MORVANE_API int MORVANE_CALL morvane_resync(morvane_port port, uint32_t quiet, uint32_t timeout);
/* Closes the pipe and opens it again; other calls on the port end with MORVANE_E_CANCELLED. What was not received
   is discarded. */
MORVANE_API int MORVANE_CALL morvane_reopen(morvane_port port, uint32_t timeout);
/* Waits until the port is connected. */
MORVANE_API int MORVANE_CALL morvane_wait_ready(morvane_port port, uint32_t timeout);
/* Ends the calls of other threads that wait on the port now. Queued messages are still written. */
MORVANE_API int MORVANE_CALL morvane_cancel(morvane_port port);
MORVANE_API int MORVANE_CALL morvane_next_event(morvane_port port, morvane_event* event, uint32_t timeout);
/* A manual-reset event, signalled while a message or an event can be received without waiting. The library's; wait
   only, and not after morvane_close. */
MORVANE_API int MORVANE_CALL morvane_wait_handle(morvane_port port, void** handle);

#ifdef __cplusplus
}
#endif

#endif
