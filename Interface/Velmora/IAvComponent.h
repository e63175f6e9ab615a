#pragma once
// An audio, video or subtitle component of a stream, as the media stack knows it.
//
// The description fields mirror the browser's component description field for field; the library
// copies them (texts duplicated) when the component is announced by a ComponentChangedEvent with
// action Added. The state signal says whether the component is active (only an active component can
// be selected); it may be raised on any thread. The component must outlive the ComponentChangedEvent
// that removes it; the library disconnects from its state signal when the browser's copy goes away.

#include <boost/function.hpp>
#include <boost/signals2/connection.hpp>
#include <cstdint>

#include "Velmora/Export.h"

namespace Velmora {

struct AvComponentDescription {
    std::int32_t type;  // 0 video, 1 audio, 2 subtitle
    char* encoding;
    std::int32_t componentTag;
    double aspectRatio;
    char* language;
    std::int32_t pid;
    std::int32_t audioChannels;
    bool encrypted;
    std::int32_t audioDescription;
    char* label;
    char* role;
    std::int32_t hearingImpaired;
    char* id;
    std::int32_t index;
};

class VELMORA_EXPORT IAvComponent : public AvComponentDescription {
public:
    using StateSlot = boost::function<void(bool active)>;

    IAvComponent();
    virtual ~IAvComponent();

    virtual boost::signals2::connection ConnectStateChanged(const StateSlot& slot) = 0;
};

}  // namespace Velmora
