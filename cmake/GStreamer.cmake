# GStreamer is needed only by the GStreamer media stack, its tests, its benchmark and the simulator's
# GStreamer sessions; everything else builds without it.
# Kept in the cache so that scripts (.ci/run) can see whether the GStreamer targets exist.
set(VELMORA_WITH_GSTREAMER OFF CACHE INTERNAL "the GStreamer media stack is built")
if(CMAKE_CROSSCOMPILING)
    message(STATUS "Cross build: the GStreamer media stack and its sessions are skipped")
else()
    find_package(PkgConfig QUIET)
    find_program(VELMORA_GST_LAUNCH gst-launch-1.0)
    if(PkgConfig_FOUND)
        pkg_check_modules(VELMORA_GSTREAMER QUIET IMPORTED_TARGET gstreamer-1.0>=1.20 gstreamer-app-1.0 gstreamer-video-1.0
                          gstreamer-tag-1.0)
    endif()
    if(VELMORA_GSTREAMER_FOUND AND VELMORA_GST_LAUNCH)
        set(VELMORA_WITH_GSTREAMER ON CACHE INTERNAL "the GStreamer media stack is built")
    else()
        message(STATUS "GStreamer development files or gst-launch-1.0 not found: the GStreamer media stack, "
                       "its tests and the simulator's GStreamer sessions are skipped (scripts/install-deps installs them)")
    endif()
endif()

# GLib synchronises with futexes ThreadSanitizer cannot see; its suppressions stay inside GLib and GStreamer.
# They match only a stack ThreadSanitizer still remembers: a message written on a streaming thread long
# before the bus thread reads it needs the longest history, or its writer shows as "failed to restore".
set(VELMORA_GST_TEST_ENVIRONMENT
    "TSAN_OPTIONS=halt_on_error=1:history_size=7:second_deadlock_stack=1:suppressions=${PROJECT_SOURCE_DIR}/Tests/tsan-gstreamer.supp")
