#pragma once
// How the GStreamer stack renders, chosen by the owner through the factory's options text:
//
//   video-sink=fake|auto   fake (default): frames are decoded and consumed against the pipeline clock
//                          but shown nowhere; auto: a window (autovideosink) when DISPLAY or
//                          WAYLAND_DISPLAY is set, otherwise fake.
//   audio-sink=fake|auto   fake (default) or the system's audio output (autoaudiosink).
//   sync=clock|free        clock (default): fake sinks consume at the pace of the pipeline clock;
//                          free: as fast as decoding goes (for throughput measurements).
//
// Example: VelmoraCreateStack(VELMORA_STACK_INTERFACE_VERSION, "video-sink=auto;audio-sink=auto").

#include <string>

namespace Velmora {
namespace Gst {

struct StackOptions {
    bool windowVideo = false;
    bool realAudio = false;
    bool syncToClock = true;
};

// False, with the offending pair in `error`, for an unknown name or value.
bool ParseStackOptions(const char* text, StackOptions& options, std::string& error);

}  // namespace Gst
}  // namespace Velmora
