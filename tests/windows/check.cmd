@echo off
rem Tries what can be tried on this PC without rights, tools or an instrument, and writes what it found into result.txt
rem beside this file. All of it runs in a folder of its own below %TEMP%, which is removed at the end, as are the
rem registry keys of the tests. An installed router is neither used nor changed.
set "kit=%~dp0"
set "work=%TEMP%\MorvaneCheck"
if exist "%work%" rd /s /q "%work%"
md "%work%"
copy /b "%kit%bin\*.*" "%work%" >nul
if not exist "%work%\WindowsCheck.exe" goto no_folder
set "result=%kit%result.txt"
echo Morvane Port Router @VERSION@>"%result%"
if not exist "%result%" set "result=%TEMP%\MorvaneCheck-result.txt"
echo This takes a quarter of an hour at most. Windows may come and go meanwhile.
set "TEMP=%work%"
set "TMP=%work%"
cd /d "%work%"
WindowsCheck.exe --kit @SOAK@ @ONLY@>>"%result%" 2>&1
set "code=%ERRORLEVEL%"
cd /d "%kit%"
rd /s /q "%work%"
reg delete HKCU\Software\MorvaneTests /f >nul 2>&1
type "%result%"
echo.
echo This is in "%result%". Please send that file back.
if not defined MORVANE_CHECK_UNATTENDED pause
exit /b %code%

:no_folder
echo The folder "%work%" cannot be made.
if not defined MORVANE_CHECK_UNATTENDED pause
exit /b 2
