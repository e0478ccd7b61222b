' Asks the instrument once a second and prints the replies, also after it was unplugged or the router ended:
'   cscript //nologo ask.vbs [text [rounds]]
' A script can neither call a DLL nor open a pipe for reading and writing at once. So it registers the port by the
' automation object, and RouterProbe, which lies on the PATH, talks over the pipe.
Option Explicit
Const PipeName = "Script.Reader"
Dim shell, files, router, text, rounds, round
Set shell = CreateObject("WScript.Shell")
Set files = CreateObject("Scripting.FileSystemObject")
text = "hello"
rounds = 0 ' without end
If WScript.Arguments.Count > 0 Then text = WScript.Arguments(0)
If WScript.Arguments.Count > 1 Then rounds = CLng(WScript.Arguments(1))

Function Register
    On Error Resume Next
    If IsEmpty(router) Then Set router = CreateObject("MorvanePortRouter.MorvaneUSBRouter")
    If Err.Number = 0 Then router.Register 3, 1, 4096, 4096, PipeName
    Register = (Err.Number = 0)
    If Not Register Then
        WScript.Echo "The router does not answer (0x" & Hex(Err.Number) & "); trying again"
        router = Empty ' an object of a router that has ended is dead
    End If
End Function

' 0, or RouterProbe's exit code.
Function Ask(output)
    Dim file
    file = files.BuildPath(files.GetSpecialFolder(2), files.GetTempName)
    Ask = shell.Run("cmd /c RouterProbe send --attach --port 3,1 --pipe-name " & PipeName & " --text """ & text & _
                    """ --open-timeout 10 >""" & file & """ 2>&1", 0, True)
    output = files.OpenTextFile(file).ReadAll
    files.DeleteFile file
End Function

Dim output, goesOn
Do While rounds = 0 Or round < rounds
    If goesOn Then WScript.Sleep 1000
    goesOn = True
    If Register Then
        If Ask(output) = 0 Then round = round + 1
        WScript.Echo output ' the reply, or one line that says what is wrong
    End If
Loop
router = Empty ' removes the port and releases the router
