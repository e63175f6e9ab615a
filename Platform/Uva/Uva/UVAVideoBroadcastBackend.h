#pragma once
// A broadcast television back-end as the browser drives it.

#include "Uva/UVABackend.h"

class UVAVideoBroadcastBackend : public UVABackend {
public:
    enum PlayState {
        PLAY_STATE_UNREALIZED = 0,
        PLAY_STATE_CONNECTING = 1,
        PLAY_STATE_PRESENTING = 2,
        PLAY_STATE_STOPPED = 3,
    };

    enum RecordingState {
        RECORDING_UNREALIZED = 0,
        RECORDING_SCHEDULED = 1,
        RECORDING_STARTED = 2,
        RECORDING_COMPLETED = 3,
        RECORDING_ERROR = 4,
    };

    UVAVideoBroadcastBackend();
    ~UVAVideoBroadcastBackend() override;

    // The back-end registered under the browser's video broadcast handle, or null.
    static UVAVideoBroadcastBackend* getBackendByVideoBroadcastHandle(void* handle);
    // Registers this back-end under the browser's video broadcast handle (replacing its previous one).
    void setWindowId(void* videoBroadcastHandle);

    virtual UVA_STATUS initBackend(const char* id) = 0;
    virtual UVA_STATUS release() = 0;
    virtual UVA_STATUS setVideoWindow(int x, int y, int width, int height) = 0;
    virtual UVA_STATUS setClipRect(int x, int y, int width, int height) = 0;
    virtual UVA_STATUS setFullScreen(bool fullScreen) = 0;
    virtual UVA_STATUS setVisibility(bool visible, bool unmute) = 0;
    virtual UVA_STATUS setVolume(double volume) = 0;
    virtual UVA_STATUS nextChannel() = 0;
    virtual UVA_STATUS previousChannel() = 0;
    virtual UVA_STATUS stop() = 0;
    virtual UVA_STATUS selectComponent(AVComponent* component) = 0;
    virtual UVA_STATUS unselectComponent(AVComponent* component) = 0;
    virtual UVA_STATUS getPlayState(PlayState& state) = 0;
    virtual UVA_STATUS onListenerChanged(const char* listener) = 0;
    virtual UVA_STATUS getCurrentChannel(void*& channel) = 0;
    virtual UVA_STATUS setChannel(void* channel, bool trickplay, bool keepRecording, const char* contentAccess,
                                  bool quiet, bool offsetReset) = 0;
    virtual UVA_STATUS bindToCurrentChannel() = 0;
    virtual UVA_STATUS getPlaybackOffset(double& offset) = 0;
    virtual UVA_STATUS getMaxOffset(double& offset) = 0;
    // `count` holds the capacity the caller expects; `speeds` receives a new[] array of that size.
    virtual UVA_STATUS getPlaybackSpeeds(double*& speeds, unsigned int& count) = 0;
    virtual UVA_STATUS recordNow(double duration, char*& recordingId) = 0;
    virtual UVA_STATUS stopRecording() = 0;
    virtual UVA_STATUS pause() = 0;
    virtual UVA_STATUS resume() = 0;
    virtual UVA_STATUS setPlaybackSpeed(double speed) = 0;
    virtual UVA_STATUS setPosition(double position, PositionReference reference) = 0;
    virtual UVA_STATUS stopTimeShift() = 0;
    virtual UVA_STATUS getRecordingState(RecordingState& state) = 0;
    virtual UVA_STATUS getPosition(double& position) = 0;
    virtual UVA_STATUS getPlaybackSpeed(double& speed) = 0;
};
