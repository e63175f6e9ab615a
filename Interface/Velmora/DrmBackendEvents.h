#pragma once
// Events a DRM back-end raises on its DRM event signal (IDrmBackend::ConnectDrmEvent), always as
// boost::shared_ptr<DrmBackendEvent>, of the class named beside each code. They own their texts
// (copied at construction; null stays null); byte blocks are shared arrays of the given length.

#include <boost/shared_ptr.hpp>
#include <cstdint>

#include "Velmora/Export.h"

namespace Velmora {

class VELMORA_EXPORT DrmBackendEvent {
public:
    enum EventType : std::int32_t {
        KeyNeeded = 0,         // UvaNeedKeyDRMEvent
        KeyMessage = 1,        // UvaKeyMessageDrmEvent
        KeyComplete = 2,       // UvaKeyCompleteDrmEvent
        KeyError = 3,          // UvaKeyErrorDrmEvent
        DrmMessageResult = 4,  // UvaResultMessageDrmEvent
    };

    DrmBackendEvent(EventType eventType, const char* keySystem, const char* sessionId, bool flag);
    virtual ~DrmBackendEvent();
    DrmBackendEvent(const DrmBackendEvent&) = delete;
    DrmBackendEvent& operator=(const DrmBackendEvent&) = delete;

    EventType type;
    const char* keySystem;
    const char* sessionId;
    bool flag;
};

class VELMORA_EXPORT UvaNeedKeyDRMEvent : public DrmBackendEvent {
public:
    UvaNeedKeyDRMEvent(const char* keySystem, const char* sessionId, bool flag,
                       boost::shared_ptr<unsigned char> initData, std::uint32_t initDataSize, bool needKeyFlag);
    ~UvaNeedKeyDRMEvent() override;
    boost::shared_ptr<unsigned char> initData;
    std::uint32_t initDataSize;
    bool needKeyFlag;
};

class VELMORA_EXPORT UvaKeyMessageDrmEvent : public DrmBackendEvent {
public:
    UvaKeyMessageDrmEvent(const char* keySystem, const char* sessionId, bool flag, const char* defaultUrl,
                          boost::shared_ptr<unsigned char> message, std::uint32_t messageSize);
    ~UvaKeyMessageDrmEvent() override;
    const char* defaultUrl;
    boost::shared_ptr<unsigned char> message;
    std::uint32_t messageSize;
};

class VELMORA_EXPORT UvaKeyCompleteDrmEvent : public DrmBackendEvent {
public:
    UvaKeyCompleteDrmEvent(const char* keySystem, const char* sessionId, bool flag);
    ~UvaKeyCompleteDrmEvent() override;
};

class VELMORA_EXPORT UvaKeyErrorDrmEvent : public DrmBackendEvent {
public:
    UvaKeyErrorDrmEvent(const char* keySystem, const char* sessionId, bool flag, std::int32_t errorCode,
                        std::uint16_t systemCode);
    ~UvaKeyErrorDrmEvent() override;
    std::int32_t errorCode;
    std::uint16_t systemCode;
};

class VELMORA_EXPORT UvaResultMessageDrmEvent : public DrmBackendEvent {
public:
    UvaResultMessageDrmEvent(const char* keySystem, const char* sessionId, bool flag, const char* resultMessage,
                             double resultCode);
    ~UvaResultMessageDrmEvent() override;
    const char* resultMessage;
    double resultCode;
};

}  // namespace Velmora
