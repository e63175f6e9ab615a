#pragma once
// A content protection back-end of the media stack.
//
// Calls arrive on the browser's thread; DRM events may be raised on any thread and are handed to the
// browser on that thread. Byte blocks arrive as shared arrays of exactly the given length that the
// media stack may keep. GetId and GetOIPFId return references to strings the back-end keeps alive and
// unchanged for as long as it lives: the browser reads their characters without a copy. Failures are
// reported by throwing an ExceptionBase; a bool result answers yes or no.

#include <boost/shared_ptr.hpp>
#include <boost/signals2/connection.hpp>
#include <boost/signals2/slot.hpp>
#include <cstdint>
#include <string>

#include "Velmora/DrmBackendEvents.h"
#include "Velmora/Export.h"

namespace Velmora {

class VELMORA_EXPORT IDrmBackend {
public:
    using DrmEventSlot = boost::signals2::slot<void(boost::shared_ptr<DrmBackendEvent>)>;

    virtual ~IDrmBackend();

    virtual const std::string& GetId() const = 0;
    virtual const std::string& GetOIPFId() const = 0;
    virtual bool GenerateKeyRequest(boost::shared_ptr<unsigned char> initData, std::uint32_t initDataSize) = 0;
    virtual bool AddKey(boost::shared_ptr<unsigned char> key, std::uint32_t keySize,
                        boost::shared_ptr<unsigned char> initData, std::uint32_t initDataSize,
                        const std::string& sessionId) = 0;
    virtual bool CancelKeyRequest(const std::string& sessionId) = 0;
    virtual bool GetKeyReleases() = 0;
    virtual bool AddKeyReleaseCommit(boost::shared_ptr<unsigned char> data, std::uint32_t size,
                                     const std::string& sessionId) = 0;
    // Fills `sessionId` with the session the answer (a DrmMessageResult event) will carry.
    virtual bool SendDrmMessage(const std::string& msgType, const std::string& msg, std::string& sessionId) = 0;
    virtual boost::signals2::connection ConnectDrmEvent(const DrmEventSlot& slot) = 0;
};

}  // namespace Velmora
