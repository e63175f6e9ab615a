#pragma once
// The browser's DRM events. A back-end library creates them with new and hands them to its
// UVADRMClient, which owns them. Every text and byte block in them is released with free.

#include <cstdint>

class UVADRMEvent {
public:
    enum Kind {
        NEED_KEY = 0,
        KEY_MESSAGE = 1,
        KEY_COMPLETE = 2,
        KEY_ERROR = 3,
        RESULT_MESSAGE = 4,
    };

    explicit UVADRMEvent(Kind kind);
    virtual ~UVADRMEvent();
    UVADRMEvent(const UVADRMEvent&) = delete;
    UVADRMEvent& operator=(const UVADRMEvent&) = delete;

    Kind kind;
    char* keySystem = nullptr;
    char* sessionId = nullptr;
    bool flag = false;
};

class UVANeedKeyDRMEvent : public UVADRMEvent {
public:
    UVANeedKeyDRMEvent();
    ~UVANeedKeyDRMEvent() override;
    unsigned char* initData = nullptr;
    std::uint32_t initDataLength = 0;
    bool needKey = false;
};

class UVAKeyMessageDRMEvent : public UVADRMEvent {
public:
    UVAKeyMessageDRMEvent();
    ~UVAKeyMessageDRMEvent() override;
    char* defaultUrl = nullptr;
    unsigned char* message = nullptr;
    std::uint32_t messageLength = 0;
};

class UVAKeyErrorDRMEvent : public UVADRMEvent {
public:
    UVAKeyErrorDRMEvent();
    std::int32_t errorCode = 0;
    std::uint16_t systemCode = 0;
};

class UVAResultMessageDRMEvent : public UVADRMEvent {
public:
    UVAResultMessageDRMEvent();
    ~UVAResultMessageDRMEvent() override;
    char* resultMessage = nullptr;
    double resultCode = 0.0;
};
