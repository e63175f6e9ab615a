#pragma once
// A content protection back-end as the browser drives it.

#include "Uva/UVAStatus.h"

class UVADRMBackend {
public:
    // Decrypts media data on the browser's side.
    class UVADRMDecrypter {
    public:
        virtual ~UVADRMDecrypter();
        virtual UVA_STATUS decrypt(const unsigned char* iv, unsigned int iv_size, unsigned char* data,
                                   unsigned int data_size) = 0;
    };

    UVADRMBackend();
    virtual ~UVADRMBackend();
    UVADRMBackend(const UVADRMBackend&) = delete;
    UVADRMBackend& operator=(const UVADRMBackend&) = delete;

    // The back-end keeps the returned text alive as long as it lives; the browser never frees it.
    virtual const char* getId() const = 0;
    virtual const char* getOIPFId() const = 0;
    virtual UVA_STATUS generateKeyRequest(const unsigned char* init_data, unsigned int init_data_size) = 0;
    virtual UVA_STATUS addKey(const unsigned char* key, unsigned int key_size, const unsigned char* init_data,
                              unsigned int init_data_size, const char* session_id) = 0;
    virtual UVA_STATUS cancelKeyRequest(const char* session_id) = 0;
    virtual UVA_STATUS getKeyReleases() = 0;
    virtual UVA_STATUS addKeyReleaseCommit(const unsigned char* data, unsigned int size, const char* session_id) = 0;
    // On success `result` receives a malloc'd session id that the browser frees.
    virtual UVA_STATUS sendDRMMessage(const char* msg_type, const char* msg, char*& result) = 0;
    virtual UVA_STATUS getDecrypter(UVADRMDecrypter*& decrypter, const unsigned char* key_id, unsigned int key_id_size,
                                    bool flag) = 0;
    virtual UVA_STATUS releaseDecrypter(UVADRMDecrypter* decrypter) = 0;
    virtual void stopDecrypters() = 0;
    virtual UVA_STATUS onInitData(const unsigned char* init_data, unsigned int init_data_size) = 0;
};
