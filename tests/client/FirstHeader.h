// A program as it was compiled with the first header of the library.
#pragma once

/// Loads the DLL and talks through it over a pipe that echoes; 0, or the number of the step that failed.
int RunFirstProgram(const char* pipe);
