#pragma once
// One audio, video or subtitle component of the stream a back-end plays.
//
// "Active" is what the state signal reports: the component is usable, so the browser may select it.
// "Selected" is the back-end's own choice among the components of one kind. The back-end that owns
// a component decides both under its lock and raises the state signal later from its step, like its
// events, so the signal always runs on the media stack's thread.

#include <atomic>
#include <boost/signals2/signal.hpp>
#include <cstdint>
#include <string>

#include "Velmora/IAvComponent.h"

namespace Velmora {
namespace Reference {

class ReferenceComponent : public IAvComponent {
public:
    enum Kind : std::int32_t { Video = 0, Audio = 1, Subtitle = 2 };

    // `index` counts the components of one kind from 0; the first of each kind is the main one.
    ReferenceComponent(Kind kind, std::int32_t index, const std::string& language);
    ~ReferenceComponent() override;

    boost::signals2::connection ConnectStateChanged(const StateSlot& slot) override;

    // Raises the state signal on the calling thread.
    void SetActive(bool active);

    Kind GetKind() const { return static_cast<Kind>(type); }
    std::string Language() const { return language == nullptr ? std::string() : language; }
    bool IsActive() const { return active; }
    bool IsSelected() const { return selected; }
    void SetSelected(bool value) { selected = value; }

private:
    boost::signals2::signal<void(bool)> stateChanged;
    std::atomic<bool> active{false};
    std::atomic<bool> selected{false};
};

}  // namespace Reference
}  // namespace Velmora
