// How a program ends that gets no memory, at a point where nothing can be unwound any more: inside
// of a library that would not look for it, or in a helper thread.
#pragma once

namespace tovrek {

// What is said then, and the exit status.
struct LastWords {
  const char* text = "out of memory\n";
  int status = 71;  // as sysexits.h numbers a failure of the system
};

// What endWithoutMemory() says, which lack of memory that nobody can catch leads to from now on.
// The text must outlive the program.
void setLastWords(const LastWords& words);

// Ends the program as an interruption does (see endProcess() in signals.h), with the last words.
// Any thread may call it, whatever it holds; takes no memory.
[[noreturn]] void endWithoutMemory() noexcept;

}  // namespace tovrek
