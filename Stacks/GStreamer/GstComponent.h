#pragma once
// One audio, video or subtitle stream of what a GStreamer back-end plays: a stream of playbin3's
// stream collection, or a Media Source source. The back-end announces it with ComponentChanged Added,
// then reports it active; it removes it (and raises Removed) before the component goes away.

#include <boost/signals2/signal.hpp>
#include <cstdint>
#include <string>

#include "Velmora/IAvComponent.h"

namespace Velmora {
namespace Gst {

class GstComponent : public IAvComponent {
public:
    enum Kind : std::int32_t { Video = 0, Audio = 1, Subtitle = 2 };

    // `streamId` is GStreamer's stream id (or the Media Source source id as text).
    GstComponent(Kind kind, std::int32_t index, const std::string& streamId, const std::string& codec,
                 const std::string& language);
    ~GstComponent() override;

    boost::signals2::connection ConnectStateChanged(const StateSlot& slot) override;
    void SetActive(bool active);

    Kind GetKind() const { return static_cast<Kind>(type); }
    const std::string& StreamId() const { return streamId; }
    bool selected = false;  // under the owning back-end's lock

private:
    const std::string streamId;
    boost::signals2::signal<void(bool)> stateChanged;
};

}  // namespace Gst
}  // namespace Velmora
