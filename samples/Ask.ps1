# Asks the instrument once a second and prints the replies, also after it was unplugged. Ctrl+C ends it.
# MorvaneClient.dll of PowerShell's architecture lies beside this file.
param([string]$Text = "hello")
$ErrorActionPreference = "Stop"
$env:PATH = "$PSScriptRoot;$env:PATH"

Add-Type -Namespace Morvane -Name Client -MemberDefinition @'
const string Dll = "MorvaneClient.dll";
const CallingConvention Cdecl = CallingConvention.Cdecl;
[DllImport(Dll, CallingConvention = Cdecl)]
public static extern int morvane_open(int deviceType, uint port, string name, uint timeout, out uint handle);
[DllImport(Dll, CallingConvention = Cdecl)]
public static extern int morvane_close(uint handle);
[DllImport(Dll, CallingConvention = Cdecl)]
public static extern int morvane_request(uint handle, byte[] message, uint length, byte[] reply, uint capacity,
                                         out uint replyLength, uint timeout);
[DllImport(Dll, CallingConvention = Cdecl)]
public static extern int morvane_resync(uint handle, uint quiet, uint timeout);
[DllImport(Dll, CallingConvention = Cdecl)]
public static extern int morvane_wait_ready(uint handle, uint timeout);
[DllImport(Dll, CallingConvention = Cdecl)]
public static extern IntPtr morvane_error_text(int error);
'@

function Say([int]$code) {
    Write-Host ([Runtime.InteropServices.Marshal]::PtrToStringAnsi([Morvane.Client]::morvane_error_text($code)))
}

$ok = 0 # of morvane_client.h
$message = [Text.Encoding]::ASCII.GetBytes($Text)
$reply = New-Object byte[] 65535
[uint32]$port = 0
[uint32]$length = 0
$code = [Morvane.Client]::morvane_open(3, 1, [NullString]::Value, 10000, [ref]$port)
if ($code -ne $ok) { Say $code; exit 1 }
try {
    while ($true) {
        $code = [Morvane.Client]::morvane_request($port, $message, $message.Length, $reply, $reply.Length,
                                                  [ref]$length, 2000)
        if ($code -eq $ok) {
            [Text.Encoding]::ASCII.GetString($reply, 0, $length)
            Start-Sleep -Seconds 1
        } else { # the library waits for the instrument and starts a new router
            Say $code
            if ([Morvane.Client]::morvane_wait_ready($port, 60000) -eq $ok) {
                # A late reply must not be taken for the next one.
                [void][Morvane.Client]::morvane_resync($port, 500, 10000)
            }
        }
    }
} finally {
    [void][Morvane.Client]::morvane_close($port)
}
