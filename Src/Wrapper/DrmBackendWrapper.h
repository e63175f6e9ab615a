#pragma once
// The browser's view of one content protection back-end of the media stack. The DRM registry creates one
// for each DRM back-end the browser requests and destroys it when the browser releases it. Calls are
// forwarded to the media stack's IDrmBackend; its DRM events reach the browser's UVADRMClient.

#include <boost/shared_ptr.hpp>
#include <boost/signals2/connection.hpp>

#include "SlotGate.h"
#include "StackInterface.h"
#include "Uva/UVAClient.h"
#include "Uva/UVADRMBackend.h"
#include "Velmora/DrmBackendEvents.h"
#include "Velmora/IDrmBackend.h"

namespace Velmora {
namespace Wrapper {

class DrmBackendWrapper : public UVADRMBackend {
public:
    // The back-end's DRM events are followed only when `client` is set: without a client they go nowhere.
    // An empty `impl` (the media stack had no back-end) gives a wrapper whose every operation fails.
    DrmBackendWrapper(boost::shared_ptr<IDrmBackend> impl, UVADRMClient* client);
    ~DrmBackendWrapper() override;

    // The media stack's back-end behind this wrapper (a new share of it).
    boost::shared_ptr<IDrmBackend> GetDrmBackendImplPtr();

    // Keeps the media stack's threads out of this wrapper once its release begins.
    const SlotGate& Gate() const { return gate; }

    // Runs on the media stack's thread: hands the browser its copy of `event`.
    void DrmBackendEventHandler(boost::shared_ptr<DrmBackendEvent> event);

    const char* getId() const override;
    const char* getOIPFId() const override;
    UVA_STATUS generateKeyRequest(const unsigned char* init_data, unsigned int init_data_size) override;
    UVA_STATUS addKey(const unsigned char* key, unsigned int key_size, const unsigned char* init_data,
                      unsigned int init_data_size, const char* session_id) override;
    UVA_STATUS cancelKeyRequest(const char* session_id) override;
    UVA_STATUS getKeyReleases() override;
    UVA_STATUS addKeyReleaseCommit(const unsigned char* data, unsigned int size, const char* session_id) override;
    UVA_STATUS sendDRMMessage(const char* msg_type, const char* msg, char*& result) override;
    UVA_STATUS getDecrypter(UVADRMDecrypter*& decrypter, const unsigned char* key_id, unsigned int key_id_size,
                            bool flag) override;
    UVA_STATUS releaseDecrypter(UVADRMDecrypter* decrypter) override;
    void stopDecrypters() override;
    UVA_STATUS onInitData(const unsigned char* init_data, unsigned int init_data_size) override;

private:
    boost::shared_ptr<IDrmBackend> impl;
    const StackInterface<IDrmBackend> drm;
    boost::signals2::scoped_connection eventConnection;
    UVADRMClient* client;
    SlotGate gate;
};

}  // namespace Wrapper
}  // namespace Velmora
