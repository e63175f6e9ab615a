#!/usr/bin/env python3
"""Writes the session fuzzer's starting corpus into Tests/Fuzz/Corpus (replacing what is there).

Each file is one browser session in the harness's input format:
    [log level byte] [browser script length, 2 bytes little-endian] [browser script] [media stack's answers]
The helpers below mirror how SessionFuzzer.cpp reads its bytes; an empty answer stream means a media
stack that does what it is asked. Run it again after changing the harness's input format.
"""

import os
import struct
import sys

# Browser operations, in the harness's order.
(REQUEST, RELEASE, RELEASE_FOREIGN, REQUEST_DRM, RELEASE_DRM, SUPPORTED_IDS, MEDIA, BROADCAST, DRM, WRITE_DATA,
 RAISE, RAISE_DRM, COMPONENT_STATE, DRM_REQUEST, HANDLE_LOOKUP, DROP_COMPONENT, CLIENT_CHOICE, RESTART) = range(18)

# Each back-end's calls: first those whose arguments are read by parameter type, then the rest.
MEDIA_OPS = ("remove setSource queue loop windowId videoWindow clipRect nativeSize buffered seekable canPlayUrl "
             "play stop pause rate volume duration contentSize getPosition setPosition visibility "
             "sizeFromDuration fullScreen listener buffering bytesInBuffer keySystem "
             "init attach frame canPlayType mimetypes select").split()
BROADCAST_OPS = ("windowId init release videoWindow clipRect fullScreen visibility volume next previous stop "
                 "playState listener currentChannel setChannel bind offset maxOffset record stopRecording pause "
                 "resume setSpeed setPosition stopTimeShift recordingState getPosition getSpeed "
                 "select speeds").split()
DRM_OPS = ("cancelKeyRequest getKeyReleases sendDRMMessage releaseDecrypter stopDecrypters "
           "getId getOIPFId generateKeyRequest addKey addKeyReleaseCommit getDecrypter onInitData").split()

# Stack answers (StackScript::Answer): 0 yes, 1 no, 10.. throws.
YES, NO, THROW_BASE, THROW_GENERIC, THROW_STD, THROW_INT, THROW_STRING, THROW_OWN = 0, 1, 10, 11, 12, 13, 14, 15


def u8(value):
    return bytes([value & 0xFF])


def u32(value):
    return struct.pack("<I", value & 0xFFFFFFFF)


def text(value):
    if value is None:
        return u8(0xFF)
    data = value.encode("latin-1")
    return u8(len(data)) + data


def block(data):
    return u8(len(data)) + bytes(data)


def double(value):
    odd = {"nan": 1, "inf": 2, "-inf": 3, "-0": 4, "max": 5, "-max": 6, "denorm": 7}
    if value in odd:
        return u8(odd[value])
    if value < 0 or value * 2 != int(value * 2) or value > 123:
        return u8(8) + struct.pack("<d", value)  # the raw bits
    return u8(9 + int(value * 2))


def flag(value):
    return u8(1 if value else 0)


def media(op, *args, pick=0):
    return u8(MEDIA) + u8(pick) + u8(MEDIA_OPS.index(op)) + b"".join(args)


def broadcast(op, *args, pick=0):
    return u8(BROADCAST) + u8(pick) + u8(BROADCAST_OPS.index(op)) + b"".join(args)


def drm(op, *args, pick=0):
    return u8(DRM) + u8(pick) + u8(DRM_OPS.index(op)) + b"".join(args)


def request(kind, client=True):
    return u8(REQUEST) + u8(kind) + u8(0 if client else 7)


def release(which, twice=False):
    return u8(RELEASE) + u8(which | (0x80 if twice else 0))


def request_drm(key_system, client=True):
    return u8(REQUEST_DRM) + text(key_system) + u8(0 if client else 7)


def streaming_source(kind, source_id=1, encrypted=False, mime="video/mp4"):
    return u8(0) + u8([0, 1, 2, -1, 4].index(kind)) + u32(source_id) + flag(encrypted) + u32(0) + text(mime)


def url_source(url):
    return u8(3) + text(url)


def init(url, sources, flag_value=False, null_list=False):
    count = 4 if null_list else len(sources)
    return media("init", text(url), u8(count), *sources, flag(flag_value))


def event(backend, code, fields=b"", shape=0, new_component=False):
    """A media stack event on stack back-end `backend`; shape 3 + 4k raises it on class k instead."""
    return u8(RAISE) + u8(backend) + u8(0 if new_component else 1) + u8(code) + u8(shape) + fields


def component_event(backend, component, action, new_component=False):
    return event(backend, 26, u8(component) + u8(action), new_component=new_component)


def drm_event(backend, code, fields=b"", key_system="org.w3.clearkey", session="session-1", shape=0):
    return u8(RAISE_DRM) + u8(backend) + u8(code) + u8(shape) + text(key_system) + text(session) + flag(True) + fields


def sample(data, key_id=b"", iv=b"", config=b"", sub_samples=()):
    out = u8(0) + block(data) + block(key_id) + block(iv) + block(config) + u32(40) + u32(33) + u32(1920)
    out += u8(len(sub_samples)) + b"".join(u32(clear) + u32(encrypted) for clear, encrypted in sub_samples)
    return out


def write_mse(samples, pick=0, which=0, status=0):
    return u8(WRITE_DATA) + u8(pick) + u8(which) + u8(len(samples)) + b"".join(samples) + u32(0) + u8(status)


def write_need_data(size, pick=0, which=0, status=0):
    return u8(WRITE_DATA) + u8(pick) + u8(which) + u32(size) + u32(size) + u8(status)


# Arguments for each operation that takes any, for the sessions that call every operation once.
MEDIA_ARGS = {
    "init": text("http://tv/a.mp4") + u8(1) + streaming_source(0) + flag(False),
    "attach": flag(False) + streaming_source(1), "remove": u32(1), "setSource": text("u"),
    "queue": text(None), "loop": text("true"), "windowId": u32(7), "videoWindow": u32(1) * 4,
    "clipRect": u32(2) * 4, "frame": u8(8),
    "canPlayUrl": text("u"), "canPlayType": text("video/mp4") + text("") + u8(0) + flag(True), "pause": flag(True),
    "rate": double(2), "volume": double(0.5), "contentSize": u32(640) + u32(480), "setPosition": double(3),
    "visibility": flag(True) + flag(False), "sizeFromDuration": double(1), "fullScreen": flag(True),
    "listener": text(None), "buffering": u8(1), "keySystem": text("org.w3.clearkey"),
    "select": flag(True) + u8(0xFE),
}
BROADCAST_ARGS = {
    "windowId": u8(1), "init": text(None), "videoWindow": u32(3) * 4, "clipRect": u32(4) * 4, "fullScreen": flag(False),
    "visibility": flag(True) + flag(True), "volume": double("nan"), "select": flag(False) + u8(0xFE),
    "listener": text("l"), "setChannel": u8(1) + flag(True) * 2 + text("ca") + flag(True) * 2,
    "speeds": u8(3), "record": double("inf"), "setSpeed": double("-inf"), "setPosition": double("max") + u8(3),
}


def session(script, answers=b"", log=0):
    return u8(log) + struct.pack("<H", len(script)) + script + answers


def corpus():
    files = {}

    files["media-url"] = session(
        request(0) + init("http://tv/stream.ts", [url_source("http://tv/stream.ts")], True) + media("play") +
        media("volume", double("nan")) + media("rate", double("inf")) + media("setPosition", double("-0")) +
        media("duration") + media("getPosition") + media("nativeSize") + media("frame", u8(16)) +
        media("buffered") + media("seekable") + media("mimetypes") +
        media("canPlayType", text("video/mp4"), text(None), u8(2), text("avc1"), text("mp4a"), flag(False)) +
        media("canPlayUrl", text(None)) + media("videoWindow", u32(0), u32(0), u32(1280), u32(720)) +
        event(0, 6, double(12.5)) + event(0, 7, u32(1920) + u32(1080) + double(1.5)) + event(0, 5) +
        media("stop") + release(0),
        answers=u8(YES) + u8(1) + u8(YES) * 12 + u8(3) + u32(0) + u32(90) + u32(0) + u32(1000),
        log=1)

    files["media-source"] = session(
        request(1) + init(None, [streaming_source(0, 1), streaming_source(1, 2, True, "audio/mp4")]) +
        event(0, 2, u32(7) + u8(2)) +
        write_mse([sample(b"frame-one", b"k" * 16, b"i" * 8, b"cfg", [(4, 5)]), sample(b"frame-two")]) +
        event(0, 1, u32(1) + u32(2) + u32(3) + u32(4)) + write_need_data(4096) +
        event(0, 4, double(3) + u32(9)) + media("attach", flag(False), streaming_source(2, 3)) +
        media("remove", u32(3)) + media("bytesInBuffer") + release(0))

    # The browser's event destructor stops at the first null entry, so the browser never stores a sample after one.
    files["media-source-early-null"] = session(
        request(1) + init(None, [streaming_source(0, 1)]) + event(0, 2, u32(7) + u8(3)) +
        write_mse([u8(3), sample(b"never-stored")]) + release(0))

    files["media-components"] = session(
        request(0) + component_event(0, 0, 0, new_component=True) + component_event(0, 0, 0) +
        u8(COMPONENT_STATE) + u8(0) + flag(True) + media("select", flag(True), u8(0)) +
        media("select", flag(False), u8(0)) + media("select", flag(True), u8(0xFE)) +
        media("select", flag(True), u8(0xFF)) + component_event(0, 0, 2) + component_event(0, 0, 1) +
        component_event(0, 0, 1) + u8(DROP_COMPONENT) + u8(0) + release(0, twice=True))

    files["broadcast"] = session(
        request(2) + broadcast("windowId", u8(1)) + u8(HANDLE_LOOKUP) + u8(1) + u8(HANDLE_LOOKUP) + u8(2) +
        broadcast("init", text("dvb://1.2.3")) +
        broadcast("setChannel", u8(2), flag(True), flag(False), text(None), flag(True), flag(False)) + broadcast("currentChannel") +
        broadcast("speeds", u8(4)) + broadcast("speeds", u8(0)) + broadcast("record", double(30)) +
        broadcast("setPosition", double(-1), u8(2)) + broadcast("offset") + broadcast("getSpeed") +
        event(0, 14, u32(2) + u32(0)) + event(0, 15, u8(3) + u32(1)) + event(0, 16, u8(3)) +
        event(0, 18, u32(4) + text("rec-1")) + event(0, 19, u32(2) + text(None)) + event(0, 25, text("deu")) +
        event(0, 12, text("content") + text(None) + u32(18)) + component_event(0, 0, 0, new_component=True) +
        broadcast("select", flag(True), u8(0)) + component_event(0, 0, 1) + event(0, 5) + event(0, 30) +
        broadcast("release") + release(0),
        answers=u8(YES) * 12 + u8(3) + u8(9) * 3 + u8(YES) * 40)

    files["drm"] = session(
        request_drm("org.w3.clearkey") + drm("getId") + drm("getOIPFId") +
        drm("generateKeyRequest", block(b"init-data")) +
        drm("addKey", block(b"key"), block(b""), text("session-1")) + drm("cancelKeyRequest", text(None)) +
        drm("sendDRMMessage", text("application/vnd.oipf.cspg-hexbinary"), text("<msg/>")) +
        drm("addKeyReleaseCommit", block(b"commit"), text(None)) + drm("getKeyReleases") +
        drm("getDecrypter", block(b"kid"), flag(True)) + drm("releaseDecrypter") + drm("stopDecrypters") +
        drm("onInitData", block(b"")) +
        drm_event(0, 0, block(b"pssh") + flag(True)) + drm_event(0, 1, text(None) + block(b"challenge")) +
        drm_event(0, 2) + drm_event(0, 3, u32(7) + u32(2)) + drm_event(0, 4, text("ok") + double(1)) +
        drm_event(0, 5) + drm_event(0, 1, block(b"x") + flag(False), shape=3) +
        request(1) + u8(CLIENT_CHOICE) + u8(1) + u8(0) + flag(False) + u8(DRM_REQUEST) + u8(0) + text("org.w3.clearkey") +
        u8(CLIENT_CHOICE) + u8(2) + u8(0) + flag(False) + u8(DRM_REQUEST) + u8(0) + text("x") +
        u8(DRM_REQUEST) + u8(0) + text("") + u8(SUPPORTED_IDS) + u8(RELEASE_DRM) + u8(0) + release(0),
        answers=u8(YES) + u8(0) + text("oipf-1") + u8(YES) * 6 + text("session-9") + u8(YES) * 20,
        log=1)

    # Every call of a media stack that fails, in every way it can.
    failing = bytes([10, 0, 0, 10, 1, 0, 10, 2, 0, 10, 3, 0, 10, 5, 0, 11, 0, 12, 0, 13, 14, 15, 1] * 6)
    # A source first, so that the calls after it meet an initialised back-end.
    every_media_call = b"".join(media(op, MEDIA_ARGS.get(op, b""))
                                for op in sorted(MEDIA_OPS, key=lambda op: op not in ("init", "attach")))
    every_media_call += media("select", flag(False), u8(0xFF))  # and an unselection, of no component
    files["media-stack-throws"] = session(request(0) + every_media_call, answers=u8(YES) * 4 + failing)
    files["media-stack-answers"] = session(request(0) + every_media_call, log=1)
    every_broadcast_call = b"".join(broadcast(op, BROADCAST_ARGS.get(op, b"")) for op in BROADCAST_OPS)
    files["broadcast-stack-throws"] = session(request(2) + every_broadcast_call, answers=u8(YES) * 4 + failing)
    files["broadcast-stack-answers"] = session(request(2) + every_broadcast_call, log=2)

    files["null-and-odd-arguments"] = session(
        request(0) + request(2) + media("attach", flag(True)) + init(None, [], null_list=True) + init("u", []) +
        init("u", [streaming_source(-1)]) + init("u", [streaming_source(0), streaming_source(1), url_source(None)]) +
        media("canPlayType", text(None), text(None), u8(0), flag(True)) + media("select", flag(True), u8(0xFF)) +
        media("select", flag(False), u8(0xFE)) + media("setSource", text(None)) + media("keySystem", text(None)) +
        broadcast("setPosition", double("nan"), u8(0)) + broadcast("setPosition", double(-2), u8(1)) +
        broadcast("setPosition", double("-inf"), u8(2)) + broadcast("select", flag(True), u8(0xFF)) +
        broadcast("speeds", u8(1)) + broadcast("setChannel", u8(0), flag(False), flag(False), text(None), flag(False), flag(False)) + release(1) + release(0),
        answers=u8(YES) * 60 + u8(15) + u8(YES) * 20)

    # Null events and a component event without its component: the library logs and ignores them.
    files["null-events"] = session(
        request(0) + request(2) + request_drm("org.w3.clearkey") + event(0, 6, shape=0xFF) +
        event(1, 14, shape=0xFF) + drm_event(0, 2, shape=0xFF) + u8(RAISE) + u8(1) + u8(1) + u8(26) + u8(0) + u8(0) + u8(0) +
        u8(RAISE) + u8(0) + u8(1) + u8(26) + u8(0) + u8(0) + u8(0))

    files["null-backends"] = session(
        request(0) + request(2) + request(3) + request_drm(None) + media("play") + broadcast("stop") +
        drm("getId") + release(0) + u8(RELEASE_FOREIGN) + flag(True) + u8(RELEASE_FOREIGN) + flag(False),
        answers=u8(YES) + u8(1) + u8(YES) + u8(2) + u8(YES) + u8(YES) + u8(1))

    files["wrong-kind-backends"] = session(
        request(0) + request(2) + request(1) + media("play") + broadcast("stop") + media("select", flag(True), u8(0xFF)),
        answers=u8(YES) + u8(2) + u8(YES) + u8(YES) + u8(2) + u8(YES) + u8(YES) + u8(3) + u8(YES) * 8)

    files["requests-throw"] = session(
        request(0) + request(2) + request_drm("org.w3.clearkey") + request(0) + RESTART.to_bytes(1, "little") + request(1),
        answers=bytes([13, 14, 15, 10, 3, 0]) + u8(YES) * 8)

    files["release-in-handler"] = session(
        request(0) + u8(CLIENT_CHOICE) + u8(0) + u8(0) + flag(True) + component_event(0, 0, 0, new_component=True) +
        event(0, 6, double(1)) + request(2) + u8(CLIENT_CHOICE) + u8(0) + u8(1) + flag(True) + event(1, 14, u32(1) + u32(0)))

    # Every event code on each kind of back-end, on its own class and on a class of another code.
    every_code = b""
    for code in range(29):
        every_code += event(0, code, b"\x01" * 24) + event(1, code, b"\x01" * 24, shape=3 + 4 * (code % 18))
    files["every-event-code"] = session(request(0) + request(2) + every_code, log=2)

    files["unterminated-and-huge"] = session(
        request(0) + media("setSource", text("x" * 200)) + media("canPlayType", text(""), text(""), u8(3), text("") * 3, flag(False)) +
        event(0, 2, u32(1) + u8(0xFF) + u32(0xFFFFFFFF)) + write_mse([]) + media("frame", u8(0)) +
        media("contentSize", u32(0xFFFFFFFF), u32(0xFFFFFFFF)) + media("clipRect", u32(0x7FFFFFFF), u32(0x80000000), u32(0xFFFF), u32(70000)),
        log=3)
    return files


def main():
    directory = os.path.join(os.path.dirname(os.path.abspath(__file__)), "Corpus")
    os.makedirs(directory, exist_ok=True)
    for name in os.listdir(directory):
        os.remove(os.path.join(directory, name))
    for name, data in sorted(corpus().items()):
        with open(os.path.join(directory, name), "wb") as out:
            out.write(data)
    print(f"wrote {len(corpus())} inputs to {directory}", file=sys.stderr)


if __name__ == "__main__":
    main()
