#pragma once
// Sessions on real media: the browser plays a file through the library against a media stack loaded by
// path through its factory (by default the GStreamer stack built with the simulator). "gst-url" lets
// the stack read the file itself; "gst-mse" demuxes it on the browser's side and feeds the samples
// through Media Source. What the browser is told (duration, size, tracks) is checked against the file.

#include <string>

#include "Browser.h"

namespace Simulator {

struct MediaSessionOptions {
    std::string stackPath;     // a library exporting VelmoraCreateStack
    std::string stackOptions;  // handed to the factory as they are
    std::string media;         // the file to play
};

bool IsMediaSession(const std::string& name);

// Runs `name` ("all" runs both); broken expectations are recorded in the timeline.
void RunMediaSessions(const std::string& name, Timeline& timeline, const EntryPoints& library, LogBook& log,
                      const MediaSessionOptions& options);

}  // namespace Simulator
