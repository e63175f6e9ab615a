#include "MimeCaps.h"

#include <algorithm>
#include <cctype>

namespace Velmora {
namespace Gst {

namespace {

struct Codec {
    const char* name;         // as in a MIME type's codecs parameter (prefix)
    const char* mediaType;    // of the elementary stream caps
    const char* extraFields;  // appended to the caps, or empty
};

const Codec kCodecs[] = {
    {"vp8", "video/x-vp8", ""},
    {"vp9", "video/x-vp9", ""},
    {"vp09", "video/x-vp9", ""},
    // Family 0 is mono or stereo without a mapping table, so the decoder needs no header packet.
    {"opus", "audio/x-opus", ", channel-mapping-family=(int)0"},
};

// What a container type alone implies when the codecs parameter is missing.
struct DefaultCodec {
    const char* mimeType;
    const char* codec;
};

const DefaultCodec kDefaults[] = {
    {"video/webm", "vp8"},  {"audio/webm", "opus"},   {"audio/ogg", "opus"},  {"video/x-vp8", "vp8"},
    {"video/x-vp9", "vp9"}, {"audio/x-opus", "opus"}, {"audio/opus", "opus"},
};

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

std::string Trim(const std::string& text, const char* blanks) {
    const std::size_t first = text.find_first_not_of(blanks);
    const std::size_t last = text.find_last_not_of(blanks);
    return first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
}

// The first codec of the codecs parameter, or empty.
std::string FirstCodec(const std::string& parameters) {
    const std::size_t at = parameters.find("codecs=");
    if (at == std::string::npos) {
        return std::string();
    }
    std::string list = Trim(parameters.substr(at + 7), " \t\"'");
    list = list.substr(0, list.find_first_of(",;\"'"));
    return Trim(list, " \t");
}

}  // namespace

GstCaps* CapsForMimeType(const std::string& mimeType) {
    const std::string lowered = Lower(mimeType);
    const std::size_t semicolon = lowered.find(';');
    const std::string type = Trim(lowered.substr(0, semicolon), " \t");
    std::string codec = semicolon == std::string::npos ? std::string() : FirstCodec(lowered.substr(semicolon));
    if (codec.empty()) {
        for (const DefaultCodec& fallback : kDefaults) {
            if (type == fallback.mimeType) {
                codec = fallback.codec;
            }
        }
    }
    const bool audio = type.rfind("audio/", 0) == 0;
    for (const Codec& known : kCodecs) {
        const std::string name = known.name;
        const bool audioCodec = std::string(known.mediaType).rfind("audio/", 0) == 0;
        if (!codec.empty() && codec.rfind(name, 0) == 0 && audio == audioCodec) {
            return gst_caps_from_string((std::string(known.mediaType) + known.extraFields).c_str());
        }
    }
    return nullptr;
}

std::string CodecName(const GstCaps* caps) {
    if (caps == nullptr || gst_caps_get_size(caps) == 0) {
        return std::string();
    }
    const std::string mediaType = gst_structure_get_name(gst_caps_get_structure(caps, 0));
    for (const Codec& known : kCodecs) {
        if (mediaType == known.mediaType) {
            return known.name;
        }
    }
    return mediaType;
}

std::vector<std::string> SupportedMimeTypes() { return {"video/webm", "audio/webm", "audio/ogg"}; }

}  // namespace Gst
}  // namespace Velmora
