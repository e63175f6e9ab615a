# The reference stack's sources, relative to this directory. Kept apart from CMakeLists.txt so that a
# build outside the project (Tests/Conformance/OutsideStack) compiles exactly the same files.
set(velmora_reference_sources
    ComponentSet.cpp
    FaultInjector.cpp
    MediaSourceQueue.cpp
    ReferenceBroadcastBackend.cpp
    ReferenceComponent.cpp
    ReferenceDrmBackend.cpp
    ReferenceMediaBackend.cpp
    ReferenceUva.cpp
    SampleValidation.cpp
    StackFactory.cpp
    StackOptions.cpp
    StepThread.cpp)
