#pragma once
// A counting allocator for the whole test program: operator new/new[] and malloc, calloc, realloc and
// strdup are replaced in the executable, so the library's allocations come here too. Inside a Window
// every allocation is counted, and the planned one fails (and, when persistent, every one after it).
// Allocations made inside a window are remembered until freed, so a session can prove it returned them.
// Single-threaded use only: the sessions raise every media-stack event on the test's own thread.

#include <cstddef>

namespace OutOfMemory {

// Counting starts over; allocation number `failAt` (1-based, 0 for none) fails, and when `persistent`
// every later one as well.
void Plan(unsigned long failAt, bool persistent);

// Whether an allocation was made to fail since Plan.
bool Injected();

// Allocations made inside a window and not freed since.
std::size_t Outstanding();

// Counting and failing happen only while a Window is open.
class Window {
public:
    Window();
    ~Window();
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;
};

}  // namespace OutOfMemory
