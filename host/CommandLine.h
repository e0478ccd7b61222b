// What the command line asks for.
#pragma once

enum class CommandLineAction { RunServer, RegServer, UnregServer, RegServerPerUser, UnregServerPerUser };

/// The first recognised switch decides, in any case of letters. A switch is the word after any "-" or "/", up to
/// a blank, a tab or the end; everything else is skipped, "-Embedding" among it, which Windows passes to a server
/// that it starts for a client. `commandLine` may be null.
CommandLineAction ParseCommandLine(const wchar_t* commandLine) noexcept;
