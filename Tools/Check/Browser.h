#pragma once
// The browser's part in a check: it requests back-ends through the exported entry points, receives
// their events on the stack's threads, answers them on its own thread, and writes down everything a
// contract clause can be judged by. A probe connected beside the library on the stack's back-end sees
// the events as the stack raised them, before any translation.

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "Harness.h"
#include "Uva/UVABackendLibrary.h"
#include "Uva/UVAMediaBackend.h"
#include "Velmora/IAvComponent.h"
#include "Velmora/IBackend.h"

namespace Check {

using Milliseconds = std::chrono::duration<double, std::milli>;

// Everything a session saw; each check judges its own part.
struct Observations {
    std::string unavailable;                   // why no session could be played; empty when one was
    std::string played;                        // the Media Source type streamed or the URL played
    std::vector<std::string> wrongClasses;     // events whose object is not of the class their code names
    std::vector<std::string> insaneValues;     // events the browser got with impossible values
    std::vector<std::string> afterRelease;     // events the browser got after the release returned
    std::vector<std::string> componentFaults;  // broken component lifetimes
    std::uint32_t componentsAnnounced = 0;
    bool selectionTried = false;
    UVA_STATUS selectionStatus = UVA_STATUS_OK;
    std::uint32_t dataRequests = 0;
    std::uint32_t samplesWritten = 0;
    bool endOfStreamWritten = false;
    std::vector<std::string> writeFailures;  // writeData answers other than OK
    std::uint32_t decodeErrors = 0;
    Milliseconds releaseTime{0};
};

enum class Ending {
    Orderly,       // stop, wait for the components to be removed, then release
    WhilePlaying,  // release while the stack still raises events
};

// What a session plays: a short Media Source stream of made-up samples, or a real file the stack
// fetches itself, where a real engine shows its components.
struct Feed {
    std::string mediaUrl;  // empty: a Media Source stream
    std::string mseType;   // the Media Source type to stream; empty: the first the stack says it plays
};

// Plays `feed` on a back-end of its own (selecting the first component announced when `select` is
// set) and releases it.
Observations PlaySession(Harness& harness, const Feed& feed, Ending ending, bool select,
                         const std::function<void(const std::string&)>& step);

// One browser operation as a check calls it.
struct OperationTiming {
    std::string name;
    UVA_STATUS status = UVA_STATUS_OK;
    Milliseconds typical{0};  // the median of a few calls, so that a busy machine does not make a stack look slow
    std::vector<std::string> foreignExceptions;  // what the library's guard caught of a foreign type
};

// Calls every playback operation of a Media Source back-end a few times; empty `unavailable` on success.
std::vector<OperationTiming> SweepOperations(Harness& harness, const Feed& feed, std::string& unavailable);

// A DRM client that throws away what it is given.
class DiscardingDrmClient : public UVADRMClient {
public:
    void handleDRMEvent(UVADRMEvent* event) override { delete event; }
};

}  // namespace Check
