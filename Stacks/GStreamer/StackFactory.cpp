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
    const std::string all = text != nullptr ? text : "";
    std::size_t begin = 0;
    while (begin < all.size()) {
        std::size_t end = all.find(';', begin);
        if (end == std::string::npos) {
            end = all.size();
        }
        const std::string pair = all.substr(begin, end - begin);
        begin = end + 1;
        if (pair.empty()) {
            continue;
        }
        if (pair == "video-sink=fake" || pair == "video-sink=auto") {
            options.windowVideo = pair == "video-sink=auto" &&
                                  (std::getenv("DISPLAY") != nullptr || std::getenv("WAYLAND_DISPLAY") != nullptr);
        } else if (pair == "audio-sink=fake" || pair == "audio-sink=auto") {
            options.realAudio = pair == "audio-sink=auto";
        } else if (pair == "sync=clock" || pair == "sync=free") {
            options.syncToClock = pair == "sync=clock";
        } else {
            error = pair;
            return false;
        }
    }
    return true;
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
