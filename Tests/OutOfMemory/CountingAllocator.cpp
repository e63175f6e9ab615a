#include "CountingAllocator.h"

#include <dlfcn.h>

#include <cstdint>
#include <cstring>
#include <new>

namespace OutOfMemory {

namespace {

using MallocFunction = void* (*)(std::size_t);
using ReallocFunction = void* (*)(void*, std::size_t);
using FreeFunction = void (*)(void*);

// The next allocator in line (the C library's, or the sanitizer's), found on first use. dlsym may itself
// allocate while it looks: those few blocks come from a static arena and are never freed.
MallocFunction nextMalloc;
ReallocFunction nextRealloc;
FreeFunction nextFree;
bool resolving;
alignas(std::max_align_t) unsigned char arena[4096];
std::size_t arenaUsed;

void* FromArena(std::size_t size) {
    constexpr std::size_t kAlign = alignof(std::max_align_t);
    const std::size_t rounded = (size + kAlign - 1) / kAlign * kAlign;
    if (arenaUsed + rounded > sizeof(arena)) {
        return nullptr;
    }
    void* block = arena + arenaUsed;
    arenaUsed += rounded;
    return block;
}

bool InArena(const void* block) {
    return block >= static_cast<const void*>(arena) && block < static_cast<const void*>(arena + sizeof(arena));
}

void Resolve() {
    if (nextFree != nullptr || resolving) {
        return;
    }
    resolving = true;
    nextMalloc = reinterpret_cast<MallocFunction>(dlsym(RTLD_NEXT, "malloc"));
    nextRealloc = reinterpret_cast<ReallocFunction>(dlsym(RTLD_NEXT, "realloc"));
    nextFree = reinterpret_cast<FreeFunction>(dlsym(RTLD_NEXT, "free"));
    resolving = false;
}

int windowDepth;
unsigned long counted;
unsigned long failAt;
bool persistentFailure;
bool injected;

// Blocks allocated inside a window and not yet freed: open addressing over a fixed table, so that keeping
// the books never allocates.
constexpr std::size_t kSlots = std::size_t(1) << 16;
const void* const kTombstone = reinterpret_cast<const void*>(std::uintptr_t(1));
const void* live[kSlots];
std::size_t liveCount;

std::size_t SlotOf(const void* block) { return (reinterpret_cast<std::uintptr_t>(block) >> 4) * 2654435761u % kSlots; }

void Remember(const void* block) {
    for (std::size_t probe = 0, slot = SlotOf(block); probe < kSlots; ++probe, slot = (slot + 1) % kSlots) {
        if (live[slot] == nullptr || live[slot] == kTombstone) {
            live[slot] = block;
            ++liveCount;
            return;
        }
    }
}

void Forget(const void* block) {
    if (liveCount == 0) {
        return;
    }
    for (std::size_t probe = 0, slot = SlotOf(block); probe < kSlots && live[slot] != nullptr;
         ++probe, slot = (slot + 1) % kSlots) {
        if (live[slot] == block) {
            live[slot] = kTombstone;
            --liveCount;
            return;
        }
    }
}

// True when this allocation is to fail.
bool Fails() {
    if (windowDepth == 0) {
        return false;
    }
    ++counted;
    const bool fails = failAt != 0 && (counted == failAt || (persistentFailure && counted > failAt));
    injected = injected || fails;
    return fails;
}

void Track(const void* block) {
    if (windowDepth > 0 && block != nullptr) {
        Remember(block);
    }
}

}  // namespace

void Plan(unsigned long failAtCount, bool persistent) {
    counted = 0;
    failAt = failAtCount;
    persistentFailure = persistent;
    injected = false;
    std::memset(live, 0, sizeof(live));
    liveCount = 0;
}

bool Injected() { return injected; }
std::size_t Outstanding() { return liveCount; }

Window::Window() { ++windowDepth; }
Window::~Window() { --windowDepth; }

}  // namespace OutOfMemory

using namespace OutOfMemory;

extern "C" {

void* malloc(std::size_t size) noexcept {
    Resolve();
    if (nextMalloc == nullptr) {
        return FromArena(size);
    }
    if (Fails()) {
        return nullptr;
    }
    void* block = nextMalloc(size);
    Track(block);
    return block;
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    void* block = malloc(count * size);
    return block == nullptr ? nullptr : std::memset(block, 0, count * size);
}

void* realloc(void* block, std::size_t size) noexcept {
    Resolve();
    if (InArena(block)) {
        void* moved = malloc(size);
        if (moved != nullptr) {
            std::memcpy(moved, block, size);
        }
        return moved;
    }
    if (Fails()) {
        return nullptr;
    }
    void* moved = nextRealloc(block, size);
    if (moved != nullptr && block != nullptr) {
        Forget(block);
    }
    Track(moved);
    return moved;
}

void free(void* block) noexcept {
    if (block == nullptr || InArena(block)) {
        return;
    }
    Resolve();
    Forget(block);
    nextFree(block);
}

char* strdup(const char* text) noexcept {
    const std::size_t size = std::strlen(text) + 1;
    auto* copy = static_cast<char*>(malloc(size));
    if (copy != nullptr) {
        std::memcpy(copy, text, size);
    }
    return copy;
}

}  // extern "C"

void* operator new(std::size_t size) {
    void* block = malloc(size == 0 ? 1 : size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return malloc(size == 0 ? 1 : size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return malloc(size == 0 ? 1 : size); }
void operator delete(void* block) noexcept { free(block); }
void operator delete[](void* block) noexcept { free(block); }
void operator delete(void* block, std::size_t) noexcept { free(block); }
void operator delete[](void* block, std::size_t) noexcept { free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { free(block); }
