#include "Support/MediaStackMocks.h"

#include <cstdlib>
#include <cstring>

namespace VelmoraTest {

using ::testing::_;
using ::testing::Invoke;

MockMediaBackend::MockMediaBackend() {
    ON_CALL(*this, ConnectEvent(_)).WillByDefault(Invoke([this](const EventSlot& slot) {
        return events.connect(slot);
    }));
    ON_CALL(*this, ConnectDrmBackendRequest(_)).WillByDefault(Invoke([this](const DrmBackendRequestSlot& slot) {
        return drmRequests.connect(slot);
    }));
}

Velmora::IDrmBackend* MockMediaBackend::RequestDrmBackend(const std::string& keySystemId) {
    Velmora::IDrmBackend* answer = nullptr;
    drmRequests(keySystemId, answer);
    return answer;
}

MockVideoBroadcastBackend::MockVideoBroadcastBackend() {
    ON_CALL(*this, ConnectEvent(_)).WillByDefault(Invoke([this](const EventSlot& slot) {
        return events.connect(slot);
    }));
}

MockDrmBackend::MockDrmBackend() {
    ON_CALL(*this, ConnectDrmEvent(_)).WillByDefault(Invoke([this](const DrmEventSlot& slot) {
        return events.connect(slot);
    }));
}

MockAvComponent::MockAvComponent(const char* language_, std::int32_t type_) {
    type = type_;
    SetText(&AvComponentDescription::language, language_);
    ON_CALL(*this, ConnectStateChanged(_)).WillByDefault(Invoke([this](const StateSlot& slot) {
        return state.connect(slot);
    }));
}

MockAvComponent::~MockAvComponent() {
    for (auto field : {&AvComponentDescription::encoding, &AvComponentDescription::language,
                       &AvComponentDescription::label, &AvComponentDescription::role, &AvComponentDescription::id}) {
        std::free(this->*field);
    }
}

void MockAvComponent::SetText(char* Velmora::AvComponentDescription::*field, const char* text) {
    std::free(this->*field);
    this->*field = text == nullptr ? nullptr : strdup(text);
}

MockUva::MockUva() {
    ON_CALL(*this, ConnectHandleLookup(_)).WillByDefault(Invoke([this](const HandleLookupSlot& slot) {
        return handleLookups.connect(slot);
    }));
}

MockUva::~MockUva() {
    if (onDestroyed) {
        onDestroyed();
    }
}

boost::shared_ptr<Velmora::IBackend> MockUva::LookUp(void* videoBroadcastHandle) {
    boost::shared_ptr<Velmora::IBackend> found;
    handleLookups(videoBroadcastHandle, found);
    return found;
}

}  // namespace VelmoraTest
