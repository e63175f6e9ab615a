#pragma once
// From the browser's MIME types to GStreamer caps, and back to the short codec names components carry.
// Media Source samples arrive demuxed, so the caps describe elementary streams, and only codecs whose
// decoders start without out-of-band headers are accepted: VP8, VP9 and Opus.

#include <gst/gst.h>

#include <string>
#include <vector>

namespace Velmora {
namespace Gst {

// New caps for `mimeType` ("video/webm; codecs=\"vp8\"", "audio/webm", "audio/x-opus", ...), or null
// when no elementary stream caps fit it.
GstCaps* CapsForMimeType(const std::string& mimeType);

// "vp8", "opus", ... for known caps, otherwise the caps' media type.
std::string CodecName(const GstCaps* caps);

// The container types the Media Source back-end accepts, for GetSupportedMimetypes.
std::vector<std::string> SupportedMimeTypes();

}  // namespace Gst
}  // namespace Velmora
