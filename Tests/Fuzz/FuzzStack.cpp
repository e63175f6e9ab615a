#include "Fuzz/FuzzStack.h"

#include <boost/make_shared.hpp>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "Velmora/Exceptions.h"

namespace VelmoraFuzz {

using Velmora::BackendEvent;

namespace {

// Reads every byte of a shared block, so that a block shorter than its stated length is caught.
unsigned Touch(const boost::shared_ptr<unsigned char>& bytes, std::uint32_t size) {
    unsigned sum = 0;
    for (std::uint32_t index = 0; bytes && index < size; ++index) {
        sum += bytes.get()[index];
    }
    return sum;
}

char* CopyOrNull(const Text& text) { return text.null ? nullptr : strdup(text.characters.c_str()); }

}  // namespace

void StackScript::Act() { (void)Answer(); }

bool StackScript::Answer() {
    const std::uint8_t choice = input.Byte();
    switch (choice % 16) {
        case 10: {
            static const std::int32_t kErrorTypes[] = {1, 2, 3, 4, 5, 7, 0, -1};
            throw Velmora::ExceptionBase{kErrorTypes[input.Byte() % 8], input.String()};  // braced: read in order
        }
        case 11: throw Velmora::GenericErrorException(input.String());
        case 12: throw std::runtime_error(input.String());
        case 13: throw static_cast<int>(choice);
        case 14: throw std::string("media stack failure");
        case 15: throw StackFault{choice};
        default: return choice % 2 == 0;
    }
}

// Components

FuzzComponent::FuzzComponent(StackScript& script, int index) : script_(script) {
    FuzzInput& input = script.input;
    type = input.Byte() % 4;
    encoding = CopyOrNull(input.TextOrNull());
    componentTag = input.I32();
    aspectRatio = input.Double();
    language = CopyOrNull(input.TextOrNull());
    pid = index;
    audioChannels = input.Byte();
    encrypted = input.Bool();
    audioDescription = input.Byte();
    label = CopyOrNull(input.TextOrNull());
    role = CopyOrNull(input.TextOrNull());
    hearingImpaired = input.Byte();
    id = CopyOrNull(input.TextOrNull());
    this->index = index;
}

FuzzComponent::~FuzzComponent() {
    for (char* text : {encoding, language, label, role, id}) {
        std::free(text);
    }
}

boost::signals2::connection FuzzComponent::ConnectStateChanged(const StateSlot& slot) {
    script_.Act();
    return state.connect(slot);
}

// Media back-end

Velmora::IDrmBackend* FuzzMediaBackend::RequestDrmBackend(const std::string& keySystemId) {
    Velmora::IDrmBackend* answer = nullptr;
    drmRequests(keySystemId, answer);
    return answer;
}

boost::signals2::connection FuzzMediaBackend::ConnectEvent(const EventSlot& slot) {
    script_.Act();
    return events.connect(slot);
}

bool FuzzMediaBackend::GetNativeSize(unsigned short& width, unsigned short& height, double& aspectRatio) {
    width = static_cast<unsigned short>(script_.input.U32());
    height = static_cast<unsigned short>(script_.input.U32());
    aspectRatio = script_.input.Double();
    return script_.Answer();
}

bool FuzzMediaBackend::GetVideoFrame(unsigned char* buffer, std::uint32_t size) {
    if (buffer != nullptr) {
        std::memset(buffer, 0x5A, size);
    }
    return script_.Answer();
}

bool FuzzMediaBackend::Ranges(std::vector<ByteRange>& byteRanges, std::vector<TimeRange>& timeRanges) {
    for (std::uint32_t count = script_.input.Byte() % 8; count > 0; --count) {
        timeRanges.push_back(TimeRange{script_.input.U32(), script_.input.U32()});
        byteRanges.push_back(ByteRange{script_.input.U32(), script_.input.U32()});
    }
    return script_.Answer();
}

bool FuzzMediaBackend::GetSeekableTimeRanges(std::vector<ByteRange>& byteRanges, std::vector<TimeRange>& timeRanges) {
    return Ranges(byteRanges, timeRanges);
}
bool FuzzMediaBackend::GetBufferedTimeRanges(std::vector<ByteRange>& byteRanges, std::vector<TimeRange>& timeRanges) {
    return Ranges(byteRanges, timeRanges);
}

bool FuzzMediaBackend::GetDuration(double& duration) {
    duration = script_.input.Double();
    return script_.Answer();
}

bool FuzzMediaBackend::GetPosition(double& position) {
    position = script_.input.Double();
    return script_.Answer();
}

void FuzzMediaBackend::WriteData(boost::shared_ptr<BackendEvent> event, unsigned int, UVABackend::WriteDataStatus) {
    if (!dynamic_cast<Velmora::NeedDataEvent*>(event.get())) {
        std::abort();  // the library answered a need-data request with something else
    }
    script_.Act();
}

void FuzzMediaBackend::WriteMseData(boost::shared_ptr<BackendEvent> event, UVABackend::WriteDataStatus) {
    const auto* answer = dynamic_cast<Velmora::WriteMseDataEvent*>(event.get());
    if (answer == nullptr || !answer->buffers || answer->buffers->size() > answer->count) {
        std::abort();  // more samples than the browser was asked for, or not an answer at all
    }
    unsigned sum = 0;
    for (const Velmora::DecoderBuffer& buffer : *answer->buffers) {
        sum += Touch(buffer.data, buffer.dataSize) + Touch(buffer.keyId, buffer.keyIdSize) +
               Touch(buffer.iv, buffer.ivSize) + Touch(buffer.codecConfig, buffer.codecConfigSize);
    }
    volatile unsigned sink = sum;
    (void)sink;
    script_.Act();
}

bool FuzzMediaBackend::CanPlayType(const std::string&, const std::vector<std::string>&, const std::string&) {
    return script_.Answer();
}

void FuzzMediaBackend::GetSupportedMimetypes(std::vector<std::string>& types) {
    for (std::uint32_t count = script_.input.Byte() % 8; count > 0; --count) {
        types.push_back(script_.input.String());
    }
    script_.Act();
}

boost::signals2::connection FuzzMediaBackend::ConnectDrmBackendRequest(const DrmBackendRequestSlot& slot) {
    script_.Act();
    return drmRequests.connect(slot);
}

// Broadcast back-end

boost::signals2::connection FuzzBroadcastBackend::ConnectEvent(const EventSlot& slot) {
    script_.Act();
    return events.connect(slot);
}

boost::shared_ptr<void> FuzzBroadcastBackend::GetCurrentChannel() {
    script_.Act();
    if (script_.input.Bool()) {
        return boost::shared_ptr<void>();
    }
    return boost::make_shared<std::uint32_t>(script_.input.U32());
}

void FuzzBroadcastBackend::GetPlaybackSpeeds(std::vector<double>& speeds) {
    for (std::uint32_t count = script_.input.Byte() % 16; count > 0; --count) {
        speeds.push_back(script_.input.Double());
    }
    script_.Act();
}

boost::signals2::connection FuzzBareBackend::ConnectEvent(const EventSlot& slot) {
    script_.Act();
    return events.connect(slot);
}

// DRM back-end

const std::string& FuzzDrmBackend::GetId() const {
    script_.Act();
    return id_;
}

const std::string& FuzzDrmBackend::GetOIPFId() const {
    script_.Act();
    return oipfId_;
}

bool FuzzDrmBackend::GenerateKeyRequest(boost::shared_ptr<unsigned char> initData, std::uint32_t initDataSize) {
    Touch(initData, initDataSize);
    return script_.Answer();
}

bool FuzzDrmBackend::AddKey(boost::shared_ptr<unsigned char> key, std::uint32_t keySize,
                            boost::shared_ptr<unsigned char> initData, std::uint32_t initDataSize, const std::string&) {
    Touch(key, keySize);
    Touch(initData, initDataSize);
    return script_.Answer();
}

bool FuzzDrmBackend::AddKeyReleaseCommit(boost::shared_ptr<unsigned char> data, std::uint32_t size,
                                         const std::string&) {
    Touch(data, size);
    return script_.Answer();
}

bool FuzzDrmBackend::SendDrmMessage(const std::string&, const std::string&, std::string& sessionId) {
    sessionId = script_.input.String();
    return script_.Answer();
}

boost::signals2::connection FuzzDrmBackend::ConnectDrmEvent(const DrmEventSlot& slot) {
    script_.Act();
    return events.connect(slot);
}

// Root object

boost::shared_ptr<Velmora::IBackend> FuzzUva::CreateBackend(int type) {
    script_.Act();
    const std::uint8_t choice = script_.input.Byte() % 8;
    if (choice == 1) {
        return boost::shared_ptr<Velmora::IBackend>();
    }
    if (choice == 3) {
        auto bare = boost::make_shared<FuzzBareBackend>(script_);
        objects_.backends.push_back({bare, &bare->events, nullptr});
    } else if ((type == UVABackend::TYPE_VIDEO_BROADCAST) != (choice == 2)) {  // choice 2: the other kind
        auto broadcast = boost::make_shared<FuzzBroadcastBackend>(script_);
        objects_.backends.push_back({broadcast, &broadcast->events, nullptr});
    } else {
        auto media = boost::make_shared<FuzzMediaBackend>(script_);
        objects_.backends.push_back({media, &media->events, media.get()});
    }
    return objects_.backends.back().backend;
}

boost::shared_ptr<Velmora::IDrmBackend> FuzzUva::CreateDrmBackend(const std::string& keySystemId) {
    script_.Act();
    if (script_.input.Byte() % 8 == 1) {
        return boost::shared_ptr<Velmora::IDrmBackend>();
    }
    auto drm = boost::make_shared<FuzzDrmBackend>(script_, keySystemId, script_.input.String());
    objects_.drmBackends.push_back(drm);
    objects_.drmEvents.push_back(&drm->events);
    return drm;
}

boost::signals2::connection FuzzUva::ConnectHandleLookup(const HandleLookupSlot& slot) {
    script_.Act();
    return handleLookups.connect(slot);
}

}  // namespace VelmoraFuzz
