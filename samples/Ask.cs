// Asks the instrument once a second and prints the replies, also after it was unplugged. Enter ends it.
// csc Ask.cs (or mcs Ask.cs), with the MorvaneClient.dll of the process's architecture beside Ask.exe.
using System;
using System.Runtime.InteropServices;
using System.Text;
using System.Threading;

static class Ask
{
    const int Ok = 0, Closed = -3, NoHandle = -2; // of morvane_client.h

    [DllImport("MorvaneClient", CallingConvention = CallingConvention.Cdecl, SetLastError = true)]
    static extern int morvane_open(int deviceType, uint port, string name, uint timeout, out uint handle);
    [DllImport("MorvaneClient", CallingConvention = CallingConvention.Cdecl)]
    static extern int morvane_close(uint handle);
    [DllImport("MorvaneClient", CallingConvention = CallingConvention.Cdecl)]
    static extern int morvane_request(uint handle, byte[] message, uint length, byte[] reply, uint capacity,
                                      out uint replyLength, uint timeout);
    [DllImport("MorvaneClient", CallingConvention = CallingConvention.Cdecl)]
    static extern int morvane_resync(uint handle, uint quiet, uint timeout);
    [DllImport("MorvaneClient", CallingConvention = CallingConvention.Cdecl)]
    static extern int morvane_wait_ready(uint handle, uint timeout);
    [DllImport("MorvaneClient", CallingConvention = CallingConvention.Cdecl)]
    static extern IntPtr morvane_error_text(int error);

    static void Say(int error) { Console.WriteLine(Marshal.PtrToStringAnsi(morvane_error_text(error))); }

    static int Main(string[] arguments)
    {
        byte[] message = Encoding.ASCII.GetBytes(arguments.Length > 0 ? arguments[0] : "hello");
        byte[] reply = new byte[65535];
        uint port, length;
        int error = morvane_open(3, 1, null, 10000, out port);
        if (error != Ok) { Say(error); return 1; }
        var input = new Thread(() => { Console.ReadLine(); morvane_close(port); });
        input.Start();
        while (error != Closed && error != NoHandle) {
            error = morvane_request(port, message, (uint)message.Length, reply, (uint)reply.Length, out length, 2000);
            if (error == Ok) {
                Console.WriteLine(Encoding.ASCII.GetString(reply, 0, (int)length));
                Thread.Sleep(1000);
            } else if (error != Closed && error != NoHandle) { // the library waits for instrument and router
                Say(error);
                error = morvane_wait_ready(port, 60000);
                if (error == Ok) // a late reply must not be taken for the next one
                    error = morvane_resync(port, 500, 10000);
            }
        }
        input.Join();
        return 0;
    }
}
