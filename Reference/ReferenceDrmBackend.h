#pragma once
// A clear-key-like DRM back-end.
//
// Init data is a list of 16-byte key ids. A key request opens a session and raises a key message
// that names the key ids; the browser fetches the keys (from the scenario's "license server", which
// knows StackOptions::contentKeys) and adds them: the right keys complete the session and become
// usable for decryption, wrong ones raise a key error. A completed session that is cancelled leaves a
// key release, reported by GetKeyReleases and committed by AddKeyReleaseCommit. OIPF DRM messages
// are answered with a result message. Events are raised by Step(), never inside a browser call.

#include <boost/enable_shared_from_this.hpp>
#include <boost/signals2/signal.hpp>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "FaultInjector.h"
#include "Outbox.h"
#include "StackOptions.h"
#include "StepThread.h"
#include "Velmora/IDrmBackend.h"

namespace Velmora {
namespace Reference {

class ReferenceDrmBackend : public IDrmBackend, public boost::enable_shared_from_this<ReferenceDrmBackend> {
public:
    static constexpr const char* kClearKey = "org.w3.clearkey";
    static constexpr const char* kOipfId = "urn:velmora:reference-clearkey";
    static constexpr const char* kLicenseUrl = "https://license.velmora.example/clearkey";
    // The one OIPF DRM message type this back-end understands.
    static constexpr const char* kDrmMessageType = "application/vnd.velmora.reference-drm";
    static constexpr std::uint32_t kKeyIdSize = 16;
    // A wrong key is the application's fault: the media keys' "client" error.
    static constexpr std::int32_t kKeyErrorClient = 2;
    static constexpr std::uint16_t kSystemCodeWrongKey = 1;
    // OIPF DRM message result codes.
    static constexpr double kResultSuccessful = 0;
    static constexpr double kResultCannotProcess = 2;
    static constexpr double kResultUnknownMimeType = 3;

    static boost::shared_ptr<ReferenceDrmBackend> Create(const std::string& keySystem, const StackOptions& options,
                                                         std::shared_ptr<FaultInjector> faults);
    ~ReferenceDrmBackend() override;

    // Raises the events decided since the last step, on the calling thread, which holds a shared
    // pointer to the back-end meanwhile. Not to be called from inside one of its own events.
    void Step();

    // The media stack's side: a media back-end met content that needs `keyId` (raises KeyNeeded).
    void KeyNeeded(const std::string& keyId);
    // Whether a completed session holds the key for `keyId`.
    bool HasKey(const std::string& keyId) const;

    const std::string& GetId() const override;
    const std::string& GetOIPFId() const override;
    bool GenerateKeyRequest(boost::shared_ptr<unsigned char> initData, std::uint32_t initDataSize) override;
    bool AddKey(boost::shared_ptr<unsigned char> key, std::uint32_t keySize, boost::shared_ptr<unsigned char> initData,
                std::uint32_t initDataSize, const std::string& sessionId) override;
    bool CancelKeyRequest(const std::string& sessionId) override;
    bool GetKeyReleases() override;
    bool AddKeyReleaseCommit(boost::shared_ptr<unsigned char> data, std::uint32_t size,
                             const std::string& sessionId) override;
    bool SendDrmMessage(const std::string& msgType, const std::string& msg, std::string& sessionId) override;
    boost::signals2::connection ConnectDrmEvent(const DrmEventSlot& slot) override;

private:
    ReferenceDrmBackend(const std::string& keySystem, const StackOptions& options,
                        std::shared_ptr<FaultInjector> faults);

    enum class SessionState { Pending, Failed, Usable, Released };

    struct Session {
        std::vector<std::string> keyIds;
        SessionState state = SessionState::Pending;
    };

    // The session `sessionId` names or, when it is empty, the open session for the key ids in `initData`.
    Session* FindSession(std::string& sessionId, const std::string& initData);
    std::string NewSessionId(const char* prefix);

    const std::string keySystem;
    const std::string oipfId;
    const std::map<std::string, std::string> contentKeys;
    const std::shared_ptr<FaultInjector> faults;

    mutable std::mutex mutex;
    std::map<std::string, Session> sessions;
    std::set<std::string> usableKeys;
    std::uint32_t serial = 0;

    std::mutex stepping;
    Outbox<DrmBackendEvent> outbox;
    std::unique_ptr<StepThread> thread;  // last: the first member to go
};

}  // namespace Reference
}  // namespace Velmora
