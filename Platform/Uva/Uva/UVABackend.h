#pragma once
// The browser's back-end base class and the records it exchanges with a back-end library.
//
// Ownership: every text and byte block inside these browser objects is allocated with malloc (or
// strdup) and released with free by the object that holds it. Objects handed to a back-end with
// "takes ownership" are deleted by the back-end through their virtual destructor.

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "Uva/UVAStatus.h"

class UVABackend {
public:
    enum UVABackendType {
        TYPE_MEDIA = 0,
        TYPE_MEDIA_SOURCE = 1,
        TYPE_VIDEO_BROADCAST = 2,
    };

    enum BufferingStrategy {
        BUFFERING_DEFAULT = 0,
        BUFFERING_AGGRESSIVE = 1,
        BUFFERING_CONSERVATIVE = 2,
    };

    enum WriteDataStatus {
        WRITE_DATA_OK = 0,
        WRITE_DATA_END_OF_STREAM = 1,
        WRITE_DATA_ERROR = 2,
    };

    enum PositionReference {
        POSITION_FROM_START = 0,
        POSITION_FROM_CURRENT = 1,
        POSITION_FROM_END = 2,
    };

    struct ByteRange {
        std::uint64_t start;
        std::uint64_t end;
    };

    struct TimeRange {
        double start;
        double end;
    };

    // One source of a media element. Types 0 to 2 are streams the browser delivers itself; type 3 is a
    // stream the back-end fetches on its own from `url`. Owns its texts.
    class SourceDescription {
    public:
        enum SourceType {
            SOURCE_VIDEO = 0,
            SOURCE_AUDIO = 1,
            SOURCE_TEXT = 2,
            SOURCE_BACKEND_STREAMING = 3,
        };

        static SourceDescription* Streaming(std::int32_t type, std::int32_t sourceId, bool encrypted,
                                            std::int32_t trackIndex, const char* mimeType);
        static SourceDescription* BackendStreaming(const char* url);

        virtual ~SourceDescription();
        SourceDescription(const SourceDescription&) = delete;
        SourceDescription& operator=(const SourceDescription&) = delete;

        std::int32_t type;
        union {
            std::int32_t sourceId;  // types 0 to 2
            char* url;              // type 3
        };
        bool encrypted;
        std::int32_t trackIndex;
        char* mimeType;

    private:
        SourceDescription();
        bool ownsUrl_;
    };

    // The description fields of an audio, video or subtitle component; the media stack's component
    // interface mirrors them field for field.
    struct AVComponentDescription {
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

    // A component as the browser sees it. Its lifetime is shared between the back-end and the events
    // that name it, with this rule:
    //  - every preventDestruction() must be balanced by one stopPreventingDestruction();
    //  - the back-end calls backendMarkUnused() once, when it stops using the component;
    //  - the component deletes itself in the call that leaves it marked unused with no prevention
    //    outstanding: backendMarkUnused() when none is outstanding, otherwise the
    //    stopPreventingDestruction() that balances the last one.
    // So it is never freed while an event names it, and never leaks once both sides are done. The
    // decision is taken under the component's mutex; the deletion runs after it is released. Calls
    // made after the deciding call are a caller error.
    class AVComponent : public AVComponentDescription {
    public:
        // Takes ownership of the five texts of `description` (malloc'd or null).
        explicit AVComponent(const AVComponentDescription& description);
        AVComponent(const AVComponent&) = delete;
        AVComponent& operator=(const AVComponent&) = delete;

        void preventDestruction();
        void stopPreventingDestruction();
        void backendMarkUnused();

        // 1 while the back-end reports the component active.
        std::atomic<std::int32_t> state;

    protected:
        virtual ~AVComponent();

    private:
        void DeleteIfDone(bool done);

        pthread_mutex_t mutex_;
        std::uint32_t preventions_;
        bool markedUnused_;
        bool deleted_;
    };

    // One Media Source sample that the browser writes into a NeedMSEDataEvent. Owns its buffers and
    // its sub-sample list until a back-end takes the list with takeSubSamples().
    class MediaSample {
    public:
        struct SubSample {
            std::uint32_t clearBytes;
            std::uint32_t encryptedBytes;
            SubSample* next;
        };

        class Buffer {
        public:
            Buffer() = default;
            ~Buffer();
            Buffer(const Buffer&) = delete;
            Buffer& operator=(const Buffer&) = delete;
            void assign(const void* bytes, unsigned int size);
            const unsigned char* bytes() const { return bytes_; }
            unsigned int size() const { return size_; }

        private:
            unsigned char* bytes_ = nullptr;
            unsigned int size_ = 0;
        };

        MediaSample();
        virtual ~MediaSample();
        MediaSample(const MediaSample&) = delete;
        MediaSample& operator=(const MediaSample&) = delete;

        Buffer data;
        Buffer keyId;
        Buffer iv;
        Buffer codecConfig;
        std::int32_t streamId = 0;
        std::int32_t encryptionScheme = 0;
        std::int32_t timestampMs = 0;
        std::int32_t durationMs = 0;
        std::int32_t keyFrame = 0;
        std::int32_t configVersion = 0;
        std::int32_t width = 0;
        std::int32_t height = 0;
        std::int32_t sampleRate = 0;

        // Appends one node to the sub-sample list.
        void addSubSample(std::uint32_t clearBytes, std::uint32_t encryptedBytes);
        // Hands the whole list over (nodes allocated with new; the caller deletes each one).
        SubSample* takeSubSamples();

    private:
        SubSample* subSamples_ = nullptr;
    };

    explicit UVABackend(UVABackendType type);
    virtual ~UVABackend();
    UVABackend(const UVABackend&) = delete;
    UVABackend& operator=(const UVABackend&) = delete;

    UVABackendType getType() const;

private:
    UVABackendType type_;
};
