"""Asks the instrument once a second and prints the replies, also after it was unplugged. Ctrl+C ends it.

Standard library only. MorvaneClient.dll of Python's architecture lies beside this file.
"""
import ctypes
import os
import sys
import time

OK = 0  # of morvane_client.h

library = ctypes.CDLL(os.path.join(os.path.dirname(os.path.abspath(__file__)), "MorvaneClient.dll"))
library.morvane_error_text.restype = ctypes.c_char_p
u32, i32, pointer = ctypes.c_uint32, ctypes.c_int32, ctypes.c_void_p
library.morvane_open.argtypes = [i32, u32, ctypes.c_char_p, u32, ctypes.POINTER(u32)]
library.morvane_request.argtypes = [u32, pointer, u32, pointer, u32, ctypes.POINTER(u32), u32]
library.morvane_resync.argtypes = [u32, u32, u32]
library.morvane_wait_ready.argtypes = [u32, u32]
library.morvane_close.argtypes = [u32]


def say(error):
    print(library.morvane_error_text(error).decode("ascii"), flush=True)


def main():
    message = (sys.argv[1] if len(sys.argv) > 1 else "hello").encode("utf-8")
    port, length, reply = u32(), u32(), ctypes.create_string_buffer(65535)
    error = library.morvane_open(3, 1, None, 10000, ctypes.byref(port))
    if error != OK:
        say(error)
        return 1
    try:
        while True:
            error = library.morvane_request(port, message, len(message), reply, len(reply), ctypes.byref(length), 2000)
            if error == OK:
                print(reply.raw[: length.value].decode("utf-8", "replace"), flush=True)
                time.sleep(1)
            else:  # the library waits for the instrument and starts a new router
                say(error)
                if library.morvane_wait_ready(port, 60000) == OK:
                    library.morvane_resync(port, 500, 10000)  # a late reply must not be taken for the next one
    except KeyboardInterrupt:
        pass
    finally:
        library.morvane_close(port)
    return 0


sys.exit(main())
