#pragma once
// How an owner finds a media stack without linking against it. Every media stack library exports one
// function with C linkage, VelmoraCreateStack, that makes the stack's root object. The owner opens the
// library with dlopen, looks the function up by VELMORA_STACK_FACTORY_SYMBOL and hands what it returns to
// an IntegrationLayer, which owns it from then on:
//
//     void* library = dlopen("libvelmora_gst.so", RTLD_NOW);
//     auto create = reinterpret_cast<Velmora::StackFactory>(dlsym(library, VELMORA_STACK_FACTORY_SYMBOL));
//     Velmora::IUva* uva = create(VELMORA_STACK_INTERFACE_VERSION, "");
//     if (uva != nullptr) { Velmora::Wrapper::IntegrationLayer layer(uva); ... }
//
// In a stack library:
//
//     VELMORA_STACK_FACTORY Velmora::IUva* VelmoraCreateStack(unsigned interfaceVersion, const char* options) {
//         ...
//     }
//
// Rules for the factory:
// - `interfaceVersion` is the VELMORA_STACK_INTERFACE_VERSION the owner was built with; a stack built
//   against another version returns null, because the interfaces' layout may differ.
// - `options` is null, empty, or `name=value` pairs separated by `;`. Each stack documents the names it
//   reads. A name it does not know, or a value it cannot use, makes it return null.
// - It never throws (C linkage): on any failure it writes one line saying why to stderr and returns null.
// - The library must stay loaded for as long as anything it made is alive: its code runs the back-ends'
//   destructors, which the library may call after the IntegrationLayer is gone.

#include <string>

#include "Velmora/IUva.h"

#define VELMORA_STACK_INTERFACE_VERSION 1u
#define VELMORA_STACK_FACTORY_SYMBOL "VelmoraCreateStack"
#define VELMORA_STACK_FACTORY extern "C" __attribute__((visibility("default")))

namespace Velmora {

using StackFactory = IUva* (*)(unsigned interfaceVersion, const char* options);

// Walks a factory's options text: calls `apply(name, value)` for each `name=value` pair in order (empty
// pairs are skipped). Stops at the first pair without '=' or that `apply` refuses (returns false), puts
// that pair in `refused` and returns false.
template <typename Apply>
bool ForEachStackOption(const char* options, Apply apply, std::string& refused) {
    const std::string all = options != 0 ? options : "";
    std::string::size_type begin = 0;
    while (begin < all.size()) {
        std::string::size_type end = all.find(';', begin);
        if (end == std::string::npos) {
            end = all.size();
        }
        const std::string pair = all.substr(begin, end - begin);
        begin = end + 1;
        const std::string::size_type equals = pair.find('=');
        if (!pair.empty() && (equals == std::string::npos || !apply(pair.substr(0, equals), pair.substr(equals + 1)))) {
            refused = pair;
            return false;
        }
    }
    return true;
}

}  // namespace Velmora
