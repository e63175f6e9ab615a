#pragma once
// A media element or Media Source back-end as the browser drives it.

#include "Uva/UVABackend.h"
#include "Uva/UVAEvent.h"

class UVAMediaBackend : public UVABackend {
public:
    explicit UVAMediaBackend(UVABackendType type);
    ~UVAMediaBackend() override;

    // `sources` is a null-terminated array allocated with new[]; on success the back-end deletes the
    // descriptions and the array.
    virtual UVA_STATUS initBackend(const char* url, SourceDescription** sources, bool flag) = 0;
    // On success the back-end deletes `source`.
    virtual UVA_STATUS attachSource(SourceDescription* source) = 0;
    virtual UVA_STATUS removeSource(unsigned int sourceId) = 0;
    virtual UVA_STATUS setSource(const char* url) = 0;
    virtual UVA_STATUS queue(const char* url) = 0;
    virtual UVA_STATUS setLoop(const char* loop) = 0;
    virtual UVA_STATUS setWindowId(unsigned int windowId) = 0;
    virtual UVA_STATUS setVideoWindow(int x, int y, int width, int height) = 0;
    virtual UVA_STATUS setClipRect(int x, int y, int width, int height) = 0;
    virtual UVA_STATUS getNativeSize(int& width, int& height, double& aspectRatio) = 0;
    virtual UVA_STATUS getVideoFrame(unsigned char* buffer, unsigned int size) = 0;
    // `timeRanges` receives a null-terminated new[] array of TimeRange objects allocated with new.
    virtual UVA_STATUS getBufferedTimeRanges(ByteRange** byteRanges, TimeRange**& timeRanges) = 0;
    virtual UVA_STATUS getSeekableTimeRanges(ByteRange** byteRanges, TimeRange**& timeRanges) = 0;
    virtual UVA_STATUS canPlayURL(const char* url) = 0;
    // `codecs` is a null-terminated array (may be null).
    virtual UVA_STATUS canPlayType(const char* type, const char** codecs, const char* keySystem) = 0;
    // `types` receives a null-terminated new[] array of strdup'd texts.
    virtual UVA_STATUS getSupportedMimetypes(char**& types) = 0;
    virtual UVA_STATUS play() = 0;
    virtual UVA_STATUS stop() = 0;
    virtual UVA_STATUS pause(bool paused) = 0;
    virtual UVA_STATUS setPlaybackRate(double rate) = 0;
    virtual UVA_STATUS setVolume(double volume) = 0;
    virtual UVA_STATUS getDuration(double& duration) = 0;
    virtual UVA_STATUS setContentSize(unsigned int width, unsigned int height) = 0;
    virtual UVA_STATUS getPosition(double& position) = 0;
    virtual UVA_STATUS setPosition(double position) = 0;
    virtual UVA_STATUS setVisibility(bool visible, bool unused) = 0;
    virtual UVA_STATUS getSizeFromDuration(double duration, unsigned int& size) = 0;
    // Takes ownership of `event`, the NeedDataEvent or NeedMSEDataEvent the browser was given.
    virtual UVA_STATUS writeData(UVAEvent* event, unsigned int size, WriteDataStatus status) = 0;
    virtual UVA_STATUS setFullScreen(bool fullScreen) = 0;
    virtual UVA_STATUS onListenerChanged(const char* listener) = 0;
    virtual UVA_STATUS setBufferingStrategy(BufferingStrategy strategy) = 0;
    virtual UVA_STATUS getBytesInBuffer(unsigned int& bytes) = 0;
    virtual UVA_STATUS setKeySystem(const char* keySystem) = 0;
    virtual UVA_STATUS selectComponent(AVComponent* component) = 0;
    virtual UVA_STATUS unselectComponent(AVComponent* component) = 0;
};
