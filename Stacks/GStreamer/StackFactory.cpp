// The GStreamer stack's factory; its options are described in GstStackOptions.h.

#include <gst/gst.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "GstUva.h"
#include "Velmora/StackFactory.h"

namespace Velmora {
namespace Gst {

bool ParseStackOptions(const char* text, StackOptions& options, std::string& error) {
    return ForEachStackOption(
        text,
        [&options](const std::string& name, const std::string& value) {
            if (name == "video-sink" && (value == "fake" || value == "auto")) {
                options.windowVideo =
                    value == "auto" && (std::getenv("DISPLAY") != nullptr || std::getenv("WAYLAND_DISPLAY") != nullptr);
            } else if (name == "audio-sink" && (value == "fake" || value == "auto")) {
                options.realAudio = value == "auto";
            } else if (name == "sync" && (value == "clock" || value == "free")) {
                options.syncToClock = value == "clock";
            } else {
                return false;
            }
            return true;
        },
        error);
}

}  // namespace Gst
}  // namespace Velmora

VELMORA_STACK_FACTORY Velmora::IUva* VelmoraCreateStack(unsigned interfaceVersion, const char* options) {
    if (interfaceVersion != VELMORA_STACK_INTERFACE_VERSION) {
        std::fprintf(stderr, "velmora gstreamer stack: built for interface version %u, asked for %u\n",
                     VELMORA_STACK_INTERFACE_VERSION, interfaceVersion);
        return nullptr;
    }
    try {
        Velmora::Gst::StackOptions stackOptions;
        std::string error;
        if (!Velmora::Gst::ParseStackOptions(options, stackOptions, error)) {
            std::fprintf(stderr, "velmora gstreamer stack: unknown option or bad value: %s\n", error.c_str());
            return nullptr;
        }
        GError* failure = nullptr;
        if (!gst_init_check(nullptr, nullptr, &failure)) {
            std::fprintf(stderr, "velmora gstreamer stack: GStreamer does not start: %s\n",
                         failure != nullptr ? failure->message : "no reason given");
            g_clear_error(&failure);
            return nullptr;
        }
        return new Velmora::Gst::GstUva(stackOptions);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "velmora gstreamer stack: %s\n", failure.what());
    } catch (...) {
        std::fprintf(stderr, "velmora gstreamer stack: unknown failure\n");
    }
    return nullptr;
}
