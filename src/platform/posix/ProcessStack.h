#pragma once

#include <string>
#include <vector>

namespace pw::platform {

// The calling thread's real stack, whatever machine the program runs on: a simulated
// monitor does not make a simulated crash.

// Loads the unwinder, which allocates the first time; call once before a signal handler
// may need writeProcessStack.
void loadStackUnwinder();

// Symbols of the calling thread's stack, innermost first, leaving out this function and
// `ownFrames` more of the caller's (its own helpers). C++ names are demangled.
std::vector<std::string> processStackSymbols(int ownFrames);

// Writes the calling thread's symbols, one per line, to an open file, leaving out this
// function's frame. Safe in a signal handler once the unwinder is loaded: no lock, no
// allocation.
void writeProcessStack(int fd);

} // namespace pw::platform
