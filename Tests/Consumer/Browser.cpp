// The browser's side: loads the installed library by path, as a browser does, and finds its entry points.
#include <dlfcn.h>

#include <cstdio>

#include "Uva/UVABackendLibrary.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s PATH-TO-libvelmora.so\n", argv[0]);
        return 2;
    }
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::fprintf(stderr, "browser: %s\n", dlerror());
        return 1;
    }
    // No owner has installed a media stack: requests are refused, the key systems are listed anyway.
    // The full list of exports is the exported_symbols test's; these two are what the browser calls first.
    auto request = reinterpret_cast<UVA_RequestBackendFunction>(dlsym(library, "UVA_RequestBackend"));
    auto listIds =
        reinterpret_cast<UVADRM_GetSupportedBackendIDsFunction>(dlsym(library, "UVADRM_GetSupportedBackendIDs"));
    const char** ids = nullptr;
    const bool ok = request != nullptr && listIds != nullptr &&
                    request(UVABackend::UVABackendType(0), nullptr) == nullptr && listIds(ids) == 1 &&
                    ids[0] != nullptr;
    delete[] ids;
    if (!ok) {
        std::fputs("browser: an entry point missing or unexpected answers\n", stderr);
        return 1;
    }
    std::printf("browser: OK, loaded %s\n", argv[1]);
    return 0;
}
