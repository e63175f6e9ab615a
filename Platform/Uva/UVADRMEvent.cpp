#include "Uva/UVADRMEvent.h"

#include <cstdlib>

#include "LiveObjects.h"

using UvaPlatform::Live;

UVADRMEvent::UVADRMEvent(Kind eventKind) : kind(eventKind) { ++Live().drmEvents; }

UVADRMEvent::~UVADRMEvent() {
    std::free(keySystem);
    std::free(sessionId);
    --Live().drmEvents;
}

UVANeedKeyDRMEvent::UVANeedKeyDRMEvent() : UVADRMEvent(NEED_KEY) {}

UVANeedKeyDRMEvent::~UVANeedKeyDRMEvent() { std::free(initData); }

UVAKeyMessageDRMEvent::UVAKeyMessageDRMEvent() : UVADRMEvent(KEY_MESSAGE) {}

UVAKeyMessageDRMEvent::~UVAKeyMessageDRMEvent() {
    std::free(defaultUrl);
    std::free(message);
}

UVAKeyErrorDRMEvent::UVAKeyErrorDRMEvent() : UVADRMEvent(KEY_ERROR) {}

UVAResultMessageDRMEvent::UVAResultMessageDRMEvent() : UVADRMEvent(RESULT_MESSAGE) {}

UVAResultMessageDRMEvent::~UVAResultMessageDRMEvent() { std::free(resultMessage); }
