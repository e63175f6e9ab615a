#include "DrmBackendWrapper.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <string>
#include <utility>

#include "CallGuard.h"
#include "EventTranslation.h"
#include "Log.h"
#include "Utilities.h"
#include "Velmora/Exceptions.h"
#include "WrapperTexts.h"

namespace Velmora {
namespace Wrapper {

namespace {

const LogSite kLog(kDrmLogFile, __LINE__);

constexpr const char* kMissingBackend = "Exception occurred while performing IDrmBackend cast.";
constexpr const char* kDrmFailureSentence = "virtual function from IDrmBackend failed: ";
// What getId and getOIPFId answer when the back-end fails; one constant, so always the same pointer.
constexpr const char* kNotAvailable = "NA";
// The leading blank is part of the message the browser's logs have always shown.
constexpr const char* kSendDrmMessageFailed = " The impl for IDrmBackend::SendDrmMessage message failed!";
// Says uva_malloc although the block comes from plain malloc; kept so the log text stays unchanged.
constexpr const char* kSessionIdAllocationFailed = "Unable to uva_malloc for the Drm session id string.";

constexpr CallPolicy DrmCall(const char* name) { return CallPolicy{&kLog, name, kDrmFailureSentence}; }

// The first words of every forwarding operation's trace line.
struct Entry {
    const char* name;
    const boost::shared_ptr<IDrmBackend>& impl;
};

std::ostream& operator<<(std::ostream& line, const Entry& entry) {
    return line << entry.name << " (impl pointer): " << static_cast<const void*>(entry.impl.get()) << "; ";
}

// A byte block in a trace line: its bytes up to the first zero, as the traces have always read, but never
// past its length (init data and keys need not hold a zero). A null block fails the stream, which blanks
// the rest of the line, as streaming a null text does.
struct AsText {
    const unsigned char* bytes;
    unsigned int size;
};

std::ostream& operator<<(std::ostream& line, const AsText& block) {
    if (block.bytes == nullptr) {
        line.setstate(std::ios_base::badbit);
        return line;
    }
    const char* text = reinterpret_cast<const char*>(block.bytes);
    return line.write(text, static_cast<std::streamsize>(strnlen(text, block.size)));
}

}  // namespace

DrmBackendWrapper::DrmBackendWrapper(boost::shared_ptr<IDrmBackend> impl, UVADRMClient* client)
    : impl(std::move(impl)), drm(this->impl, kMissingBackend, this), client(client) {
    VELMORA_LOG(kLog, 2) << "DrmBackendWrapper (impl pointer): " << static_cast<const void*>(this->impl.get()) << "; ";
    if (FollowsEvents(kLog, "DrmBackendWrapper Client is not set!", client, this->impl != nullptr)) {
        eventConnection = this->impl->ConnectDrmEvent(gate.Bind<&DrmBackendWrapper::DrmBackendEventHandler>(this));
    }
}

// The gate and then the scoped connection keep every event out before the back-end's share is released.
DrmBackendWrapper::~DrmBackendWrapper() { gate.Close(); }

boost::shared_ptr<IDrmBackend> DrmBackendWrapper::GetDrmBackendImplPtr() { return impl; }

const char* DrmBackendWrapper::getId() const {
    static constexpr CallPolicy kPolicy = DrmCall("getId");
    return Guarded(
        kPolicy, kNotAvailable,
        [&] {
            VELMORA_LOG(kLog, 2) << Entry{"getId", impl};
            // The back-end keeps its identifier alive; the browser reads these characters in place.
            return drm().GetId().c_str();
        },
        this);
}

const char* DrmBackendWrapper::getOIPFId() const {
    static constexpr CallPolicy kPolicy = DrmCall("getOIPFId");
    return Guarded(
        kPolicy, kNotAvailable,
        [&] {
            VELMORA_LOG(kLog, 2) << Entry{"getOIPFId", impl};
            const char* id = drm().GetOIPFId().c_str();
            VELMORA_LOG(kLog, 2) << "getOIPFId"
                                 << "Received " << id << " from impl.";
            return id;
        },
        this);
}

UVA_STATUS DrmBackendWrapper::generateKeyRequest(const unsigned char* init_data, unsigned int init_data_size) {
    static constexpr CallPolicy kPolicy = DrmCall("generateKeyRequest");
    return Guarded(
        kPolicy,
        [&] {
            VELMORA_LOG(kLog, 2) << Entry{"generateKeyRequest", impl}
                                 << " Value of init_data is : " << AsText{init_data, init_data_size}
                                 << " Value of init_data_size is : " << init_data_size;
            return StatusOf(
                drm().GenerateKeyRequest(Utilities::CopyToSharedBytes(init_data, init_data_size), init_data_size));
        },
        this);
}

UVA_STATUS DrmBackendWrapper::addKey(const unsigned char* key, unsigned int key_size, const unsigned char* init_data,
                                     unsigned int init_data_size, const char* session_id) {
    static constexpr CallPolicy kPolicy = DrmCall("addKey");
    return Guarded(
        kPolicy,
        [&] {
            VELMORA_LOG(kLog, 2) << Entry{"addKey", impl} << " Key value: " << AsText{key, key_size} << "; "
                                 << "; key_size: " << key_size
                                 << " Value of init_data is : " << AsText{init_data, init_data_size}
                                 << "; init_data_size: " << init_data_size;
            // Named copies: the key is copied before the init data, whatever order the compiler picks for arguments.
            const boost::shared_ptr<unsigned char> keyCopy = Utilities::CopyToSharedBytes(key, key_size);
            const boost::shared_ptr<unsigned char> initDataCopy =
                Utilities::CopyToSharedBytes(init_data, init_data_size);
            return StatusOf(
                drm().AddKey(keyCopy, key_size, initDataCopy, init_data_size, Utilities::TextOrEmpty(session_id)));
        },
        this);
}

UVA_STATUS DrmBackendWrapper::cancelKeyRequest(const char* session_id) {
    static constexpr CallPolicy kPolicy = DrmCall("cancelKeyRequest");
    return Guarded(
        kPolicy,
        [&] {
            VELMORA_LOG(kLog, 2) << Entry{"cancelKeyRequest", impl};
            return StatusOf(drm().CancelKeyRequest(Utilities::TextOrEmpty(session_id)));
        },
        this);
}

UVA_STATUS DrmBackendWrapper::getKeyReleases() {
    static constexpr CallPolicy kPolicy = DrmCall("getKeyReleases");
    return Guarded(
        kPolicy,
        [&] {
            VELMORA_LOG(kLog, 2) << Entry{"getKeyReleases", impl};
            return StatusOf(drm().GetKeyReleases());
        },
        this);
}

UVA_STATUS DrmBackendWrapper::addKeyReleaseCommit(const unsigned char* data, unsigned int size,
                                                  const char* session_id) {
    static constexpr CallPolicy kPolicy = DrmCall("addKeyReleaseCommit");
    return Guarded(
        kPolicy,
        [&] {
            VELMORA_LOG(kLog, 2) << Entry{"addKeyReleaseCommit", impl};
            const boost::shared_ptr<unsigned char> dataCopy = Utilities::CopyToSharedBytes(data, size);
            return StatusOf(drm().AddKeyReleaseCommit(dataCopy, size, Utilities::TextOrEmpty(session_id)));
        },
        this);
}

UVA_STATUS DrmBackendWrapper::sendDRMMessage(const char* msg_type, const char* msg, char*& result) {
    static constexpr CallPolicy kPolicy = DrmCall("sendDRMMessage");
    return Guarded(
        kPolicy,
        [&] {
            VELMORA_LOG(kLog, 2) << Entry{"sendDRMMessage", impl};
            const std::string message = Utilities::TextOrEmpty(msg);
            const std::string messageType = Utilities::TextOrEmpty(msg_type);
            std::string sessionId;
            if (!drm().SendDrmMessage(messageType, message, sessionId)) {
                throw GenericErrorException(kSendDrmMessageFailed);
            }
            // The browser frees the session id with free().
            result = static_cast<char*>(std::malloc(sessionId.size() + 1));
            if (result == nullptr) {
                throw GenericErrorException(kSessionIdAllocationFailed);
            }
            std::strcpy(result, sessionId.c_str());
            return UVA_STATUS_OK;
        },
        this);
}

// The media stack decrypts by itself: the browser gets no decrypters. These answer without a guard, so
// their lines are dropped rather than thrown when there is no memory for them.
UVA_STATUS DrmBackendWrapper::getDecrypter(UVADRMDecrypter*& /*decrypter*/, const unsigned char* /*key_id*/,
                                           unsigned int /*key_id_size*/, bool /*flag*/) {
    VELMORA_LOG_QUIET(kLog, 2) << "getDecrypter";
    return UVA_STATUS_ERROR_2;
}

UVA_STATUS DrmBackendWrapper::releaseDecrypter(UVADRMDecrypter* /*decrypter*/) {
    VELMORA_LOG_QUIET(kLog, 2) << "releaseDecrypter";
    return UVA_STATUS_ERROR_2;
}

void DrmBackendWrapper::stopDecrypters() { VELMORA_LOG_QUIET(kLog, 2) << "stopDecrypters"; }

// The media stack finds the init data in the stream itself.
UVA_STATUS DrmBackendWrapper::onInitData(const unsigned char* /*init_data*/, unsigned int /*init_data_size*/) {
    VELMORA_LOG_QUIET(kLog, 2) << "onInitData";
    return UVA_STATUS_ERROR_2;
}

void DrmBackendWrapper::DrmBackendEventHandler(boost::shared_ptr<DrmBackendEvent> event) {
    if (!event) {
        VELMORA_LOG(kLog, 5) << "DrmBackendEventHandler" << kNullEventIgnored;
        return;
    }
    VELMORA_LOG(kLog, 2) << "DrmBackendEventHandler"
                         << "; (sending event to Opera) " << Utilities::ConvertEventIdToString(event->type);
    UVADRMEvent* browserEvent = TranslateDrmEvent(*event);
    if (browserEvent == nullptr) {
        // The DRM wrapper has always reported these under the media wrapper's wording.
        VELMORA_LOG(kLog, 5) << kMediaEventNotHandled << Utilities::ConvertEventIdToString(event->type);
        return;
    }
    if (client != nullptr) {
        client->handleDRMEvent(browserEvent);  // the browser owns it from here
        return;
    }
    delete browserEvent;
    VELMORA_LOG(kLog, 5) << "DrmBackendEventHandler Event cannot be sent since client is not set!";
}

}  // namespace Wrapper
}  // namespace Velmora
