#pragma once
// Counts of the browser-side objects alive right now, so that a test or a simulator can tell at the
// end of a session that nothing the back-end library created or took over was leaked or freed twice.

struct UvaLiveObjects {
    long events;       // UVAEvent and subclasses
    long drmEvents;    // UVADRMEvent and subclasses
    long components;   // UVABackend::AVComponent
    long backends;     // UVABackend (media and broadcast)
    long drmBackends;  // UVADRMBackend
    long samples;      // UVABackend::MediaSample
    long sources;      // UVABackend::SourceDescription

    bool operator==(const UvaLiveObjects& other) const;
    long Total() const;
};

UvaLiveObjects uvaLiveObjects();
