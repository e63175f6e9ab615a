#pragma once
// The browser's result type for every back-end operation.

enum UVA_STATUS {
    UVA_STATUS_ERROR = 0,    // failure
    UVA_STATUS_OK = 1,       // success
    UVA_STATUS_ERROR_2 = 2,  // "no", not supported, or the media stack's error types 2 and 4
    UVA_STATUS_ERROR_3 = 3,  // the media stack's error type 3
};
